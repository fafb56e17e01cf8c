// Value types of the records: texts, bytes, ranges, orders and the tables that belong to them.

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "records/Rows.h"
#include "tests/ErrorOf.h"

namespace {

using Bridging::ExtendedVlanId;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Irb::Multicast::Domain;
using Irb::Multicast::ReceiverDomain;
using L3::VrfName;
using Pavlin::AddressFamily;
using Pavlin::IntfId;
using Pavlin::Ip6Addr;
using Pavlin::IpAddr;
using Pavlin::IpGenAddr;
using Pavlin::IpGenPrefix;
using Vesk::ParseError;
using Vesk::textOf;
using Vesk::valueOf;

template <class T>
std::string bytesOf(const T& value) {
  std::string bytes;
  Vesk::toBytes(value, bytes);
  return bytes;
}

/// The text reads, prints as itself, and the value survives its bytes with hash and equality.
template <class T>
void expectSame(std::string_view text) {
  SCOPED_TRACE(std::string(Vesk::typeNameOf<T>()).append(" ").append(text));
  const T value = valueOf<T>(text);
  EXPECT_EQ(textOf(value), text);
  const std::string bytes = bytesOf(value);
  if (Vesk::byteSizeOf<T>() != 0) {
    EXPECT_EQ(bytes.size(), Vesk::byteSizeOf<T>());
  }
  std::string_view rest = bytes;
  const T again = Vesk::fromBytes<T>(rest);
  EXPECT_TRUE(rest.empty());
  EXPECT_EQ(again, value);
  EXPECT_EQ(Vesk::hashValue(again), Vesk::hashValue(value));
}

template <class T>
void expectOrder(const std::vector<std::string>& texts) {
  std::vector<T> values;
  for (const auto& text : texts)
    values.push_back(valueOf<T>(text));
  std::sort(values.rbegin(), values.rend());
  std::sort(values.begin(), values.end());
  std::vector<std::string> sorted;
  for (const auto& value : values)
    sorted.push_back(textOf(value));
  EXPECT_EQ(sorted, texts);
}

/// Names come from tables that anybody may have written, and are read on terminals and as JSON.
TEST(ValuesTest, namesAreShownInPrintableTextThatReadsBack) {
  const std::pair<const char*, const char*> cases[] = {{"caf\xc3\xa9", "caf\xc3\xa9"},
                                                       {"\x1b[2J", "\"\\x1b[2J\""},
                                                       {"\xff", "\"\\xff\""},
                                                       {"\xc2\x9b", "\"\\xc2\\x9b\""},
                                                       {"\xed\xa0\x80", "\"\\xed\\xa0\\x80\""},
                                                       {"\xe2\x82", "\"\\xe2\\x82\""},
                                                       {"a\\x41 ", "\"a\\\\x41 \""}};
  for (const auto& [name, text] : cases) {
    EXPECT_EQ(Vesk::textOf(VrfName(name)), text);
    EXPECT_EQ(Vesk::valueOf<VrfName>(text), VrfName(name)) << text;
  }
  EXPECT_THROW(static_cast<void>(Vesk::valueOf<VrfName>("\"\\x4\"")), Vesk::ParseError);
}

TEST(Values, ScalarsKeepTextAndBytes) {
  expectSame<VlanId>("4094");
  expectSame<ExtendedVlanId>("16383");
  expectSame<Vxlan::VniExtOrNone>("4294967295");
  expectSame<Vxlan::VniSourcePair>("10010,3");
  for (const auto* text : {"\"\"", "default", "red", "\"a,b\"", "\"a b\"", "\"[x=1]\""})
    expectSame<VrfName>(text);
  for (const auto* text : {"Vlan10", "Ethernet1/2/3", "Ethernet1.100", "Management"})
    expectSame<IntfId>(text);
  expectSame<IpAddr>("255.1.2.3");
  expectSame<Pavlin::EthAddr>("00:1a:22:33:44:ff");
  for (const auto* text : {"none", "0.0.0.0", "::", "239.1.1.1", "ff0e::1"})
    expectSame<IpGenAddr>(text);
  expectSame<Routing::Multicast::UnderlayAddr>("ff0e::1");
  for (const auto* text :
       {"none", "0.0.0.0/0", "::/0", "239.1.1.0/28", "10.0.0.1/32", "ff0e::1/128"})
    expectSame<IpGenPrefix>(text);
  expectSame<Pavlin::Ip6Prefix>("ff0e::/112");
}

TEST(Values, KeysFlattenTheirFields) {
  expectSame<Routing::Multicast::Fib::IpGenRouteKey>("10.1.1.1/32,239.1.1.1/32");
  expectSame<Stage::AgentStatusKey>("Corvane,CorvaneEncapReconcile,default");
  expectSame<Routing::Multicast::UnderlayRouteContext>("10.0.0.1,232.1.1.1,PimSsm,20,1");
  using Bookmark = Multicast::Vpn::IpTunnelVlanMcastGroupSmInputBookmark;
  EXPECT_FALSE(Bookmark{});
  EXPECT_TRUE(valueOf<Bookmark>("T,1,none"));
  expectOrder<Routing::Multicast::OverlayVlanGroup>(
      {"2,ff0e::1", "10,none", "10,0.0.0.0", "10,239.1.1.1", "10,::"});
}

TEST(Values, NumbersOutOfRangeThrow) {
  const std::string vlan = "Bridging::VlanId::value < 1 or > 4094 not allowed";
  const std::string vlanOrNone = "Bridging::VlanIdOrNone::value > 4094 not allowed";
  for (const unsigned value : {0U, 4095U, 65537U})
    EXPECT_EQ(errorOf<Ombra::RangeException>([&] { return VlanId(value); }), vlan);
  for (const unsigned value : {4095U, 65536U})
    EXPECT_EQ(errorOf<Ombra::RangeException>([&] { return VlanIdOrNone(value); }), vlanOrNone);
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return valueOf<VlanId>("4095"); }), vlan);
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return VlanId::fromBytes("\0"); }), vlan);
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return VlanIdOrNone::fromBytes("\xff\xff"); }),
            vlanOrNone);
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return IpGenPrefix(IpAddr(), 33); }),
            "Pavlin::IpGenPrefix::length > 32 not allowed");

  EXPECT_EQ(ExtendedVlanId(4094).vlanId(), VlanId(4094));
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return ExtendedVlanId(4096).vlanId(); }), vlan);
  EXPECT_DEATH((void)ExtendedVlanId(0).vlanId(), "value_ >= VlanId::min\\(\\)");
}

