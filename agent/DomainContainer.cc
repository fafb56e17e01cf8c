#include "agent/DomainContainer.h"

namespace Multicast::Vpn {

DomainContainer::DomainContainer(Inputs inputs) : in(inputs) {
  domainIs(in.domain);
  vlanGroupTableCollIs();
  vlanGroupTableColl()->tableIs(VlanGroupTableColl::getDefaultTableName());
  const auto l3Table = vlanGroupTableColl()->tableIs(VlanGroupTableColl::getL3TableName());
  overlayVlanGroupLifetimeNotifieeIs({.vlanGroupTable = l3Table});
  vlanGroupDedupTableIs({.notifiee = overlayVlanGroupLifetimeNotifiee()});
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::DomainContainer)
