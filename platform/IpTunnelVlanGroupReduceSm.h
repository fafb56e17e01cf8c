// Reduces the underlay routes of overlay vlan groups to those that this switch joins, under the
// vlan that their traffic comes out in.
// Owns: a nested machine per source entry; for each vlan the target that its entries were entered
// under last. Reads: the source status, the SBD vlan of a vlan, the filters. Writes: the reduced
// status: under the SBD vlan of a bound vlan, else under the vlan itself, the union of the routes
// that every filter lets through. Runs: in reactors only; a change of a filter takes all routes,
// once the write that brought it is through. Caveat: an entry stands while a source entry has that
// target, also without routes. Routes are added before others are removed.
#pragma once

#include <optional>
#include <vector>

#include "records/IpTunnelVlanGroupStatus.h"
#include "records/McastIrbStatus.h"
#include "records/UnderlayRouteFilter.h"
#include "runtime/MachineTask.h"
#include "runtime/OneToMany.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class IpTunnelVlanGroupReduceSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IpTunnelVlanGroupReduceSm)
  struct Inputs {
    Irb::Multicast::Domain domain;
    Ombra::Ptr<IpTunnelVlanGroupStatus const> source;
    Ombra::Ptr<Irb::Multicast::McastIrbStatus const> mcastIrbStatus;
    Ombra::Ptr<Irb::Multicast::SbdToVlanStatus const> sbdToVlanStatus;  ///< kept, not read
    Sylva::TaskScheduler* taskScheduler;                                ///< kept, not used
    Ombra::Ptr<UnderlayRouteFilterSet const> filterSet;
    Ombra::Ptr<IpTunnelVlanGroupStatus> reduced;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelVlanGroupReduceSm(Inputs inputs);
  const Inputs in;

  /// The routes of one source entry.
  class SourceSm final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IpTunnelVlanGroupReduceSm::SourceSm)
    struct Inputs {
      IpTunnelVlanGroupReduceSm* parent;
      Ombra::Ptr<VlanToMulticastGroup const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit SourceSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;
    void handleDel() { in.parent->sourceGone(*in.row); }

   private:
    void handleMulticastGroup(UnderlayRoute route) { in.parent->routeChanged(*in.row, route); }
    Vesk::Watch multicastGroup_ =
        watch<&SourceSm::handleMulticastGroup>(in.row, VlanToMulticastGroup::multicastGroupAttr);
  };

  /// Hears when the answers of one filter may have changed.
  class FilterSm final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IpTunnelVlanGroupReduceSm::FilterSm)
    struct Inputs {
      IpTunnelVlanGroupReduceSm* parent;
      Ombra::Ptr<UnderlayRouteFilterBase const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit FilterSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleFilterChange() { in.parent->handleFilter(); }
    Vesk::Watch change_ =
        watch<&FilterSm::handleFilterChange>(in.row, UnderlayRouteFilterBase::filterChangeAttr);
  };

  VESK_INSTANCES(OverlayVlanGroup, SourceSm, sourceSm)
  VESK_INSTANCES(std::uint32_t, FilterSm, filterSm)

  /// What a source entry offers to a target, and what the filters say of it.
  struct Offer {
    Bridging::VlanId vlan;
    UnderlayRoute route;
    bool takesPart;
  };
  /// All offers to a vlan group of the reduced status.
  [[nodiscard]] std::vector<Offer> offersTo(const OverlayVlanGroup& target) const;

  void review() override { filterAll(); }

 private:
  void handleSource(OverlayVlanGroup key);
  void handleVlanToSbd(Bridging::VlanId vlan);
  void handleFilter() { filterChanged_.ask(); }
  void filterAll();

  void sourceGone(const VlanToMulticastGroup& source);
  void routeChanged(const VlanToMulticastGroup& source, const UnderlayRoute& route);

  void targetIs(Bridging::VlanId vlan, Bridging::VlanId target);
  [[nodiscard]] bool takesPart(const UnderlayRoute& route, Bridging::VlanId vlan) const;
  /// A source entry, besides that of one vlan, has this target and offers the route.
  using Besides = std::optional<Bridging::VlanId>;
  [[nodiscard]] bool isOffered(const OverlayVlanGroup& target, const UnderlayRoute& route,
                               Besides besides = {}) const;
  [[nodiscard]] bool hasSource(const OverlayVlanGroup& target, Besides besides = {}) const;
  void add(const VlanToMulticastGroup& source, Bridging::VlanId target);
  /// Takes back from the target what `source` alone has offered.
  void remove(const VlanToMulticastGroup& source, Bridging::VlanId target);
  /// Drops what no source entry wants: refused by now, or left by whoever wrote the status before.
  void sweep();

  /// Of the vlans that have source entries: where these were entered, and the other way round.
  Vesk::KeyedMap<Bridging::VlanId, Bridging::VlanId> targetOf_;
  Vesk::OneToMany<Bridging::VlanId, Bridging::VlanId> sourcesOf_;
  Vesk::OneToMany<Bridging::VlanId, OverlayAddr> groupsOf_;

  Vesk::MachineAfterwards filterChanged_{this,
                                         Vesk::taskBody<&IpTunnelVlanGroupReduceSm::filterAll>};
  Vesk::Follow sources_ = follow<&IpTunnelVlanGroupReduceSm::handleSource>(
      in.source, IpTunnelVlanGroupStatus::vlanToMulticastGroupAttr, sourceSmAttr);
  Vesk::Follow filters_ = follow<&IpTunnelVlanGroupReduceSm::handleFilter>(
      in.filterSet, UnderlayRouteFilterSet::filterAttr, filterSmAttr);
  Vesk::Watch vlanToSbd_ = watch<&IpTunnelVlanGroupReduceSm::handleVlanToSbd>(
      in.mcastIrbStatus, Irb::Multicast::McastIrbStatus::vlanToSbdAttr);
};

}  // namespace Routing::Multicast
