#include "records/UnderlayRouteFilter.h"

namespace Routing::Multicast {

void UnderlayRouteFilterSet::filterIs(const Ombra::Ptr<UnderlayRouteFilterBase>& filter) {
  for (const auto& [number, present] : filterIterator())
    if (present == filter) return;
  std::uint32_t free = 0;
  while (filterHas(free))
    ++free;
  filterIs(free, filter);
}

bool UnderlayRouteFilterSet::filterUnderlayRoute(const UnderlayRouteContext& context) const {
  bool takesPart = true;
  for (const auto& [number, filter] : filterIterator())
    takesPart = filter->filterUnderlayRoute(context) && takesPart;
  return takesPart;
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::UnderlayRouteFilterBase)
VESK_REGISTER(Routing::Multicast::UnderlayRouteFilterSet)
