#include "records/MulticastGroups.h"

#include <algorithm>

#include "runtime/Assert.h"

namespace IpGen {

namespace {

/// The pair in the type of one family.
template <class Pair>
Pair narrowed(const IntfAddrInfo& info, Pavlin::AddressFamily af) {
  Ombra::assertThat(info.addr.af() == af, "info.addr.af() == af()");
  Pair pair;
  pair.intfId = info.intfId;
  if constexpr (std::is_same_v<Pair, Ip::IntfAddrInfo>) {
    pair.addr = info.addr.v4Addr();
  } else {
    pair.addr = info.addr.v6Addr();
  }
  return pair;
}

template <class Record>
std::vector<IntfAddrInfo> widened(const Record& record) {
  std::vector<IntfAddrInfo> all;
  all.reserve(record.multicastGroupCount());
  for (const auto& pair : record.multicastGroupIterator()) {
    IntfAddrInfo info;
    info.intfId = pair.intfId;
    info.addr = Pavlin::IpGenAddr(pair.addr);
    all.push_back(info);
  }
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace

Ipv4MulticastGroupsForApplications::Ipv4MulticastGroupsForApplications(
    Ombra::Ptr<Ip::MulticastGroupsForApplications> groups) {
  groupsIs(std::move(groups));
}
bool Ipv4MulticastGroupsForApplications::intfAddrHas(const IntfAddrInfo& info) const {
  return groups()->multicastGroupHas(narrowed<Ip::IntfAddrInfo>(info, af()));
}
void Ipv4MulticastGroupsForApplications::intfAddrIs(const IntfAddrInfo& info) {
  groups()->multicastGroupIs(narrowed<Ip::IntfAddrInfo>(info, af()));
}
void Ipv4MulticastGroupsForApplications::intfAddrDel(const IntfAddrInfo& info) {
  groups()->multicastGroupDel(narrowed<Ip::IntfAddrInfo>(info, af()));
}
std::vector<IntfAddrInfo> Ipv4MulticastGroupsForApplications::intfAddrIterator() const {
  return widened(*groups());
}

Ipv6MulticastGroupsForApplications::Ipv6MulticastGroupsForApplications(
    Ombra::Ptr<Ip6::MulticastGroupsForApplications> groups) {
  groupsIs(std::move(groups));
}
bool Ipv6MulticastGroupsForApplications::intfAddrHas(const IntfAddrInfo& info) const {
  return groups()->multicastGroupHas(narrowed<Ip6::IntfAddrInfo>(info, af()));
}
void Ipv6MulticastGroupsForApplications::intfAddrIs(const IntfAddrInfo& info) {
  groups()->multicastGroupIs(narrowed<Ip6::IntfAddrInfo>(info, af()));
}
void Ipv6MulticastGroupsForApplications::intfAddrDel(const IntfAddrInfo& info) {
  groups()->multicastGroupDel(narrowed<Ip6::IntfAddrInfo>(info, af()));
}
std::vector<IntfAddrInfo> Ipv6MulticastGroupsForApplications::intfAddrIterator() const {
  return widened(*groups());
}

}  // namespace IpGen

VESK_REGISTER(Ip::MulticastGroupsForApplications)
VESK_REGISTER(Ip6::MulticastGroupsForApplications)
VESK_REGISTER(IpGen::MulticastGroupsForApplications)
VESK_REGISTER(IpGen::Ipv4MulticastGroupsForApplications)
VESK_REGISTER(IpGen::Ipv6MulticastGroupsForApplications)
