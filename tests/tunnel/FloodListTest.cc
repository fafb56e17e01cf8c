// Static flood lists as requests for tunnels: what a host gets that makes their machine.

#include <set>

#include <gtest/gtest.h>

#include "tunnel/McastTunnelConfigSm.h"

namespace Multicast::Tunnel {
namespace {

using Pavlin::IpAddr;

class FloodListTest : public testing::Test {
 protected:
  McastTunnelEndpoint endpoint(const char* vtep, std::uint32_t qualifier = 0) {
    return {qualifier, Pavlin::IpGenAddr::fromText(vtep)};
  }
  void list(const char* intf, const char* vtep) {
    configs->vxlanConfigIs(Pavlin::IntfId(intf))->floodVtepListIs(IpAddr::fromText(vtep), true);
  }
  std::set<std::string> requested() const {
    std::set<std::string> texts;
    for (const auto& [key, request] : requests->tunnelRequestIterator())
      texts.insert(Vesk::textOf(key));
    return texts;
  }

  const Ombra::Ptr<Vxlan::VxlanConfigDir> configs = Ombra::make<Vxlan::VxlanConfigDir>();
  const Ombra::Ptr<IrVxlanIpv4TunnelRequestTable> requests =
      Ombra::make<IrVxlanIpv4TunnelRequestTable>();
};

TEST_F(FloodListTest, AnAddressIsAskedForAsLongAsAnInterfaceListsIt) {
  using Set = std::set<std::string>;
  list("Vxlan1", "10.0.0.7");
  list("Vxlan1", "10.0.0.8");
  list("Vxlan2", "10.0.0.8");
  // Left by a predecessor: one that is listed, and three that nobody lists.
  for (const auto& left : {endpoint("10.0.0.7"), endpoint("10.0.0.1"), endpoint("fd00::1")})
    requests->tunnelRequestIs({left});
  const auto machine = mcastTunnelConfigSmFactory(configs, requests);
  EXPECT_EQ(requested(), (Set{"0,10.0.0.7", "0,10.0.0.8"}));

  list("Vxlan2", "10.0.0.9");
  configs->vxlanConfig(Pavlin::IntfId("Vxlan1"))->floodVtepListDel(IpAddr::fromText("10.0.0.8"));
  EXPECT_EQ(requested(), (Set{"0,10.0.0.7", "0,10.0.0.8", "0,10.0.0.9"}));
  list("Vxlan1", "10.0.0.9");
  configs->vxlanConfigDel(Pavlin::IntfId("Vxlan2"));
  EXPECT_EQ(requested(), (Set{"0,10.0.0.7", "0,10.0.0.9"}));
  configs->vxlanConfigDel(Pavlin::IntfId("Vxlan1"));
  EXPECT_EQ(requested(), Set{});
}

}  // namespace
}  // namespace Multicast::Tunnel
