// Seeded valid events on everything that the encapsulating side reads.
// Each call writes one thing that another agent could write at that moment, and tells it in words.
// What happens often differs from one history to the next, so that rare things meet.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>

#include "records/Enums.h"
#include "runtime/values/Addresses.h"
#include "runtime/values/VrfName.h"

namespace Routing::Multicast {
class IpTunnelConfigEntry;
class IpTunnelGroupIntfConfig;
}  // namespace Routing::Multicast

namespace History {

/// MPLS must not contradict what VXLAN claims, where somebody minds: it claims nothing for the VRF
/// any more.
void takeMplsClaims(const L3::VrfName& vrf);

class EventGenerator {
 public:
  explicit EventGenerator(std::uint64_t seed) : random_(seed) {}
  /// A fabric that mostly works, for the events to disturb.
  void baseline();
  /// Writes one event.
  std::string next();
  /// Told after each event, also after those that are part of another.
  void listenerIs(std::function<void()> listener) { listener_ = std::move(listener); }
  /// A number below n.
  std::uint64_t draw(std::uint64_t n) { return random_() % n; }
  template <class T>
  T pick(std::initializer_list<T> values) {
    return *(values.begin() + draw(values.size()));
  }
  [[nodiscard]] bool mostly() { return draw(8) != 0; }

 private:
  using Event = std::string (EventGenerator::*)();
  struct Kind {
    Event event;
    unsigned weight;
  };

  void newVti();
  void newVrfs();
  void newIntfConfig(Irb::Multicast::Domain domain);
  std::string vlanEvent();
  std::string vtiEvent();
  std::string vrfEvent();
  std::string gateEvent();
  std::string gateIs(std::uint64_t gate, bool on);
  std::string intfConfigEvent();
  std::string vlanConfigEvent(Routing::Multicast::IpTunnelGroupIntfConfig& config);
  std::string vrfConfigEvent(Routing::Multicast::IpTunnelGroupIntfConfig& config);
  template <class Row>
  std::string rowEvent(Row& row, bool ofVrf);
  std::string entryEvent(Routing::Multicast::IpTunnelConfigEntry& entry, bool ofVrf);
  Pavlin::IpGenAddr underlayGroup();
  Pavlin::IpGenAddr overlayGroup();

  std::mt19937_64 random_;
  std::function<void()> listener_;
  std::array<Kind, 5> kinds_{{{&EventGenerator::vlanEvent, 10},
                              {&EventGenerator::vtiEvent, 22},
                              {&EventGenerator::vrfEvent, 13},
                              {&EventGenerator::gateEvent, 8},
                              {&EventGenerator::intfConfigEvent, 47}}};
};

}  // namespace History
