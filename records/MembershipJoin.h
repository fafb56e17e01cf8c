// Receivers of multicast groups, as one IGMP/MLD client of the switch publishes them: vlan, group,
// source, interfaces. Written by: the clients, one record per family and client. Read by: the
// membership machines. Caveat: the group 0.0.0.0 or :: is the vlan's wildcard.
#pragma once

#include <array>
#include <string>

#include <fmt/format.h>

#include "records/Enums.h"
#include "records/Keys.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Gmp {

/// Clients that only a gateway reads.
[[nodiscard]] constexpr bool isGatewayClient(App::Client client) {
  return client == App::Client::client11 || client == App::Client::client12;
}
/// The clients whose joins this agent reads, in order of mounting.
[[nodiscard]] constexpr auto joinClients() {
  using enum App::Client;
  return std::array{client0,  client2, client3,  client5,  client8, client9,
                    client10, client4, client13, client11, client12};
}
/// The client whose joins are those of the MLAG peer.
inline constexpr auto peerClient = App::Client::client3;

class SourceMembershipJoin : public Vesk::Keyed<Pavlin::IpGenAddr> {
  VESK_RECORD(Irb::Multicast::Gmp::SourceMembershipJoin)
  VESK_KEY(sourceAddr)
  /// The interfaces with receivers stand in two sets, which mean the same.
  VESK_SHARED_SET(Pavlin::IntfId, firstIntf, 16384)
  VESK_SHARED_SET(Pavlin::IntfId, secondIntf, 16384)
};

class GroupMembershipJoin : public Vesk::Keyed<Pavlin::IpGenAddr> {
  VESK_RECORD(Irb::Multicast::Gmp::GroupMembershipJoin)
  VESK_KEY(groupAddr)
  VESK_INSTANCES(Pavlin::IpGenAddr, SourceMembershipJoin, source)
};

class VlanMembershipJoin : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Irb::Multicast::Gmp::VlanMembershipJoin)
  VESK_KEY(vlanId)
  VESK_INSTANCES(Pavlin::IpGenAddr, GroupMembershipJoin, group)
};

class MembershipJoinStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::Gmp::MembershipJoinStatus)
  /// The client's name.
  VESK_VALUE(std::string, name)
  VESK_INSTANCES(Bridging::VlanId, VlanMembershipJoin, vlan)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af, App::Client client) {
    return fmt::format("multicast/{}/irb/membership/join/{}", Pavlin::stringValue(af),
                       App::stringValue(client));
  }
};

}  // namespace Irb::Multicast::Gmp
