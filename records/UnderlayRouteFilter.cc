#include "records/UnderlayRouteFilter.h"

#include <algorithm>

namespace Routing::Multicast {

void UnderlayRouteFilterSet::filterIs(const Ombra::Ptr<UnderlayRouteFilterBase>& filter) {
  if (std::find(filter_.begin(), filter_.end(), filter) == filter_.end()) filter_.push_back(filter);
}

bool UnderlayRouteFilterSet::filterUnderlayRoute(const UnderlayRouteContext& context) const {
  bool takesPart = true;
  for (const auto& filter : filter_)
    takesPart = filter->filterUnderlayRoute(context) && takesPart;
  return takesPart;
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::UnderlayRouteFilterBase)
VESK_REGISTER(Routing::Multicast::UnderlayRouteFilterSet)
