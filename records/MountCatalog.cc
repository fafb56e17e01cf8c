#include "records/MountCatalog.h"

#include <unordered_map>

#include "records/AgentStatus.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/ExternalForwarderStatus.h"
#include "records/Fib.h"
#include "records/GmpProxyStatus.h"
#include "records/IpTunnelForwardingStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/McastEvpnStatus.h"
#include "records/McastIrbStatus.h"
#include "records/MembershipJoin.h"
#include "records/Mlag.h"
#include "records/MulticastGroups.h"
#include "records/MulticastIntfs.h"
#include "records/Pim.h"
#include "records/Policy.h"
#include "records/ProactiveArp.h"
#include "records/Redundancy.h"
#include "records/Stage.h"
#include "records/TunnelGroupConfig.h"
#include "records/Tunnels.h"
#include "records/UnderlayGmp.h"
#include "records/VrfLeak.h"
#include "records/Vxlan.h"
#include "runtime/Dir.h"

namespace Corvane {

namespace {

constexpr const char* gateway = "OismGateway";
constexpr const char* gatewayOrMpls = "OismGateway or OismMplsTunnel";
constexpr const char* standby = "EvpnMulticastSSO and standby";

class Builder {
 public:
  Builder() {
    stateDb();
    for (const auto af : Pavlin::families)
      stateDb(af);
    briskel();
    for (const auto af : Pavlin::families)
      briskel(af);
    for (const auto af : Pavlin::families)
      skarel(af);
    add<Irb::Multicast::GatewayEsStatus>(Store::briskel, Access::read,
                                         Irb::Multicast::GatewayEsStatus::mountPath(), gateway);
    tunnels();
    input<Redundancy::RedundancyStatus>(Redundancy::RedundancyStatus::mountPath());
    input<Vxlan::VxlanConfigDir>(Vxlan::VxlanConfigDir::mountPath());
  }
  std::vector<MountPath> paths;

 private:
  template <class Record>
  void add(Store store, Access access, std::string path, const char* condition = "") {
    paths.push_back(
        {std::move(path), std::string(Record::veskName), store, access, true, condition});
  }
  template <class Record>
  void input(std::string path) {
    paths.push_back(
        {std::move(path), std::string(Record::veskName), Store::stateDb, Access::input, false, ""});
  }
  template <class Record>
  void read(std::string path, const char* condition = "") {
    add<Record>(Store::stateDb, Access::read, std::move(path), condition);
  }
  template <class Record>
  void write(std::string path, const char* condition = "") {
    add<Record>(Store::stateDb, Access::write, std::move(path), condition);
  }

  void stateDb() {
    using Routing::Multicast::IpTunnelGroupConfig;
    read<IpTunnelGroupConfig>(IpTunnelGroupConfig::mountPath());
    read<IpTunnelGroupConfig>(IpTunnelGroupConfig::remoteDomainMountPath(), gateway);
    read<Bridging::VlanStatusDir>(Bridging::VlanStatusDir::mountPath());
    read<Vxlan::VtiStatusDir>(Vxlan::VtiStatusDir::mountPath());
    write<McastCommon::AgentRunningStatus>(
        McastCommon::AgentRunningStatus::mountPath(Pavlin::AddressFamily::none, "Corvane"));
    write<Bridging::IgmpSnooping::Status>(Bridging::IgmpSnooping::Status::mountPath());
    write<Bridging::IgmpSnooping::Config>(Bridging::IgmpSnooping::Config::mountPath());
    read<Bridging::HwCapabilities>(Bridging::HwCapabilities::mountPath());
    read<Mlag::Status>(Mlag::Status::mountPath());
    read<Mlag::ProtoStatus>(Mlag::ProtoStatus::mountPath());
    read<Mlag::VxlanStatus>(Mlag::VxlanStatus::mountPath());
    read<Routing::Pim::SparseMode::ConfigColl>(
        Routing::Pim::SparseMode::ConfigColl::mountPath(Pavlin::ipv4()));
    read<Acl::AclListConfig>(Acl::AclListConfig::mountPath());
    read<Vxlan::EnabledStatus>(Vxlan::EnabledStatus::mountPath());
    write<Stage::AgentConfig>(Stage::AgentConfig::mountPath(), standby);
    read<Stage::AgentStatus>(Stage::AgentStatus::mountPath(), standby);
    read<Stage::ProgressDir>(Stage::ProgressDir::mountPath(), standby);
    read<Stage::CompletionStatusDir>(Stage::CompletionStatusDir::mountPath(), standby);
    read<Evpn::EvpnStatus>(Evpn::EvpnStatus::mountPath(), gatewayOrMpls);
    write<Irb::Multicast::GmpProxyStatus>(Irb::Multicast::GmpProxyStatus::mountPath(),
                                          gatewayOrMpls);
    read<Irb::Multicast::EvpnStaticStatus>(Irb::Multicast::EvpnStaticStatus::mountPath(),
                                           gatewayOrMpls);
  }

