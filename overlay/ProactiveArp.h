// Which neighbours are asked for, by whom, and whom an answer concerns.
// Owns: the source that each VRF looks for under each record, and where in the bridging table it
// was last looked for. The records themselves (`arpEntryVrfColl`) and the state of their review are
// attributes of the ingress route machine, for people to see. Writes: these, and the requests of
// the proactive ARP table. Runs: from the route machines, one route at a time, and from the walk of
// their owner. Caveat: the request table outlives the process and is shared by the machines of both
// domains.
#pragma once

#include <optional>
#include <vector>

#include "records/BriskelInputs.h"
#include "records/EncapTables.h"
#include "records/ProactiveArp.h"
#include "runtime/OneToMany.h"
#include "runtime/Record.h"
#include "runtime/Slice.h"

namespace Multicast::Vpn {

class IngressL3RouteSm;

/// What the machines that write one request table know of each other.
class ProactiveArpUse : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::ProactiveArpUse)
  /// Machines that have a record for the entry.
  VESK_MAP(Arp::ProactiveArp::Entry, std::uint32_t, users)
  /// Machines that have not seen all their routes yet: what they want is not known.
  VESK_VALUE(std::uint32_t, starting)
};

class ProactiveArp {
 public:
  using Entry = Arp::ProactiveArp::Entry;
  using FdbKey = Briskel::Bridging::FdbKey;
  /// A source that the routes of one VRF have.
  struct Source {
    L3::VrfName vrf;
    Entry entry;
    auto operator<=>(const Source&) const = default;
    friend std::uint64_t hashValue(const Source& source) {
      return Vesk::foldHash(Vesk::hashValue(source.vrf), Vesk::hashValue(source.entry));
    }
  };

  /// Until `start`, nobody else's request is judged.
  explicit ProactiveArp(IngressL3RouteSm* owner);
  ProactiveArp(const ProactiveArp&) = delete;
  ProactiveArp& operator=(const ProactiveArp&) = delete;

  // the routes of a VRF
  void need(const Source& source, const Pavlin::IpGenAddr& group);
  void needNoMore(const Source& source, const Pavlin::IpGenAddr& group);
  /// The groups for which the VRF needs the source; null if there are none.
  [[nodiscard]] Ombra::Ptr<VrfGroupColl> groupsOf(const Source& source) const;
  /// The row of the bridging table that the source hangs on, none if the look-up did not come so
  /// far.
  void fdbKeyIs(const Source& source, const std::optional<FdbKey>& fdbKey);
  /// The VRF is not looked at any more. Its records wait for the review.
  void vrfGoes(const L3::VrfName& vrf);

  // whom an event concerns
  [[nodiscard]] std::vector<Source> sourcesAt(const FdbKey& key) const {
    return sourcesOfFdbKey_.of(key);
  }
  /// The records of an address. Of several neighbours of one address the first counts, whatever its
  /// interface, so an answer concerns all of them.
  [[nodiscard]] std::vector<Entry> entriesOf(const Pavlin::IpGenAddr& addr) const;

  // requests
  [[nodiscard]] const Ombra::Ptr<ProactiveArpUse>& use() const { return use_; }
  /// All routes have been seen once.
  void start();
  [[nodiscard]] bool hasStarted() const { return started_; }
  /// The record has come or gone.
  void handleArpEntry(const Entry& entry);
  /// Removes what nobody wants; false if it yielded.
  [[nodiscard]] bool review(Sylva::Slice& slice);
  /// Takes back everything.
  void withdraw();

 private:
  void dropVrfsWithoutSm(const Entry& entry);

  IngressL3RouteSm& owner_;
  Ombra::Ptr<ProactiveArpUse> use_;
  bool started_ = false;
  Vesk::OneToMany<Pavlin::IpGenAddr, Pavlin::IntfId> intfsOfAddr_;
  Vesk::KeyedMap<Source, FdbKey> fdbKeyOfSource_;
  Vesk::OneToMany<FdbKey, Source> sourcesOfFdbKey_;
  Vesk::OneToMany<L3::VrfName, Entry> entriesOfVrf_;  ///< of fdbKeyOfSource_
};

}  // namespace Multicast::Vpn
