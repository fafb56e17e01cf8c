// Reference-counted rows of the L3 group table: one handle per (vlan, group), held by every route
// that needs the row. The notifiee makes the row at the first reference and removes it, and an
// emptied vlan, at the last.
#pragma once

#include "records/EncapTables.h"
#include "runtime/Dedup.h"

namespace Multicast::Vpn {

using VlanGroupDeduped = Sylva::DedupHandle<Routing::Multicast::OverlayVlanGroup>;

class OverlayVlanGroupLifetimeNotifiee final
    : public Sylva::DedupHashTableLifeTimeNotifiee<Routing::Multicast::OverlayVlanGroup> {
  VESK_RECORD(Multicast::Vpn::OverlayVlanGroupLifetimeNotifiee)
  struct Inputs {
    Ombra::Ptr<VlanGroupTable> vlanGroupTable;
    bool operator==(const Inputs&) const = default;
  };
  explicit OverlayVlanGroupLifetimeNotifiee(Inputs inputs) : in(std::move(inputs)) {
    vlanGroupTableIs(in.vlanGroupTable);
  }
  const Inputs in;

  void handleInsert(const VlanGroupDeduped& handle) override;
  void handleRemove(const VlanGroupDeduped& handle) override;

  VESK_REF(VlanGroupTable, vlanGroupTable)
};

class VlanGroupDedupTable final : public Sylva::DedupTable<Routing::Multicast::OverlayVlanGroup> {
  VESK_RECORD(Multicast::Vpn::VlanGroupDedupTable)
  struct Inputs {
    Ombra::Ptr<OverlayVlanGroupLifetimeNotifiee> notifiee;
    bool operator==(const Inputs&) const = default;
  };
  explicit VlanGroupDedupTable(Inputs inputs)
      : DedupTable(inputs.notifiee), in(std::move(inputs)) {}
  const Inputs in;
};

}  // namespace Multicast::Vpn
