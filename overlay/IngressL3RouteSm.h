// Which routes of the multicast FIB enter the overlay at this switch, and which of their sources
// are asked for by proactive ARP. Owns: a machine per VRF that has a pool of underlay groups, and
// the proactive ARP records: who needs which neighbour.
// Reads: which VRFs these are, Vxlan1, neighbours, bridging, roles, transit VRFs, gateway vlans.
// Writes: IngressL3RouteStatus, and the requests of the proactive ARP table.
// Runs: one route at once, everything wider in a walk that yields, which comes round every 120 s
// for the routes that fall silent. Caveat: the request table outlives the process and is shared by
// the machines of both domains.
#pragma once

#include "overlay/IngressL3RouteVrfSm.h"
#include "overlay/OneToMany.h"
#include "platform/VrfIdReverseMapper.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/Vxlan.h"
#include "runtime/Walk.h"

namespace Multicast::Vpn {

/// What the machines that write one request table know of each other.
class ProactiveArpUse : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::ProactiveArpUse)
  /// Machines that have a record for the entry.
  VESK_MAP(Arp::ProactiveArp::Entry, std::uint32_t, users)
  /// Machines that have not seen all their routes yet: what they want is not known.
  VESK_VALUE(std::uint32_t, starting)
};

class IngressL3RouteSm final : public Sylva::WalkSmBase {
  VESK_RECORD(Multicast::Vpn::IngressL3RouteSm)
  using ArpRecord = Arp::ProactiveArp::Entry;

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
  VESK_VALUE(IngressL3RouteSmBookmark, inputBookmark)
  VESK_VALUE(Arp::ProactiveArp::Entry, outputBookmark)
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
  void handleArpEntry(const ArpRecord& entry);
  void routesOfVlanChange(Bridging::VlanId vlan, const L3::VrfName& vrf, bool any);
  void sbdVlanChange(const L3::VrfName& vrf, Bridging::VlanIdOrNone from,
                     Bridging::VlanIdOrNone to);
  void fdbKeyChange(const Briskel::Bridging::FdbKey& key, const L3::VrfName& vrf,
                    const ArpRecord& entry, bool used);

 private:
  struct VrfSource {
    L3::VrfName vrf;
    ArpRecord entry;
    auto operator<=>(const VrfSource&) const = default;
    friend std::uint64_t hashValue(const VrfSource& source) {
      return Vesk::foldHash(Vesk::hashValue(source.vrf), Vesk::hashValue(source.entry));
    }
  };

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
  void inputReviewed();
  void markStarted();

  [[nodiscard]] bool allowWalkRestarts() const override { return true; }
  bool walkStartedNotification() override;
  WalkResult walk() override;
  void walkFinishedNotification() override;
  /// These return false if they yielded.
  [[nodiscard]] bool reviewInputs(double now, std::size_t& routes);
  [[nodiscard]] bool reviewArpRequests(std::size_t routes, std::size_t& entries);
  void dropVrfsWithoutSm(const ArpRecord& entry);

  Ombra::Ptr<ProactiveArpUse> use_ =
      in.proactiveArpUse ? in.proactiveArpUse : Ombra::make<ProactiveArpUse>();
  bool started_ = false;
  OneToMany<Bridging::VlanId, L3::VrfName> vrfsOfVlan_;
  OneToMany<Bridging::VlanId, L3::VrfName> vrfsOfSbdVlan_;
  OneToMany<Pavlin::IpGenAddr, Pavlin::IntfId> intfsOfSource_;
  OneToMany<Briskel::Bridging::FdbKey, VrfSource> sourcesOfFdbKey_;
  /// Apart from the walk's own delay, so that the review of one VRF does not become one of all.
  Vesk::MachineTimer reviewTimer_{this, in.scheduler, 3, getTaskName(in.addressFamily) + "Timer",
                                  Vesk::taskBody<&IngressL3RouteSm::handleReviewTimer>};

  Vesk::Watch vrfWatch_ = watch<&IngressL3RouteSm::handleVrf>(
      in.mfibStatus, Routing::Multicast::Fib::Hardware::Status::vrfStatusAttr);
  Vesk::Watch delayedVrfWatch_ = watch<&IngressL3RouteSm::handleVrfDelayedConfigured>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::multipleUnderlayGroupsDelayedVrfAttr);
  Vesk::Watch vxlanIntfWatch_ = watch<&IngressL3RouteSm::handleVxlanIntf>(
      in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
  Vesk::Watch operStatusWatch_ =
      watch<&IngressL3RouteSm::handleVtiOperStatus>(vtiStatus(), Vxlan::VtiStatus::operStatusAttr);
  Vesk::Watch vlanVniWatch_ =
      watch<&IngressL3RouteSm::handleVlanVni>(vtiStatus(), Vxlan::VtiStatus::vlanToVniMapAttr);
  Vesk::Watch sbdVlanWatch_ =
      watch<&IngressL3RouteSm::handleVrfToSbdVlan>(vtiStatus(), Vxlan::VtiStatus::vrfToSBDVlanAttr);
  Vesk::Watch pegDrWatch_ = watch<&IngressL3RouteSm::handlePegDrStatus>(
      in.pegDrStatus, Routing::Multicast::PegDrStatus::pegDrVlanAttr);
  Vesk::Watch transitVrfWatch_ = watch<&IngressL3RouteSm::handleTransitVrf>(
      in.mcastEvpnConfig, Routing::Multicast::Evpn::Config::transitVrfAttr);
  Vesk::Watch gatewayWatch_ = watch<&IngressL3RouteSm::handleGatewayESStatus>(
      in.gatewayESStatus, Irb::Multicast::GatewayEsStatus::esVlanStatusAttr);
  Vesk::Watch arpWatch_ = watch<&IngressL3RouteSm::handleArpStatusEntry>(
      in.arpStatus, Arp::Table::Status::arpEntryAttr);
  Vesk::Watch fdbWatch_ = watch<&IngressL3RouteSm::handleFdbEntry>(
      in.bridgingStatus, Briskel::Bridging::Status::fdbEntryAttr);
  Vesk::Watch startingWatch_ =
      watch<&IngressL3RouteSm::handleStarting>(use_, ProactiveArpUse::startingAttr);
  Vesk::Watch vrfIdWatch_ = watch<&IngressL3RouteSm::handleVrfId>(
      arpBriskelVrfNameToIdMap(), Vrf::VrfIdMap::NameToIdMap::vrfNameToIdAttr);
};

}  // namespace Multicast::Vpn
