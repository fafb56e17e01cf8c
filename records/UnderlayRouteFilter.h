// Filters that decide which underlay routes this switch joins.
// Written by: the agent adds filters; change machines raise `filterChange`. Read by: the reduction
// of vlan groups. A concrete filter that declares attributes of its own goes on counting where the
// base ended:
//   class SomeFilter : public UnderlayRouteFilterBase {
//    public:
//     using UnderlayRouteFilterBase::veskCount;
//     using UnderlayRouteFilterBase::veskField;
//     VESK_RECORD(...)
#pragma once

#include <string>

#include "records/Keys.h"
#include "records/ReferenceMap.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class UnderlayRouteFilterBase : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::UnderlayRouteFilterBase)
  /// Raised whenever an answer may have changed: users review all routes.
  VESK_VALUE(std::uint32_t, filterChange)

  void filterChangeInc(std::uint32_t n) { filterChangeIs(filterChange() + n); }
  /// True if the route takes part.
  [[nodiscard]] virtual bool filterUnderlayRoute(const UnderlayRouteContext& context) const = 0;
  /// Why a route that takes no part does not, in words that an operator knows.
  [[nodiscard]] virtual std::string whyNot(const UnderlayRouteContext& context) const = 0;
};

class UnderlayRouteFilterSet : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::UnderlayRouteFilterSet)
  /// Numbered in the order in which they were added.
  VESK_REFERENCES(std::uint32_t, UnderlayRouteFilterBase, filter)

  /// Adds a filter, once.
  void filterIs(const Ombra::Ptr<UnderlayRouteFilterBase>& filter);
  /// True if every filter lets the route take part; all are asked.
  [[nodiscard]] bool filterUnderlayRoute(const UnderlayRouteContext& context) const;
};

}  // namespace Routing::Multicast
