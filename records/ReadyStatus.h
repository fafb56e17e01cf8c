// How far the first review of each family and domain has come, on both sides.
// Written by: the review machines, and by the frame for what a family or domain does not run.
// Read by: the switchover machine, which completes its stages on it, and the machines that wait for
// a review.
#pragma once

#include "records/Enums.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

class EncapReadyStatus : public Vesk::Keyed<EncapDecapReadyClient> {
  VESK_RECORD(Multicast::Vpn::EncapReadyStatus)
  VESK_KEY(client)
  VESK_VALUE(bool, vlanGroupStatusReady)
  VESK_VALUE(bool, forwardingStatusReady)

  [[nodiscard]] bool ready() const { return vlanGroupStatusReady() && forwardingStatusReady(); }
};

class EncapReadyStatusColl : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::EncapReadyStatusColl)
  VESK_INSTANCES(EncapDecapReadyClient, EncapReadyStatus, status)
};

class DecapReadyStatus : public Vesk::Keyed<EncapDecapReadyClient> {
  VESK_RECORD(Multicast::Vpn::DecapReadyStatus)
  VESK_KEY(client)
  /// The review may begin.
  VESK_VALUE(bool, startReview)
  VESK_VALUE(bool, vpnInjectReady)
  VESK_VALUE(bool, l2InjectReady)

  [[nodiscard]] bool reviewComplete() const { return vpnInjectReady() && l2InjectReady(); }
};

class DecapReadyStatusColl : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::DecapReadyStatusColl)
  VESK_INSTANCES(EncapDecapReadyClient, DecapReadyStatus, status)

  /// True if the review of every entry has ended; true without entries.
  [[nodiscard]] bool reviewComplete() const {
    for (const auto& entry : statusIterator())
      if (!entry.value->reviewComplete()) return false;
    return true;
  }
};

}  // namespace Multicast::Vpn