TEST(Values, NamesTooLongThrow) {
  const std::string vrf = "Vesk::String::bytes > maxLength() not allowed";
  const std::string intf = "Pavlin::IntfId::name > 31 bytes not allowed";
  expectSame<VrfName>(std::string(100, 'v'));
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return VrfName(std::string(101, 'v')); }), vrf);
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return VrfName::fromBytes("\xff"); }), vrf);
  expectSame<IntfId>(std::string(31, '7'));
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return IntfId(std::string(32, 'i')); }), intf);
  EXPECT_EQ(errorOf<Ombra::RangeException>([] { return IntfId::fromBytes("\x20"); }), intf);
}

TEST(Values, TextsThatDoNotReadThrow) {
  for (const auto* text : {"", "-1", "1x", " 1", "99999999999"})
    EXPECT_THROW(valueOf<VlanId>(text), ParseError) << text;
  for (const auto* text : {"", "any", "10.0.0", "10.0.0.256", "10.0.0.1/32", "1:2",
                           ":::", "ff0e::g", "fe80::1%eth0", "10.0.0.1 "})
    EXPECT_THROW(valueOf<IpGenAddr>(text), ParseError) << text;
  for (const auto* text :
       {"10.0.0.1", "10.0.0.0/", "10.0.0.0/33", "::/129", "10.0.0.0/-1", "none/0"})
    EXPECT_THROW(valueOf<IpGenPrefix>(text), ParseError) << text;
  for (const auto* text : {"", "00:11:22:33:44", "00:11:22:33:44:5", "00:11:22:33:44:5g",
                           "00-11-22-33-44-55", "00:11:22:33:44:55:"})
    EXPECT_THROW(valueOf<Pavlin::EthAddr>(text), ParseError) << text;
  EXPECT_THROW(valueOf<Pavlin::Ip6Prefix>("10.0.0.0/8"), ParseError);
  EXPECT_THROW(valueOf<Ip6Addr>("none"), ParseError);
  EXPECT_THROW(valueOf<Routing::Multicast::OverlayVlanGroup>("10"), ParseError);
}

TEST(Addresses, Ipv6TextIsCanonical) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"2001:0DB8::0001", "2001:db8::1"},
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},  // one zero group stays
      {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},           // the longest run
      {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},     // the first of equal runs
      {"::ffff:10.0.0.1", "::ffff:10.0.0.1"},            // IPv4-mapped
      {"::10.0.0.1", "::a00:1"},
  };
  for (const auto& [in, out] : cases)
    EXPECT_EQ(textOf(valueOf<Ip6Addr>(in)), out);
}

