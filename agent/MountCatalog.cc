#include "agent/MountCatalog.h"

#include "agent/MountEntries.h"
#include "platform/Toggles.h"
#include "records/Tunnels.h"

namespace Corvane {
namespace {

using Multicast::Vpn::AfContainer;
using Multicast::Vpn::Agent;
using Multicast::Vpn::DomainContainer;
using Multicast::Vpn::DomainTraits;
using VeskBriskel::VeskBriskelType;

/// What is mounted, in order. The kinds of entry are told in agent/MountEntries.h.
class List : public MountEntries {
 public:
  List() {
    stateDb();
    eachFamily([this] { stateDbOfFamily(); });
    tables();
    eachFamily([this] { tablesOfFamily(); });
    eachFamily([this] { deferredOfFamily(); });
    deferredTable(Agent::gatewayESStatusAttr, Irb::Multicast::GatewayEsStatus::mountPath(),
                  Condition::gateway);
    tunnels();
    input<Redundancy::RedundancyStatus>();
    input<Vxlan::VxlanConfigDir>();
  }

 private:
  void stateDb() {
    using Routing::Multicast::IpTunnelGroupConfig;
    using Routing::Pim::SparseMode::ConfigColl;
    profile(Agent::ipTunnelGroupConfigAttr);
    profile(Agent::ipTunnelRemoteDomainGroupConfigAttr,
            IpTunnelGroupConfig::remoteDomainMountPath(), Condition::gateway);
    profile(Agent::vlanStatusDirAttr);
    profile(Agent::vtiStatusDirAttr);
    profile(Agent::agentStatusAttr,
            McastCommon::AgentRunningStatus::mountPath(Pavlin::AddressFamily::none, "Corvane"));
    profile(Agent::igmpSnoopingStatusAttr);
    profile(Agent::mldSnoopingStatusAttr);
    profile(Agent::hwCapabilitiesAttr);
    profile(Agent::mlagStatusAttr);
    profile(Agent::mlagProtoStatusAttr);
    profile(Agent::mlagVxlanStatusAttr);
    profile(Agent::pimsmConfigCollAttr, ConfigColl::mountPath(Pavlin::ipv4()));
    profile(Agent::aclListConfigAttr);
    profile(Agent::vxlanEnabledStatusAttr);
    forStages<Stage::AgentConfig>();
    forStages<Stage::AgentStatus const>();
    forStages<Stage::ProgressDir const>();
    forStages<Stage::CompletionStatusDir const>();
    profile(Agent::evpnStatusAttr, Condition::gatewayOrMpls);
    profile(Agent::gmpProxyStatusAttr, Condition::gatewayOrMpls);
    profile(Agent::evpnStaticStatusAttr, Condition::gatewayOrMpls);
  }

  void stateDbOfFamily() {
    using Routing::Multicast::IpTunnelVlanGroupStatus;
    using Routing::Multicast::MulticastIntfsForApplications;
    eachDomain([this](const DomainTraits& traits) {
      profile(DomainContainer::encapVlanGroupStatusAttr,
              IpTunnelVlanGroupStatus::mountPath(af(), traits.encapStatus), traits.condition);
    });
    eachDomain([this](const DomainTraits& traits) {
      profile(DomainContainer::decapVlanGroupStatusAttr,
              IpTunnelVlanGroupStatus::mountPath(af(), traits.decapStatus), traits.condition);
    });
    profile(AfContainer::mcastEvpnStatusAttr);
    profile(AfContainer::mcastStatusAttr);
    profile(AfContainer::mcastEnabledStatusAttr);
    if (af() == Pavlin::ipv4()) {
      profile(AfContainer::mfibHwStatusAttr);
      profile(AfContainer::mcastEvpnConfigAttr);
      wrapped<IpGen::Ipv4MulticastGroupsForApplications, Ip::MulticastGroupsForApplications>();
    } else {
      wrapped<IpGen::Ipv6MulticastGroupsForApplications, Ip6::MulticastGroupsForApplications>();
    }
    profile(AfContainer::multicastIntfAppDirAttr,
            MulticastIntfsForApplications::dirMountPath(af(), "corvane"));
    profile(AfContainer::underlayMulticastIntfAppDirAttr,
            MulticastIntfsForApplications::dirMountPath(af(), "mcasttunnel"));
    profile(AfContainer::multicastAppDirRootAttr,
            MulticastIntfsForApplications::dirMountPath(af()));
    profile(AfContainer::vrfLeakConfigAttr);
  }

