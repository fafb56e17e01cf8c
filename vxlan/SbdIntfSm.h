// Makes the SBD vlan of each VRF one of the VRF's multicast interfaces, and lets PIM run on it.
// Owns: a machine per VXLAN interface with the SBD vlans that it has handled, and who names which
// vlan. Reads: vrfToSBDVlan of every VXLAN interface. Writes: the interfaces of the application
// "corvane", a VRF's entity each, and the group of all PIM routers on the vlan (RFC 7761, 4.3).
// Runs: in reactors only. Caveat: rows stay when the machine goes; the next one reviews them. A
// vlan that two VRFs name stays an interface of both until nobody names it.
#pragma once

#include "records/MulticastGroups.h"
#include "records/Vxlan.h"
#include "runtime/OneToMany.h"
#include "runtime/Record.h"
#include "vxlan/ApplicationIntfs.h"

namespace Irb::Multicast {

class SbdIntfSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::SbdIntfSm)
  struct Inputs {
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<IpGen::MulticastGroupsForApplications> sbdVlanMcastGroup;
    Ombra::Ptr<Vesk::Dir> multicastIntfsAppDir;
    bool operator==(const Inputs&) const = default;
  };
  explicit SbdIntfSm(Inputs inputs);
  const Inputs in;

  /// The SBD vlans of one VXLAN interface.
  class NestedSm_VtiStatus final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::SbdIntfSm::NestedSm_VtiStatus)
    struct Inputs {
      SbdIntfSm* parent;
      Ombra::Ptr<Vxlan::VtiStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VtiStatus(Inputs inputs) : in(std::move(inputs)) { review(); }
    const Inputs in;

    /// As it was handled last.
    VESK_MAP(L3::VrfName, Bridging::VlanIdOrNone, vrfToSBDVlan)

    /// The first VRF, in collection order, whose SBD vlan this is; the empty name if there is none.
    [[nodiscard]] L3::VrfName findSbdVlan(Bridging::VlanId vlan) const {
      return vrfsOf_.first(vlan).value_or(L3::VrfName());
    }
    void handleDel();
    void review() override;

   private:
    void handleVrfToSbdVlan(L3::VrfName vrfName);
    void nameSbdVlan(L3::VrfName vrfName, Bridging::VlanIdOrNone vlan);

    Vesk::OneToMany<Bridging::VlanId, L3::VrfName> vrfsOf_;
    Vesk::Watch sbdVlan_ =
        watch<&NestedSm_VtiStatus::handleVrfToSbdVlan>(in.row, Vxlan::VtiStatus::vrfToSBDVlanAttr);
  };

  VESK_INSTANCES(Pavlin::IntfId, NestedSm_VtiStatus, vtiStatus)
  /// Of the last change of either output, in seconds.
  VESK_VALUE(double, mcastIntfsAndGroupsUpdateTS)

  /// A VRF that uses the vlan as its SBD vlan; the empty name if none does.
  [[nodiscard]] L3::VrfName findSbdVlan(Bridging::VlanId vlan) const;

 private:
  void handleInitialized();
  /// The new vlan before the old one goes.
  void handleVrfToSbdVlan(L3::VrfName vrfName, Bridging::VlanIdOrNone newSbd,
                          Bridging::VlanIdOrNone oldSbd);
  void enableMulticast(Bridging::VlanId vlan, L3::VrfName vrfName);
  void disableMulticast(Bridging::VlanId vlan, L3::VrfName vrfName);
  void disableMulticastIntf(Pavlin::IntfId intf, const std::string& vrfName);
  void disablePimProfile(Pavlin::IntfId intf);
  [[nodiscard]] IpGen::IntfAddrInfo intfAddrInfo(Pavlin::IntfId intf) const;
  [[nodiscard]] bool isOfSbdVlan(Pavlin::IntfId intf) const;
  void noteChange();

  ApplicationIntfs intfs_{in.multicastIntfsAppDir};
  Vesk::OneToMany<Bridging::VlanId, Pavlin::IntfId> vtisOf_;
  Vesk::Follow vtis_ = follow(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr, vtiStatusAttr);
};

}  // namespace Irb::Multicast