TEST(Addresses, ThreeStatesAreToldApart) {
  const IpGenAddr none;
  const IpGenAddr any4(AddressFamily::ipv4);
  const IpGenAddr any6(AddressFamily::ipv6);
  const IpGenAddr real(IpAddr(0x0a000001));
  EXPECT_TRUE(!none.hasFamily() && none.isUnspecified() && !none.isAny());
  EXPECT_TRUE(any4.hasFamily() && any4.isUnspecified() && any4.isAny());
  EXPECT_TRUE(real.hasFamily() && !real.isUnspecified() && !real.isAny());
  EXPECT_EQ(any4, IpGenAddr(IpAddr()));
  EXPECT_EQ(any6, IpGenAddr(Ip6Addr()));
  EXPECT_NE(any4, any6);
  EXPECT_NE(Vesk::hashValue(any4), Vesk::hashValue(any6));
  EXPECT_NE(real.hash(1), real.hash(2));
  EXPECT_TRUE(real.v6Addr().isAny());
  EXPECT_EQ(IpGenAddr(static_cast<AddressFamily>(7)), none);
  EXPECT_EQ(bytesOf(real), std::string("\x01\x0a\0\0\x01", 5) + std::string(12, '\0'));
  EXPECT_EQ(IpGenAddr::fromBytes((std::string(1, '\x09') + std::string(16, 'x')).data()), none);

  for (const auto* text : {"224.0.0.0", "239.255.255.255", "ff00::"})
    EXPECT_TRUE(valueOf<IpGenAddr>(text).isMulticast()) << text;
  for (const auto* text : {"none", "223.255.255.255", "240.0.0.0", "feff::"})
    EXPECT_FALSE(valueOf<IpGenAddr>(text).isMulticast()) << text;
  expectOrder<IpGenAddr>(
      {"none", "0.0.0.0", "9.0.0.0", "10.0.0.0", "200.0.0.1", "::", "2::", "ff02::"});
}

TEST(Addresses, PrefixesCutHostBitsAndContain) {
  EXPECT_EQ(textOf(valueOf<IpGenPrefix>("239.1.1.255/28")), "239.1.1.240/28");
  EXPECT_EQ(textOf(valueOf<IpGenPrefix>("255.255.255.255/0")), "0.0.0.0/0");
  EXPECT_EQ(textOf(valueOf<IpGenPrefix>("ffff:ffff::/19")), "ffff:e000::/19");
  EXPECT_EQ(textOf(IpGenPrefix(valueOf<IpGenAddr>("ff0e::1"))), "ff0e::1/128");
  EXPECT_EQ(IpGenPrefix(IpGenAddr()), IpGenPrefix());

  const auto range = valueOf<IpGenPrefix>("239.1.1.0/28");
  EXPECT_TRUE(range.contains(valueOf<IpGenAddr>("239.1.1.15")));
  for (const auto* text : {"239.1.1.16", "239.1.0.255", "none", "ef01:100::"})
    EXPECT_FALSE(range.contains(valueOf<IpGenAddr>(text))) << text;
  EXPECT_FALSE(IpGenPrefix().contains(IpGenAddr()));
  EXPECT_TRUE(valueOf<IpGenPrefix>("::/0").contains(valueOf<IpGenAddr>("ff0e::1")));
  EXPECT_FALSE(valueOf<IpGenPrefix>("::/0").contains(IpAddr()));

  EXPECT_TRUE(range.isMulticast() && !range.isHost());
  EXPECT_FALSE(valueOf<IpGenPrefix>("224.0.0.0/3").isMulticast());
  EXPECT_FALSE(valueOf<IpGenPrefix>("ff00::/7").isMulticast());
  EXPECT_EQ(range.v4Prefix().stringValue(), "239.1.1.0/28");
  EXPECT_EQ(range.v6Prefix(), Pavlin::Ip6Prefix());
  EXPECT_TRUE(valueOf<Pavlin::Ip6Prefix>("ff0e::/112").contains(valueOf<Ip6Addr>("ff0e::ffff")));
  EXPECT_FALSE(valueOf<Pavlin::Ip6Prefix>("ff0e::/112").contains(valueOf<Ip6Addr>("ff0e::1:0")));
  expectOrder<IpGenPrefix>({"none", "10.0.0.0/8", "10.0.0.0/9", "11.0.0.0/8", "::/0"});
}

TEST(Names, HandlesStandForTheirTexts) {
  EXPECT_EQ(VrfName("red"), VrfName(std::string("red")));
  EXPECT_NE(VrfName("red"), VrfName("Red"));
  EXPECT_TRUE(VrfName().empty() && VrfName("") == VrfName() && VrfName() != L3::defaultVrfName());
  expectOrder<VrfName>({"\"\"", "a", "aa", "b", "default"});
  // Other processes hash and store the same names under other handles.
  EXPECT_EQ(VrfName("red").hash(), Vesk::hashBytes("red"));
  EXPECT_EQ(IntfId("Vlan7").hash(), Vesk::hashBytes("Vlan7"));
  EXPECT_EQ(bytesOf(VrfName("red")), "\3red" + std::string(97, '\0'));
  EXPECT_EQ(bytesOf(IntfId("Vlan7")), "\5Vlan7" + std::string(26, '\0'));
}