  void tables() {
    using Routing::Multicast::MvpnIntfStatus;
    table(Agent::arpStatusAttr);
    table(Agent::bridgingStatusAttr);
    table(Agent::vrfIdMapStatusAttr).info = VeskBriskel::MountInfo(VeskBriskelType::reader);
    table(Agent::pegDrStatusAttr, Routing::Multicast::PegDrStatus::mountPath(Pavlin::ipv4()));
    table(Agent::remoteVniToSBDVlanAttr,
          Vxlan::RemoteVniToVlanStatus::mountPath("static", Pavlin::vxlan1IntfId()));
    table(Agent::mvpnIntfStatusAttr, Condition::gatewayOrMpls).info =
        sized<MvpnIntfStatus>(VeskBriskelType::reader, true);
  }

  void tablesOfFamily() {
    using Irb::Multicast::McastIrbStatus;
    using GmpStatus = Routing::Gmp::Briskel::Status;
    table(AfContainer::mcastIrbStatusAttr,
          McastIrbStatus::mountPath(af(), Irb::Multicast::App::Client::client3));
    table(AfContainer::externalForwarderStatusAttr, Condition::gateway);
    table(AfContainer::pegVlanStatusAttr, Condition::gateway);
    // Its rows outlive the logic: neighbours keep being asked for while it is away.
    if (af() == Pavlin::ipv4())
      table(AfContainer::proactiveArpConfigAttr).atShutdown = AtShutdown::unmounted;
    table(AfContainer::underlayGmpStatusAttr,
          GmpStatus::appMountPath(af(), Routing::Gmp::Briskel::App::corvane, "default"))
        .mounting = Mounting::group;
  }

  void deferredOfFamily() {
    using Irb::Multicast::IgmpProxyStatus;
    for (const auto client : Irb::Multicast::Gmp::joinClients())
      joins(client);
    deferredTable(AfContainer::mergedGmpProxyStatusAttr, IgmpProxyStatus::mergedAfMountPath(af()));
    eachDomain([this](const DomainTraits& traits) {
      deferred(DomainContainer::ipTunnelForwardingStatusAttr, traits.forwardingPath(af()),
               traits.condition);
    });
    deferred(AfContainer::pegNeighborStatusAttr, ownPath<Routing::Multicast::PegNeighborStatus>(),
             Condition::gateway)
        .kept = Moment::mountsComplete;
  }

  void tunnels() {
    using namespace Multicast::Tunnel;
    for (const auto client : {McastTunnelClientType::client1, McastTunnelClientType::client2}) {
      byRoot<IrVxlanIpv4TunnelRequestTable>(Access::read,
                                            IrVxlanIpv4TunnelRequestTable::mountPath(client));
      byRoot<PimVxlanTunnelRequestTable>(Access::read,
                                         PimVxlanTunnelRequestTable::mountPath(client));
    }
    byRoot<IrVxlanIpv4TunnelTable>(Access::write);
    byRoot<PimVxlanTunnelTable>(Access::write);
    byRoot<McastTunnelStatus>(Access::write);
  }
};

}  // namespace

std::string_view conditionText(Condition condition) {
  switch (condition) {
    case Condition::always:
      return "";
    case Condition::gateway:
      return "OismGateway";
    case Condition::gatewayOrMpls:
      return "OismGateway or OismMplsTunnel";
    case Condition::standby:
      return "EvpnMulticastSSO and standby";
  }
  return "?";
}

bool holds(Condition condition, bool isStandby) {
  using namespace Multicast::Vpn;
  switch (condition) {
    case Condition::always:
      return true;
    case Condition::gateway:
      return toggleOismGatewayEnabled();
    case Condition::gatewayOrMpls:
      return toggleOismGatewayEnabled() || toggleOismMplsTunnelEnabled();
    case Condition::standby:
      return toggleEvpnMulticastSSOEnabled() && isStandby;
  }
  return false;
}

const std::vector<MountPath>& mountCatalog() {
  static const std::vector<MountPath> catalog = List().take();
  return catalog;
}

}  // namespace Corvane
