#include "vxlan/StaticRemoteVniToSBDVlanSm.h"

#include "runtime/Trace.h"

namespace Vxlan {

using Bridging::VlanIdOrNone;
using L3::VrfName;

namespace {

const Vesk::TraceHandle traceHandle{"StaticRemoteVniToSBDVlanSm"};

}  // namespace

// --- the worker

StaticRemoteVniToSBDVlanSm::StaticRemoteVniToSBDVlanSm(Inputs inputs) : in(std::move(inputs)) {
  handleInitialized();
}

/// Takes over the rows of a predecessor that are still wanted, and removes the others.
void StaticRemoteVniToSBDVlanSm::handleInitialized() {
  for (const VniExtOrNone& vni : in.remoteVniToSBDVlan->remoteVniToVlanKeys()) {
    const VrfName vrf = in.ipTunnelGroupIntfConfig->remoteVniToVrf(vni);
    if (vrf.empty() || in.vtiStatus->vrfToSBDVlan(vrf).isNone()) {
      in.remoteVniToSBDVlan->remoteVniToVlanDel(vni);
    } else {
      vrfOfVniIs(vni, vrf);
      if (auto t = traceHandle.at(8)) t << "Added remote VNI " << vni << " into the collection";
    }
  }
  review();
}

void StaticRemoteVniToSBDVlanSm::review() {
  for (const auto& [vrf, vlan] : in.vtiStatus->vrfToSBDVlanIterator())
    handleVrfToSbdVlan(vrf);
  for (const auto& [vni, vrf] : in.ipTunnelGroupIntfConfig->remoteVniToVrfIterator())
    handleRemoteVniToVrf(vni);
}

void StaticRemoteVniToSBDVlanSm::handleRemoteVniToVrf(VniExtOrNone vni) {
  const VrfName vrf = in.ipTunnelGroupIntfConfig->remoteVniToVrf(vni);
  if (auto t = traceHandle.at(8)) t << (vrf.empty() ? "Delete " : "Add or Update ") << vni;
  if (!vrf.empty() && rVniCache(vni).vrfName != vrf) cacheDel(vni);
  vrfOfVniIs(vni, vrf);
  const VlanIdOrNone sbdVlan = vrf.empty() ? VlanIdOrNone() : in.vtiStatus->vrfToSBDVlan(vrf);
  if (sbdVlan.isNone()) return cacheDel(vni);
  cacheIs({vni, vrf, sbdVlan});
}

void StaticRemoteVniToSBDVlanSm::vrfOfVniIs(VniExtOrNone vni, VrfName vrfName) {
  const VrfName* const entered = vrfOf_.find(vni);
  if (entered != nullptr && *entered == vrfName) return;
  if (entered != nullptr) {
    const VrfName last = *entered;
    vrfOf_.erase(vni);
    const auto coll = vrfToRemoteVniColl(last);
    coll->vniDel(vni);
    if (auto t = traceHandle.at(8)) t << " Removed VNI " << vni << " from " << last;
    if (coll->vniCount() == 0) {
      vrfToRemoteVniCollDel(last);
      if (auto t = traceHandle.at(8)) t << "Removed collection for VRF " << last;
    }
  }
  if (vrfName.empty()) return;
  vrfOf_.insert(vni, vrfName);
  if (!vrfToRemoteVniCollHas(vrfName))
    if (auto t = traceHandle.at(8)) t << "Added a new remote VNI collection for VRF " << vrfName;
  vrfToRemoteVniCollIs(vrfName)->vniIs(vni);
}

void StaticRemoteVniToSBDVlanSm::handleVrfToSbdVlan(VrfName vrfName) {
  const auto coll = vrfToRemoteVniColl(vrfName);
  if (!coll) return;
  const VlanIdOrNone sbdVlan = in.vtiStatus->vrfToSBDVlan(vrfName);
  if (auto t = traceHandle.at(8)) t << (sbdVlan.isNone() ? "Delete " : "Add or Update ") << vrfName;
  for (const VniExtOrNone& vni : coll->vniIterator()) {
    if (rVniCacheHas(vni) && rVniCache(vni).sbdVlan != sbdVlan) {
      if (auto t = traceHandle.at(8)) t << "Removed old mapping entry for remote VNI " << vni;
      cacheDel(vni);
    }
    if (!sbdVlan.isNone()) cacheIs({vni, vrfName, sbdVlan});
  }
}

void StaticRemoteVniToSBDVlanSm::cacheIs(const RemoteVniCache& cache) {
  if (rVniCacheHas(cache.remoteVni) && rVniCache(cache.remoteVni) == cache) return;
  rVniCacheIs(cache);
  handleRemoteVniCache(cache.remoteVni);
}

void StaticRemoteVniToSBDVlanSm::cacheDel(VniExtOrNone vni) {
  if (!rVniCacheHas(vni)) return;
  rVniCacheDel(vni);
  handleRemoteVniCache(vni);
}

void StaticRemoteVniToSBDVlanSm::handleRemoteVniCache(VniExtOrNone vni) {
  const bool hadRow = in.remoteVniToSBDVlan->remoteVniToVlanHas(vni);
  const RemoteVniCache cache = rVniCache(vni);
  if (!cache.vrfName.empty() && !cache.sbdVlan.isNone()) {
    in.remoteVniToSBDVlan->remoteVniToVlanIs({vni, cache.sbdVlan.vlanId()});
    if (auto t = traceHandle.at(8))
      t << (hadRow ? "Updated" : "Added") << " remote VNI " << vni << "-->" << cache.sbdVlan
        << " SBD vlan mapping";
  } else if (hadRow) {
    in.remoteVniToSBDVlan->remoteVniToVlanDel(vni);
    if (auto t = traceHandle.at(8)) t << "Removed remote VNI " << vni;
  }
}

// --- which interface's configuration is in force

StaticRemoteVniToSBDVlanConfigSm::StaticRemoteVniToSBDVlanConfigSm(Inputs inputs)
    : in(std::move(inputs)) {
  intfConfigs_.beginWithHandler();
}

void StaticRemoteVniToSBDVlanConfigSm::handleIntf(Pavlin::IntfId intfId) {
  const auto config = in.vlanToGroupConfig->intfConfig(intfId);
  const auto vti = in.vtiStatusDir->vtiStatus(intfId);
  if (config && vti && (config->mcastOverlayV4() || config->mcastOverlayV6())) {
    if (auto t = traceHandle.at(8)) t << " creating staticRemoteVniToSBDVlanSm";
    staticRemoteVniToSBDVlanSmIs({.ipTunnelGroupIntfConfig = config,
                                  .vtiStatus = vti,
                                  .remoteVniToSBDVlan = in.remoteVniToSBDVlan});
  } else {
    if (auto t = traceHandle.at(8)) t << " deleting staticRemoteVniToSBDVlanSm";
    staticRemoteVniToSBDVlanSmDel();
  }
}

}  // namespace Vxlan

VESK_REGISTER(Vxlan::StaticRemoteVniToSBDVlanSm)
VESK_REGISTER(Vxlan::StaticRemoteVniToSBDVlanConfigSm)
VESK_REGISTER(Vxlan::StaticRemoteVniToSBDVlanConfigSm::NestedSm_IntfConfig)
