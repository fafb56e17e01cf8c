// What the random histories of the agent do not reach: the cost of a changed filter where many
// vlans share an SBD vlan, and rows that are damaged when a machine comes.

#include <gtest/gtest.h>

#include "platform/IpTunnelVlanGroupReduceSm.h"
#include "platform/SbdToVlanSm.h"
#include "vxlan/VxlanSm.h"

namespace Routing::Multicast {
namespace {

using Bridging::VlanId;
using Irb::Multicast::McastIrbStatus;

/// Lets the routes of one vlan through and counts how often it is asked.
class OneVlanFilter final : public UnderlayRouteFilterBase {
 public:
  using UnderlayRouteFilterBase::veskCount;
  using UnderlayRouteFilterBase::veskField;
  VESK_LOCAL_RECORD(Routing::Multicast::OneVlanFilter)
  [[nodiscard]] bool filterUnderlayRoute(const UnderlayRouteContext& context) const override {
    ++asked;
    return context.vlanId == passing;
  }
  [[nodiscard]] std::string whyNot(const UnderlayRouteContext&) const override { return ""; }
  mutable unsigned asked = 0;
  VlanId passing;
};

TEST(ReductionTest, aChangedFilterIsAskedAFewTimesForEachVlanHoweverManyShareTheSbdVlan) {
  constexpr unsigned members = 200;
  const auto source = Ombra::make<IpTunnelVlanGroupStatus>();
  const auto reduced = Ombra::make<IpTunnelVlanGroupStatus>();
  const auto irb = Ombra::make<McastIrbStatus>();
  const auto filters = Ombra::make<UnderlayRouteFilterSet>();
  const auto filter = Ombra::make<OneVlanFilter>();
  filters->filterIs(filter);
  const OverlayAddr group(Pavlin::IpAddr::fromText("239.1.1.1"));
  for (unsigned vlan = 1; vlan <= members; ++vlan) {
    source->vlanToMulticastGroupIs({VlanId(vlan), group})->multicastGroupIs({});
    irb->vlanToSbdIs({VlanId(vlan), VlanId(1000)});
  }
  const auto sm = Ombra::make<IpTunnelVlanGroupReduceSm>(IpTunnelVlanGroupReduceSm::Inputs{
      .source = source, .mcastIrbStatus = irb, .filterSet = filters, .reduced = reduced});
  filter->passing = sm->offersTo({VlanId(1000), group}).back().vlan;  // found last
  filter->filterChangeInc(1);
  filter->asked = 0;
  filter->filterChangeInc(1);
  EXPECT_LE(filter->asked, 3 * members);
  EXPECT_EQ(reduced->vlanToMulticastGroup({VlanId(1000), group})->multicastGroupCount(), 1U);
}

TEST(ReductionTest, ADamagedRowHidesNoOther) {
  const auto irb = Ombra::make<McastIrbStatus>();
  for (unsigned vlan = 1; vlan <= 8; ++vlan)
    irb->vlanToSbdIs({VlanId(vlan), VlanId(1000)});
  for (const unsigned vlan : {1U, 5U})
    McastIrbStatus::veskType()
        .field("vlanToSbd")
        ->corruptIs(*irb, Vesk::bytesOf(VlanId(vlan)), true);
  const auto inverse = Ombra::make<Irb::Multicast::SbdToVlanStatus>();
  const auto sm = Ombra::make<Irb::Multicast::SbdToVlanSm>(
      Irb::Multicast::SbdToVlanSm::Inputs{.mcastIrbStatus = irb, .sbdToVlanStatus = inverse});
  EXPECT_EQ(inverse->sbdStatus(VlanId(1000))->vlanIdCount(), 6U);

  // Nothing wants these rows, so all of them go, the damaged ones too.
  const auto vxlanSm = Ombra::make<Irb::Multicast::VxlanSm>(Irb::Multicast::VxlanSm::Inputs{
      .vtiStatusDir = Ombra::make<Vxlan::VtiStatusDir>(),
      .igmpProxyStatus = Ombra::make<Irb::Multicast::IgmpProxyStatus>(),
      .mcastIntfRoot = Ombra::make<MulticastIntfsAppRootSmColl>(),
      .mcastIrbStatus = irb});
  EXPECT_EQ(irb->vlanToSbdCount(), 0U);
  EXPECT_EQ(inverse->sbdStatusCount(), 0U);
}

}  // namespace
}  // namespace Routing::Multicast
