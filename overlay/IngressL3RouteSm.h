// Which routes of the multicast FIB enter the overlay at this switch.
// Owns: a machine per VRF that has a pool of underlay groups, and the proactive ARP records.
// Reads: which VRFs these are, Vxlan1, neighbours, bridging, roles, transit VRFs, gateway vlans.
// Writes: IngressL3RouteStatus, and the requests of the proactive ARP table.
// Runs: one route at once, everything wider in a walk that yields, which comes round every 120 s
// for the routes that fall silent.
#pragma once

#include "overlay/IngressL3RouteVrfSm.h"
#include "overlay/ProactiveArp.h"
#include "platform/VrfIdReverseMapper.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/Vxlan.h"
#include "runtime/OneToMany.h"
#include "runtime/Review.h"
#include "runtime/Walk.h"

namespace Multicast::Vpn {

class IngressL3RouteSm final : public Sylva::WalkSmBase {
  VESK_RECORD(Multicast::Vpn::IngressL3RouteSm)
  struct Inputs {
    Sylva::TaskScheduler* scheduler;
    Pavlin::AddressFamily addressFamily;
    Ombra::Ptr<IpTunnelMappingStatus const> ipTunnelMappingStatus;
    Ombra::Ptr<Routing::Multicast::Fib::Hardware::Status const> mfibStatus;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<Vrf::VrfIdMap::Status const> arpBriskelVrfIdMap;
    Ombra::Ptr<Arp::Table::Status const> arpStatus;
    Ombra::Ptr<Briskel::Bridging::Status const> bridgingStatus;
    Ombra::Ptr<Routing::Multicast::PegDrStatus const> pegDrStatus;
    Ombra::Ptr<Routing::Multicast::Evpn::Config const> mcastEvpnConfig;
    Ombra::Ptr<IngressL3RouteStatus> ingressL3RouteStatus;
    Ombra::Ptr<Arp::ProactiveArp::ClientConfig> proactiveArpConfig;
    Ombra::Ptr<Irb::Multicast::GatewayEsStatus const> gatewayESStatus;  ///< null without gateways
    Ombra::Ptr<ProactiveArpUse> proactiveArpUse{};  ///< null for the table's only writer
    bool operator==(const Inputs&) const = default;
  };
  explicit IngressL3RouteSm(Inputs inputs);
  const Inputs in;

  [[nodiscard]] static std::string getTaskName(Pavlin::AddressFamily af);

  /// The status of Vxlan1, or null.
  VESK_REF(Vxlan::VtiStatus const, vtiStatus)
  VESK_INSTANCE(Vrf::VrfIdMap::NameToIdMap, arpBriskelVrfNameToIdMap)
  VESK_INSTANCE(Vrf::VrfIdMap::VrfIdReverseMapper, arpBriskelVrfIdReverseMapper)
  VESK_INSTANCES(L3::VrfName, IngressL3RouteVrfSm, vrfSm)
  VESK_INSTANCES(Arp::ProactiveArp::Entry, ArpEntryVrfColl, arpEntryVrfColl)
  VESK_SET(L3::VrfName, vrfInputChangeSet)
  /// Requests may be left that nobody wants.
  VESK_VALUE(bool, needArpOutputReview)
  VESK_VALUE(std::optional<IngressL3RouteSmBookmark>, inputBookmark)
  VESK_VALUE(std::optional<Arp::ProactiveArp::Entry>, outputBookmark)
  /// Seconds.
  VESK_VALUE(double, reviewInterval, 120.0)
  VESK_VALUE(double, routeInactiveTime, 210.0)

  /// None if the VRF has no number.
  [[nodiscard]] std::optional<Vrf::VrfIdMap::VrfId> getVrfIdFromVrfName(
      const L3::VrfName& vrf) const;
  void reviewVrfInput(const L3::VrfName& vrf);
  void reviewAllInput();
  void reviewArpOutput();
  void review() override;

  // For the machines of the VRFs.
  [[nodiscard]] ProactiveArp& proactiveArp() { return arp_; }
  void routesOfVlanChange(Bridging::VlanId vlan, const L3::VrfName& vrf, bool any);
  void sbdVlanChange(const L3::VrfName& vrf, Bridging::VlanIdOrNone from,
                     Bridging::VlanIdOrNone to);

