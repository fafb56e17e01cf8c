// What no scenario of the tunnel service shows: flood lists that several interfaces share, as a
// client of it, and requests that are damaged.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tunnel/IrVxlanIpv4TunnelRequestSm.h"
#include "tunnel/McastTunnelConfigSm.h"

namespace {

using namespace Multicast::Tunnel;
using enum McastTunnelClientType;

// Short names of values by their text.
template <class T>
constexpr auto of = [](const std::string& text) { return Vesk::valueOf<T>(text); };
constexpr auto addr = of<Pavlin::IpAddr>;
constexpr auto intf = of<Pavlin::IntfId>;

McastTunnelEndpoint endpoint(const std::string& vtep, std::uint32_t qualifier = 0) {
  return {qualifier, of<Pavlin::IpGenAddr>(vtep)};
}

/// Flood lists, the requests that they become, and the tunnels that these get.
class TunnelTest : public testing::Test {
 protected:
  TunnelTest() { replicatedDir->requestTableIs(client1, requests); }
  void lists(const std::string& name, const std::vector<std::string>& vteps) {
    const auto config = configs->vxlanConfigIs(intf(name));
    for (const auto& vtep : vteps)
      config->floodVtepListIs(addr(vtep), true);
  }
  /// Who has a request, a status row and an encapsulation row, by the last byte.
  [[nodiscard]] std::string served() const {
    std::string all;
    for (char last = '1'; last <= '9'; ++last) {
      const std::string vtep = std::string("10.0.0.") + last;
      const bool asked = requests->tunnelRequestHas(endpoint(vtep));
      EXPECT_EQ(status->mcastTunnelSetHas(endpoint(vtep)), asked) << vtep;
      EXPECT_EQ(table->encapHas(table->tunnel(addr(vtep))), asked) << vtep;
      if (asked) all += last;
    }
    return all;
  }
  Ombra::Ptr<IrVxlanIpv4TunnelRequestSm> serve() {
    return irVxlanIpv4TunnelRequestSmFactory(replicatedDir, table, status);
  }

  Ombra::Ptr<Vxlan::VxlanConfigDir> configs = Ombra::make<Vxlan::VxlanConfigDir>();
  Ombra::Ptr<IrVxlanIpv4TunnelRequestTable> requests = Ombra::make<IrVxlanIpv4TunnelRequestTable>();
  Ombra::Ptr<IrVxlanIpv4TunnelRequestDir> replicatedDir =
      Ombra::make<IrVxlanIpv4TunnelRequestDir>();
  Ombra::Ptr<IrVxlanIpv4TunnelTable> table = Ombra::make<IrVxlanIpv4TunnelTable>();
  Ombra::Ptr<McastTunnelStatus> status = Ombra::make<McastTunnelStatus>();
};

TEST_F(TunnelTest, AnAddressIsRequestedUntilItsLastInterfaceLetsGo) {
  requests->tunnelRequestIs({endpoint("10.0.0.9")});  // of a predecessor; nobody lists it
  requests->tunnelRequestIs({endpoint("10.0.0.1")});
  lists("Vxlan1", {"10.0.0.1", "10.0.0.2", "10.0.0.3"});
  lists("Vxlan2", {"10.0.0.1", "10.0.0.4"});
  const auto server = serve();
  EXPECT_EQ(served(), "19");
  auto client = mcastTunnelConfigSmFactory(configs, requests);
  EXPECT_EQ(served(), "1234");

  configs->vxlanConfig(intf("Vxlan1"))->floodVtepListDel(addr("10.0.0.1"));
  EXPECT_EQ(served(), "1234");
  configs->vxlanConfig(intf("Vxlan2"))->floodVtepListDel(addr("10.0.0.1"));
  EXPECT_EQ(served(), "234");
  lists("Vxlan2", {"10.0.0.3", "10.0.0.5"});
  configs->vxlanConfigDel(intf("Vxlan1"));
  EXPECT_EQ(served(), "345");

  // Another object in its place: what both list stays.
  const auto other = Ombra::make<Vxlan::VxlanConfig>(intf("Vxlan2"));
  other->floodVtepListIs(addr("10.0.0.5"), true);
  configs->vxlanConfigAdopt(intf("Vxlan2"), other);
  EXPECT_EQ(served(), "5");

  // With the client gone its requests stay, for a successor to judge.
  client.reset();
  configs->vxlanConfigDel(intf("Vxlan2"));
  EXPECT_EQ(served(), "5");
  client = mcastTunnelConfigSmFactory(configs, requests);
  EXPECT_EQ(served(), "");
}

/// Its key may be damaged as well: here it is none that a client could have asked for.
TEST_F(TunnelTest, ADamagedRequestCountsAsNone) {
  for (const auto* vtep : {"2001:db8::1", "10.0.0.1", "10.0.0.2"})
    requests->tunnelRequestIs({endpoint(vtep)});
  const auto damage = [&](const std::string& vtep) {
    const auto* rows = IrVxlanIpv4TunnelRequestTable::veskType().field("tunnelRequest");
    rows->corruptIs(*requests, Vesk::bytesOf(endpoint(vtep)), true);
  };
  damage("2001:db8::1");
  damage("10.0.0.1");
  const auto server = serve();
  EXPECT_EQ(served(), "2");
  requests->tunnelRequestDel(endpoint("10.0.0.2"));
  EXPECT_EQ(served(), "");
}

}  // namespace