TEST(Names, GoWithTheirLastUse) {
  const std::size_t intfs = IntfId::namesInUse(), vrfs = VrfName::namesInUse();
  IntfId kept("kept");
  for (int i = 0; i < 1000; ++i) {
    const IntfId intf(fmt::format("Port{}", i)), copy = intf;
    const VrfName vrf(fmt::format("tenant{}", i));
    if (i % 100 == 0) kept = copy;  // the one before it goes
    EXPECT_LE(IntfId::namesInUse(), intfs + 2);
  }
  IntfId& itself = kept;
  kept = itself;
  const IntfId moved = std::move(itself);
  EXPECT_EQ(moved.stringValue(), "Port900");
  EXPECT_EQ(IntfId::namesInUse(), intfs + 1);
  EXPECT_EQ(VrfName::namesInUse(), vrfs);
  EXPECT_THROW(IntfId(std::string(32, 'x')), Ombra::RangeException);
  EXPECT_EQ(IntfId::namesInUse(), intfs + 1);
}

TEST(Names, InterfacesSortByClassThenNumbers) {
  expectOrder<IntfId>({"\"\"", "Ethernet", "Ethernet02", "Ethernet2", "Ethernet2/1", "Ethernet2/10",
                       "Ethernet10", "Loopback0", "Vlan9", "Vlan10", "Vlan4094",
                       "Vlan99999999999999999999", "Vxlan1"});
  EXPECT_NE(IntfId("Vlan1") <=> IntfId("Vlan01"), std::strong_ordering::equal);
}

TEST(Names, InterfaceHelpersReadTheClass) {
  using Pavlin::VlanIntfId;
  using Pavlin::VxlanTunnelIntfId;
  for (const auto* name : {"Vlan0", "Vlan10", "Vlan65535"})
    EXPECT_TRUE(VlanIntfId::isVlanIntfId(IntfId(name))) << name;
  for (const auto* name :
       {"", "Vlan", "Vlan65536", "Vlan010", "Vlan1/1", "Vlan1x", "vlan1", "Vxlan1"})
    EXPECT_FALSE(VlanIntfId::isVlanIntfId(IntfId(name))) << name;
  EXPECT_EQ(VlanIntfId::vlanIdToIntfId(VlanId(10)), IntfId("Vlan10"));
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan4100")), ExtendedVlanId(4100));
  EXPECT_DEATH((void)VlanIntfId::vlanId(IntfId("Ethernet1")), "isVlanIntfId");
  EXPECT_EQ(VxlanTunnelIntfId::vxlanTunnelId(VxlanTunnelIntfId::vxlanTunnelToIntfId(65535)), 65535);
}

TEST(Tables, AClientThatIsNotKnownHasNoReceivers) {
  using namespace Irb::Multicast;
  EXPECT_EQ(App::ClientInstance("client13"), static_cast<App::Client>(13));
  for (const auto client : {static_cast<App::Client>(14), App::ClientInstance("client14")})
    EXPECT_EQ(receiverDomain(client), ReceiverDomain::none);
}

TEST(Tables, MasksDecideTheJoinOfADomain) {
  const char* const joined[] = {"", "both", "remote", "both", "local", "both", "both"};
  for (unsigned bits = 0; bits < std::size(joined); ++bits) {
    const auto mask = static_cast<ReceiverDomain>(bits);
    const bool local = joinDomain(mask, Domain::localDomain);
    const bool remote = joinDomain(mask, Domain::remoteDomain);
    EXPECT_STREQ(local ? remote ? "both" : "local" : remote ? "remote" : "", joined[bits]) << bits;
  }
}

TEST(Tables, TunnelIdsCarryTypeAndAddress) {
  using namespace Multicast::Tunnel;
  const IpAddr vtep(0xfffefdfc);
  const McastTunnelId id = IrVxlanIpv4TunnelId::makeTunnel(vtep);
  EXPECT_EQ(id.value(), 0x01000000fffefdfcU);
  EXPECT_EQ(id.tunnelType(), irVxlanIpv4());
  EXPECT_EQ(IrVxlanIpv4TunnelTableEntry{id}.vtepIp(), vtep);
  const auto pim = PimVxlanTunnelId::makeTunnel(PimVxlanTunnel::PimTunnelType::pimAsm);
  EXPECT_EQ(pim.value(), 0x0200000000000001U);
  EXPECT_EQ(pim.tunnelType(), pimVxlan());
}

}  // namespace
