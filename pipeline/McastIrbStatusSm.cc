#include "pipeline/McastIrbStatusSm.h"

#include "platform/VlanOfIntf.h"

namespace Irb::Multicast {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using ::Multicast::Vpn::isVlanIntf;
using Routing::Multicast::MulticastIntfsAppRootSm;
using Routing::Multicast::MulticastIntfsAppRootSmColl;
using Vxlan::VtiStatus;
using Vxlan::VtiStatusDir;

const Vesk::TraceHandle traceHandle("McastIrbStatusSm");

VlanId vlanOf(Pavlin::IntfId intf) {
  return Pavlin::VlanIntfId::vlanId(intf).vlanId();
}

}  // namespace

McastIrbStatusSm::McastIrbStatusSm(Inputs inputs)
    : Pipeline(veskName, inputs.smControl, traceHandle), in(std::move(inputs)) {
  mustBePresent(in.igmpProxyStatus, "igmpProxyStatus()");
  mustBePresent(in.vtiStatusDir, "vtiStatusDir()");
  mustBePresent(in.mcastIntfColl, "mcastIntfColl()");
  mustBePresent(in.mcastIrbStatus, "mcastIrbStatus()");
  const auto scans = inputSmScanStateIs();
  const Pavlin::IntfId vxlanIntfId = Pavlin::vxlan1IntfId();

  const auto [vtiStatusStream, vtiStatusOperStream] =
      fromEach("VtiStatusDirSm4", "VtiStatusSm5", in.vtiStatusDir, VtiStatusDir::vtiStatusAttr,
               Lynthe::inner(VtiStatus::vrfToSBDVlanAttr,
                             {3,
                              "from( vtiStatusDir.vtiStatus[].vrfToSBDVlan[] )",
                              {scans, InputSmScanState::vtiStatusStreamScanAttr}}),
               Lynthe::inner(VtiStatus::operStatusAttr,
                             {4,
                              "from( vtiStatusDir.vtiStatus[].operStatus )",
                              {scans, InputSmScanState::vtiStatusOperStreamScanAttr}}));
  const auto gmpProxyStream =
      from("GmpProxyStatusSm3", in.gmpProxyStatus, GmpProxyStatus::vrfToSbdVlanAttr,
           {2,
            "from( gmpProxyStatus.vrfToSbdVlan[] )",
            {scans, InputSmScanState::gmpProxyStreamScanAttr}});
  const auto igmpProxyStream =
      from("IgmpProxyStatusSm2", in.igmpProxyStatus, IgmpProxyStatus::igmpProxyVlanAttr,
           {1,
            "from( igmpProxyStatus.igmpProxyVlan[] )",
            {scans, InputSmScanState::igmpProxyStreamScanAttr}});
  const auto [mcastIntfStream] = fromEach(
      "McastIntfCollSm0", "VrfSmSm1", in.mcastIntfColl, MulticastIntfsAppRootSmColl::vrfSmAttr,
      Lynthe::inner(MulticastIntfsAppRootSm::multicastIntfAttr,
                    {0,
                     "from( mcastIntfColl.vrfSm[].multicastIntf[] )",
                     {scans, InputSmScanState::mcastIntfStreamScanAttr}}));
  mcastIntfStream.indexed([this](const auto& svi) {
    if (!isVlanIntf(svi.key.inner)) return;
    const VlanId vlan = vlanOf(svi.key.inner);
    svi.now ? vrfsOfVlan_.add(vlan, svi.key.outer) : vrfsOfVlan_.remove(vlan, svi.key.outer);
  });

  const auto vtiStream =
      merge(vtiStatusStream
                .filter("( vtiIntfId == vxlanIntfId )",
                        [=](const auto& row) { return row.key.outer == vxlanIntfId; })
                .emit([](const auto& row) { return row.key.inner; }),
            vtiStatusOperStream
                .filter("vtiStatusDir.vtiStatus[ vtiIntfId ]",
                        [=, this](const auto& row) {
                          return row.key == vxlanIntfId && in.vtiStatusDir->vtiStatusHas(row.key);
                        })
                .foreach ("( *vtiStatusDir.vtiStatus[ vtiIntfId ] ).vrfToSBDVlan",
                          [this](const auto& row) {
                            std::vector<VrfName> vrfs;
                            for (const auto& [vrf, vlan] :
                                 in.vtiStatusDir->vtiStatus(row.key)->vrfToSBDVlanIterator())
                              vrfs.push_back(vrf);
                            return vrfs;
                          }));
  const auto sbdOfVrfStream =
      merge(gmpProxyStream.emit([](const auto& row) { return row.key; }), vtiStream)
          .filter("vrfSm", [this](const VrfName& vrf) { return in.mcastIntfColl->vrfSmHas(vrf); })
          .foreach ("( *vrfSm ).multicastIntf",
                    [this](const VrfName& vrf) { return vlansOf(vrf); });

  merge(mcastIntfStream
            .filter("VlanIntfId::isVlanIntfId( intfId )",
                    [](const auto& svi) { return isVlanIntf(svi.key.inner); })
            .emit([](const auto& svi) { return vlanOf(svi.key.inner); }),
        igmpProxyStream.emit([](const auto& row) { return row.key; }), sbdOfVrfStream)
      .into(
          vlanToSbd_, [](VlanId vlan) { return vlan; },
          [this](VlanId vlan) { return vlanToSbd(vlan); });
  begin({scans, InputSmScanState::idleAttr}, {outputState(), OutputState::readyAttr});
}

