#include "agent/AfContainer.h"

#include "runtime/Assert.h"

namespace Multicast::Vpn {

Ombra::Ptr<DomainContainer> AfContainer::domainContainer(Irb::Multicast::Domain domain) {
  switch (domain) {
    case Irb::Multicast::Domain::localDomain:
      return localDomainContainer();
    case Irb::Multicast::Domain::remoteDomain:
      return remoteDomainContainer();
  }
  Ombra::fatal("assertion failed: Unsupported domain");
}

Ombra::Ptr<DomainContainer> AfContainer::domainContainerIs(Irb::Multicast::Domain domain) {
  switch (domain) {
    case Irb::Multicast::Domain::localDomain:
      return localDomainContainerIs({domain});
    case Irb::Multicast::Domain::remoteDomain:
      return remoteDomainContainerIs({domain});
  }
  Ombra::fatal("assertion failed: Unsupported domain");
}

std::vector<Ombra::Ptr<DomainContainer>> AfContainer::domainContainers() {
  std::vector<Ombra::Ptr<DomainContainer>> present;
  for (const auto domain : domains)
    if (auto container = domainContainer(domain)) present.push_back(std::move(container));
  return present;
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::AfContainer)