  void stateDb(Pavlin::AddressFamily af) {
    using namespace Routing::Multicast;
    using GroupStatus = IpTunnelVlanGroupStatus;
    write<GroupStatus>(GroupStatus::mountPath(af, irbEncapStatus()));
    write<GroupStatus>(GroupStatus::mountPath(af, irbRemoteDomainEncapStatus()), gateway);
    read<GroupStatus>(GroupStatus::mountPath(af, irbDecapStatus()));
    read<GroupStatus>(GroupStatus::mountPath(af, irbRemoteDomainDecapStatus()), gateway);
    write<McastEvpnStatus>(McastEvpnStatus::mountPath(af));
    read<McastCommon::AgentStatus>(McastCommon::AgentStatus::mountPath(af));
    read<Fib::VrfEnabledStatus>(Fib::VrfEnabledStatus::mountPath(af));
    if (af == Pavlin::ipv4()) {
      read<Fib::Hardware::Status>(Fib::Hardware::Status::mountPath(af));
      read<Routing::Multicast::Evpn::Config>(Routing::Multicast::Evpn::Config::mountPath(af));
      write<Ip::MulticastGroupsForApplications>(Ip::MulticastGroupsForApplications::mountPath());
    } else {
      write<Ip6::MulticastGroupsForApplications>(Ip6::MulticastGroupsForApplications::mountPath());
    }
    write<Vesk::Dir>(MulticastIntfsForApplications::dirMountPath(af, "corvane"));
    write<Vesk::Dir>(MulticastIntfsForApplications::dirMountPath(af, "mcasttunnel"));
    read<Vesk::Dir>(MulticastIntfsForApplications::dirMountPath(af));
    read<VrfLeak::McastVrfLeakConfig>(VrfLeak::McastVrfLeakConfig::mountPath(af));
  }

  void briskel() {
    using namespace Routing::Multicast;
    add<Arp::Table::Status>(Store::briskel, Access::read, Arp::Table::Status::mountPath());
    add<::Briskel::Bridging::Status>(Store::briskel, Access::read,
                                     ::Briskel::Bridging::Status::mountPath());
    add<Vrf::VrfIdMap::Status>(Store::briskel, Access::read, Vrf::VrfIdMap::Status::mountPath());
    add<PegDrStatus>(Store::briskel, Access::read, PegDrStatus::mountPath(Pavlin::ipv4()));
    add<Vxlan::RemoteVniToVlanStatus>(
        Store::briskel, Access::write,
        Vxlan::RemoteVniToVlanStatus::mountPath("static", Pavlin::vxlan1IntfId()));
    add<MvpnIntfStatus>(Store::briskel, Access::read, MvpnIntfStatus::mountPath(), gatewayOrMpls);
  }