std::vector<VlanId> McastIrbStatusSm::vlansOf(const VrfName& vrf) const {
  std::vector<VlanId> vlans;
  for (const auto& [intf, enabled] : in.mcastIntfColl->vrfSm(vrf)->multicastIntfIterator())
    if (isVlanIntf(intf)) vlans.push_back(vlanOf(intf));
  return vlans;
}

McastIrbStatusSm::SbdOfVrf McastIrbStatusSm::judgeVrf(const VrfName& vrf) const {
  SbdOfVrf sbd;
  const auto vti = in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId());
  const VlanIdOrNone claimed =
      vti && vrf != L3::defaultVrfName() ? vti->vrfToSBDVlan(vrf) : VlanIdOrNone();
  if (!claimed.isNone()) {
    sbd.vxlanSbd = claimed.vlanId();
    sbd.vxlanActive = vti->operStatus() == Vxlan::IntfOperStatus::up;
  }
  if (in.gmpProxyStatus && in.gmpProxyStatus->vrfToSbdVlanHas(vrf))
    sbd.mplsSbd = in.gmpProxyStatus->vrfToSbdVlan(vrf);
  return sbd;
}

std::optional<VlanToSbd> McastIrbStatusSm::vlanToSbd(VlanId vlan) {
  const auto vrf = vrfOf(vlan);
  if (!vrf) return {};
  const SbdOfVrf sbd = judgeVrf(*vrf);
  if (sbd.differ()) {
    if (!disputed_.has(*vrf)) disputed_.insert(*vrf, {});
    disputes_.ask();
  }
  if (!in.igmpProxyStatus->igmpProxyVlanHas(vlan) || !sbd.effective() || *sbd.effective() == vlan)
    return {};
  return VlanToSbd{vlan, *sbd.effective()};
}

void McastIrbStatusSm::checkDisputes() {
  while (!disputed_.empty()) {
    const VrfName vrf = disputed_.begin().key();
    disputed_.erase(vrf);
    Ombra::assertThat(!judgeVrf(vrf).differ(), "( ( *vxlanSbd ) == ( *mplsSbd ) ) ");
  }
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::McastIrbStatusSm)
VESK_REGISTER(Irb::Multicast::McastIrbStatusSm::InputSmScanState)
VESK_REGISTER(Irb::Multicast::McastIrbStatusSm::OutputState)
