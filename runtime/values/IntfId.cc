#include "runtime/values/IntfId.h"

#include <algorithm>
#include <vector>

#include "runtime/Assert.h"
#include "runtime/values/Interned.h"

namespace Pavlin {
namespace {

constexpr std::string_view digits = "0123456789";

struct Entry {
  explicit Entry(std::string_view name)
      : text(name),
        hash(Vesk::hashBytes(name)),
        nameClass(std::string_view(text).substr(0, text.find_first_of(digits))) {
    std::string_view rest = afterClass();
    while (true) {
      rest.remove_prefix(std::min(rest.find_first_of(digits), rest.size()));
      if (rest.empty()) break;
      std::uint64_t number = 0;
      // Up to 31 digits; a number that does not fit counts as the greatest.
      const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
      numbers.push_back(error == std::errc{} ? number : ~std::uint64_t{0});
      rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    }
    isPlain = numbers.size() == 1 && numbers[0] <= 0xffffffff &&
              afterClass() == fmt::format("{}", numbers[0]);
  }

  [[nodiscard]] std::string_view afterClass() const {
    return std::string_view(text).substr(nameClass.size());
  }

  const std::string text;
  const std::uint64_t hash;
  const std::string_view nameClass;    // lies in text
  std::vector<std::uint64_t> numbers;  // slot, port and so on
  bool isPlain;                        // the class and one number, nothing else
};

Vesk::InternTable<Entry, IntfId>& table() {
  return Vesk::InternTable<Entry, IntfId>::instance();
}

}  // namespace

IntfId::IntfId(std::string_view name)
    : Interned(table().handleOf(
          Vesk::atMost(name, maxLength, "Pavlin::IntfId::name > 31 bytes not allowed"))) {}

std::size_t IntfId::namesInUse() {
  return table().size();
}

void IntfId::release(std::uint32_t handle) {
  table().release(handle);
}

const std::string& IntfId::stringValue() const {
  return table().at(handle()).text;
}

std::string IntfId::shortName() const {
  const Entry& entry = table().at(handle());
  return fmt::format("{}{}", entry.nameClass.substr(0, 2), entry.afterClass());
}

std::string_view IntfId::nameClass() const {
  return table().at(handle()).nameClass;
}

bool IntfId::isOfClass(std::string_view nameClass, std::uint32_t maxNumber) const {
  const Entry& entry = table().at(handle());
  return entry.isPlain && entry.nameClass == nameClass && entry.numbers[0] <= maxNumber;
}

std::uint32_t IntfId::number() const {
  const Entry& entry = table().at(handle());
  return entry.isPlain ? static_cast<std::uint32_t>(entry.numbers[0]) : 0;
}

void IntfId::toBytes(char* out) const {
  const std::string& name = stringValue();
  std::memset(out, 0, byteSize);
  *out = static_cast<char>(name.size());
  name.copy(out + 1, maxLength);
}

IntfId IntfId::fromBytes(const char* in) {
  const std::size_t size = static_cast<unsigned char>(*in);
  // A length that the row cannot hold fails the check of the constructor before a byte is read.
  return IntfId(std::string_view(in + 1, size));
}

std::uint64_t IntfId::hash() const {
  return table().at(handle()).hash;
}

std::strong_ordering IntfId::operator<=>(const IntfId& other) const {
  if (handle() == other.handle()) return std::strong_ordering::equal;
  const Entry& a = table().at(handle());
  const Entry& b = table().at(other.handle());
  if (const auto order = a.nameClass <=> b.nameClass; order != 0) return order;
  if (const auto order = a.numbers <=> b.numbers; order != 0) return order;
  return a.text <=> b.text;
}

bool VlanIntfId::isVlanIntfId(IntfId intf) {
  return intf.isOfClass("Vlan", 0xffff);
}

Bridging::ExtendedVlanId VlanIntfId::vlanId(IntfId intf) {
  Ombra::assertThat(isVlanIntfId(intf), "isVlanIntfId(intf)");
  return Bridging::ExtendedVlanId(intf.number());
}

IntfId VlanIntfId::vlanIdToIntfId(std::uint16_t vlan) {
  return IntfId(fmt::format("Vlan{}", vlan));
}

bool VxlanTunnelIntfId::isVxlanTunnelIntfId(IntfId intf) {
  return intf.isOfClass("Vxlan", 0xffff);
}

std::uint16_t VxlanTunnelIntfId::vxlanTunnelId(IntfId intf) {
  Ombra::assertThat(isVxlanTunnelIntfId(intf), "isVxlanTunnelIntfId(intf)");
  return static_cast<std::uint16_t>(intf.number());
}

IntfId VxlanTunnelIntfId::vxlanTunnelToIntfId(std::uint16_t tunnel) {
  return IntfId(fmt::format("Vxlan{}", tunnel));
}

bool MplsTrunkIntfId::isMplsTrunkIntfId(IntfId intf) {
  return intf.isOfClass("MplsTrunk");
}

IntfId vxlan1IntfId() {
  static const IntfId intf("Vxlan1");
  return intf;
}

}  // namespace Pavlin

namespace Multicast::Tunnel {

bool McastTunnelIntfId::isMcastTunnelIntfId(Pavlin::IntfId intf) {
  return intf.isOfClass("McastTunnel");
}

}  // namespace Multicast::Tunnel
