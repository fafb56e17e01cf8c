// Groups that an application wants received on interfaces, with one face for both families.
// Written by: the SBD interface machine, through the IpGen wrapper of its family. Read by: the IP
// agents. Caveat: a wrapper takes addresses of its own family only.
#pragma once

#include <string>
#include <vector>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Ip {

class MulticastGroupsForApplications : public Vesk::Entity {
  VESK_RECORD(Ip::MulticastGroupsForApplications)
  VESK_SET(IntfAddrInfo, multicastGroup)

  [[nodiscard]] static std::string mountPath() { return "ip/multicastGroups/application/corvane"; }
};

}  // namespace Ip

namespace Ip6 {

class MulticastGroupsForApplications : public Vesk::Entity {
  VESK_RECORD(Ip6::MulticastGroupsForApplications)
  VESK_SET(IntfAddrInfo, multicastGroup)

  [[nodiscard]] static std::string mountPath() { return "ip6/multicastGroups/application/corvane"; }
};

}  // namespace Ip6

namespace IpGen {

/// The groups of one family without naming the family.
class MulticastGroupsForApplications : public Vesk::Entity {
 public:
  [[nodiscard]] virtual Pavlin::AddressFamily af() const = 0;
  [[nodiscard]] virtual bool intfAddrHas(const IntfAddrInfo& info) const = 0;
  virtual void intfAddrIs(const IntfAddrInfo& info) = 0;
  virtual void intfAddrDel(const IntfAddrInfo& info) = 0;
  /// All pairs as they are now; the record may change while they are walked.
  [[nodiscard]] virtual std::vector<IntfAddrInfo> intfAddrIterator() const = 0;

  VESK_RECORD(IpGen::MulticastGroupsForApplications)
};

class Ipv4MulticastGroupsForApplications : public MulticastGroupsForApplications {
  VESK_RECORD(IpGen::Ipv4MulticastGroupsForApplications)
  VESK_REF(Ip::MulticastGroupsForApplications, groups)

  explicit Ipv4MulticastGroupsForApplications(
      Ombra::Ptr<Ip::MulticastGroupsForApplications> groups);
  [[nodiscard]] Pavlin::AddressFamily af() const override { return Pavlin::AddressFamily::ipv4; }
  [[nodiscard]] bool intfAddrHas(const IntfAddrInfo& info) const override;
  void intfAddrIs(const IntfAddrInfo& info) override;
  void intfAddrDel(const IntfAddrInfo& info) override;
  [[nodiscard]] std::vector<IntfAddrInfo> intfAddrIterator() const override;
};

class Ipv6MulticastGroupsForApplications : public MulticastGroupsForApplications {
  VESK_RECORD(IpGen::Ipv6MulticastGroupsForApplications)
  VESK_REF(Ip6::MulticastGroupsForApplications, groups)

  explicit Ipv6MulticastGroupsForApplications(
      Ombra::Ptr<Ip6::MulticastGroupsForApplications> groups);
  [[nodiscard]] Pavlin::AddressFamily af() const override { return Pavlin::AddressFamily::ipv6; }
  [[nodiscard]] bool intfAddrHas(const IntfAddrInfo& info) const override;
  void intfAddrIs(const IntfAddrInfo& info) override;
  void intfAddrDel(const IntfAddrInfo& info) override;
  [[nodiscard]] std::vector<IntfAddrInfo> intfAddrIterator() const override;
};

}  // namespace IpGen
