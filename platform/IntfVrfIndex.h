// The VRF of a routed interface: the first one, in collection order, whose multicast-enabled
// interfaces hold it. Owns: the holders of each interface. Reads: the collection of VRFs and the
// interfaces of each, as they come and go. Writes: `firstVrf`, nothing else; whoever wants to know
// about a moved interface watches that. Runs: on each of these changes, at a cost that does not
// depend on how many VRFs there are. Caveat: a VRF's interfaces are taken from the collection as it
// stands, never from the event.
#pragma once

#include "platform/MulticastIntfsAppRoot.h"
#include "runtime/OneToMany.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class IntfVrfIndex final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IntfVrfIndex)
  struct Inputs {
    Ombra::Ptr<MulticastIntfsAppRootSmColl const> mcastIntfRoot;
    bool operator==(const Inputs&) const = default;
  };
  explicit IntfVrfIndex(Inputs inputs);
  const Inputs in;

  /// The interfaces of one VRF.
  class NestedSm_Vrf final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IntfVrfIndex::NestedSm_Vrf)
    struct Inputs {
      IntfVrfIndex* parent;
      Ombra::Ptr<MulticastIntfsAppRootSm const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_Vrf(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;
    void handleDel() { in.parent->updateHolderOfAll(*in.row); }

   private:
    void handleIntf(Pavlin::IntfId intf) { in.parent->updateHolder(intf, in.row->vrfName()); }

    Vesk::Watch intf_ =
        watch<&NestedSm_Vrf::handleIntf>(in.row, MulticastIntfsAppRootSm::multicastIntfAttr);
  };

  VESK_MAP(Pavlin::IntfId, L3::VrfName, firstVrf)
  VESK_INSTANCES(L3::VrfName, NestedSm_Vrf, vrf)

 private:
  void handleVrf(L3::VrfName vrfName);
  /// Whether this VRF holds the interface may have changed.
  void updateHolder(Pavlin::IntfId intf, L3::VrfName vrfName);

  void updateHolderOfAll(const MulticastIntfsAppRootSm& intfsOfVrf);

  Vesk::OneToMany<Pavlin::IntfId, L3::VrfName> holders_;
  Vesk::Follow vrfs_ = follow<&IntfVrfIndex::handleVrf>(
      in.mcastIntfRoot, MulticastIntfsAppRootSmColl::vrfSmAttr, vrfAttr);
};

}  // namespace Routing::Multicast