 private:
  friend class ProactiveArp;
  void handleInitialized();
  void handleCleanup() override;
  void handleVrf(L3::VrfName vrf) { updateVrf(vrf); }
  void handleVrfDelayedConfigured(L3::VrfName vrf) { updateVrf(vrf); }
  void handleVxlanIntf();
  void handleVtiOperStatus() { reviewAllInput(); }
  void handleVtiStatus();
  void handleVlanVni(Bridging::VlanId vlan) { reviewVlan(vlan); }
  void handleVrfToSbdVlan(L3::VrfName vrf);
  void handlePegDrStatus(Bridging::VlanId vlan);
  void handleTransitVrf(L3::VrfName vrf) { reviewVrfInput(vrf); }
  void handleGatewayESStatus(Bridging::VlanId vlan) { reviewVlan(vlan); }
  void handleVrfId(L3::VrfName vrf) { reviewVrfInput(vrf); }
  void handleArpStatusEntry(Arp::Table::ArpKey arpKey);
  void handleFdbEntry(Briskel::Bridging::FdbKey fdbKey);
  void handleStarting();
  void handleReviewTimer() { reviewAllInput(); }

  void createVrfSMs();
  void createVrfSM(const L3::VrfName& vrf);
  void deleteVrfSM(const L3::VrfName& vrf);
  void updateVrf(const L3::VrfName& vrf);
  void updateAllSbdVlanIds();
  /// The VRFs with routes that come in by the vlan; no other route hangs on it.
  void reviewVlan(Bridging::VlanId vlan);
  void handleInputReviewed();

  bool walkStartedNotification() override;
  WalkResult walk() override;
  void walkFinishedNotification() override;
  /// False if it yielded.
  [[nodiscard]] bool reviewInputs(double now, Sylva::Slice& slice);

  ProactiveArp arp_{this};
  Sylva::ReviewSet<vrfInputChangeSetTag, inputBookmarkTag> inputReview_{this};
  Sylva::ReviewPass<needArpOutputReviewTag, outputBookmarkTag> arpReview_{this};
  Vesk::OneToMany<Bridging::VlanId, L3::VrfName> vrfsOfVlan_;
  Vesk::OneToMany<Bridging::VlanId, L3::VrfName> vrfsOfSbdVlan_;
  /// Apart from the walk's own delay, so that the review of one VRF does not become one of all.
  Vesk::MachineTimer reviewTimer_{this, in.scheduler, 3, getTaskName(in.addressFamily) + "Timer",
                                  Vesk::taskBody<&IngressL3RouteSm::handleReviewTimer>};

  using Self = IngressL3RouteSm;
  Vesk::Watch vrf_ = watch<&Self::handleVrf>(
      in.mfibStatus, Routing::Multicast::Fib::Hardware::Status::vrfStatusAttr);
  Vesk::Watch delayedVrf_ = watch<&Self::handleVrfDelayedConfigured>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::multipleUnderlayGroupsDelayedVrfAttr);
  // Another interface is looked at as a whole.
  Vesk::Watch vxlanIntf_ =
      watch<&Self::handleVxlanIntf>(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
  Vesk::PathWatch operStatus_ = watchPathQuietly<&Self::handleVtiOperStatus>(
      this, vtiStatusAttr, Vxlan::VtiStatus::operStatusAttr);
  Vesk::PathWatch vlanVni_ = watchPathQuietly<&Self::handleVlanVni>(
      this, vtiStatusAttr, Vxlan::VtiStatus::vlanToVniMapAttr);
  Vesk::PathWatch sbdVlan_ = watchPathQuietly<&Self::handleVrfToSbdVlan>(
      this, vtiStatusAttr, Vxlan::VtiStatus::vrfToSBDVlanAttr);
  Vesk::PathWatch vrfId_ = watchPath<&Self::handleVrfId>(
      this, arpBriskelVrfNameToIdMapAttr, Vrf::VrfIdMap::NameToIdMap::vrfNameToIdAttr);
  Vesk::Watch pegDr_ = watch<&Self::handlePegDrStatus>(
      in.pegDrStatus, Routing::Multicast::PegDrStatus::pegDrVlanAttr);
  Vesk::Watch transitVrf_ = watch<&Self::handleTransitVrf>(
      in.mcastEvpnConfig, Routing::Multicast::Evpn::Config::transitVrfAttr);
  Vesk::Watch gateway_ = watch<&Self::handleGatewayESStatus>(
      in.gatewayESStatus, Irb::Multicast::GatewayEsStatus::esVlanStatusAttr);
  Vesk::Watch arpStatus_ =
      watch<&Self::handleArpStatusEntry>(in.arpStatus, Arp::Table::Status::arpEntryAttr);
  Vesk::Watch fdb_ =
      watch<&Self::handleFdbEntry>(in.bridgingStatus, Briskel::Bridging::Status::fdbEntryAttr);
  Vesk::Watch starting_ = watch<&Self::handleStarting>(arp_.use(), ProactiveArpUse::startingAttr);
};

}  // namespace Multicast::Vpn