  void briskel(Pavlin::AddressFamily af) {
    using namespace Routing::Multicast;
    using Irb::Multicast::App::Client;
    using GmpStatus = Routing::Gmp::Briskel::Status;
    add<Irb::Multicast::McastIrbStatus>(
        Store::briskel, Access::write,
        Irb::Multicast::McastIrbStatus::mountPath(af, Client::client3));
    add<ExternalForwarderStatus>(Store::briskel, Access::write,
                                 ExternalForwarderStatus::mountPath(af), gateway);
    add<PegVlanStatus>(Store::briskel, Access::read, PegVlanStatus::mountPath(af), gateway);
    if (af == Pavlin::ipv4())
      add<Arp::ProactiveArp::ClientConfig>(Store::briskel, Access::write,
                                           Arp::ProactiveArp::ClientConfig::mountPath());
    add<GmpStatus>(Store::briskel, Access::write,
                   GmpStatus::appMountPath(af, Routing::Gmp::Briskel::App::corvane, "default"));
  }

  void skarel(Pavlin::AddressFamily af) {
    using namespace Routing::Multicast;
    using Irb::Multicast::Gmp::MembershipJoinStatus;
    for (const auto client : Irb::Multicast::Gmp::joinClients(true)) {
      const bool gatewayOnly = Irb::Multicast::Gmp::isGatewayClient(client);
      add<MembershipJoinStatus>(Store::skarel, Access::read,
                                MembershipJoinStatus::mountPath(af, client),
                                gatewayOnly ? gateway : "");
    }
    add<Irb::Multicast::IgmpProxyStatus>(Store::briskel, Access::read,
                                         Irb::Multicast::IgmpProxyStatus::mergedAfMountPath(af));
    add<IpTunnelForwardingStatus>(Store::skarel, Access::write,
                                  IpTunnelForwardingStatus::mountPath(af));
    add<IpTunnelForwardingStatus>(Store::skarel, Access::write,
                                  IpTunnelForwardingStatus::remoteDomainMountPath(af), gateway);
    add<PegNeighborStatus>(Store::skarel, Access::read, PegNeighborStatus::mountPath(af), gateway);
  }

  void tunnels() {
    using namespace Multicast::Tunnel;
    for (const auto client : {McastTunnelClientType::client1, McastTunnelClientType::client2}) {
      add<IrVxlanIpv4TunnelRequestTable>(Store::briskel, Access::read,
                                         IrVxlanIpv4TunnelRequestTable::mountPath(client));
      add<PimVxlanTunnelRequestTable>(Store::briskel, Access::read,
                                      PimVxlanTunnelRequestTable::mountPath(client));
    }
    add<IrVxlanIpv4TunnelTable>(Store::briskel, Access::write, IrVxlanIpv4TunnelTable::mountPath());
    add<PimVxlanTunnelTable>(Store::briskel, Access::write, PimVxlanTunnelTable::mountPath());
    add<McastTunnelStatus>(Store::briskel, Access::write, McastTunnelStatus::mountPath());
  }
};

}  // namespace

const std::vector<MountPath>& mountCatalog() {
  static const std::vector<MountPath> catalog = Builder().paths;
  return catalog;
}

const MountPath* findMountPath(std::string_view path) {
  static const auto byPath = [] {
    std::unordered_map<std::string_view, const MountPath*> index;
    for (const MountPath& entry : mountCatalog())
      index.emplace(entry.path, &entry);
    return index;
  }();
  const auto found = byPath.find(path);
  return found == byPath.end() ? nullptr : found->second;
}

std::string typeNameOfPath(std::string_view path) {
  using Routing::Multicast::MulticastIntfsForApplications;
  if (const MountPath* entry = findMountPath(path)) return entry->type;
  for (const auto af : Pavlin::families) {
    const std::string dir = MulticastIntfsForApplications::dirMountPath(af) + "/";
    if (!path.starts_with(dir)) continue;
    const std::string_view below = path.substr(dir.size());
    const auto slash = below.find('/');
    if (below.empty() || slash == 0) return {};
    if (slash == std::string_view::npos) return std::string(Vesk::Dir::veskName);
    const std::string_view vrf = below.substr(slash + 1);
    if (vrf.empty() || vrf.find('/') != std::string_view::npos) return {};
    return std::string(MulticastIntfsForApplications::veskName);
  }
  return {};
}

}  // namespace Corvane
