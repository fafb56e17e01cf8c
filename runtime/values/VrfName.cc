#include "runtime/values/VrfName.h"

#include "runtime/Assert.h"
#include "runtime/values/Interned.h"

namespace L3 {
namespace {

struct Entry {
  explicit Entry(std::string_view name) : text(name), hash(Vesk::hashBytes(name)) {}

  const std::string text;
  const std::uint64_t hash;
};

Vesk::InternTable<Entry, VrfName>& table() {
  return Vesk::InternTable<Entry, VrfName>::instance();
}

}  // namespace

VrfName::VrfName(std::string_view name)
    : Interned(table().handleOf(
          Vesk::atMost(name, maxLength, "Vesk::String::bytes > maxLength() not allowed"))) {}

std::size_t VrfName::namesInUse() {
  return table().size();
}

void VrfName::release(std::uint32_t handle) {
  table().release(handle);
}

const std::string& VrfName::str() const {
  return table().at(handle()).text;
}

void VrfName::toBytes(char* out) const {
  const std::string& name = str();
  std::memset(out, 0, byteSize);
  *out = static_cast<char>(name.size());
  name.copy(out + 1, maxLength);
}

VrfName VrfName::fromBytes(const char* in) {
  const std::size_t size = static_cast<unsigned char>(*in);
  // A length that the row cannot hold fails the check of the constructor before a byte is read.
  return VrfName(std::string_view(in + 1, size));
}

std::uint64_t VrfName::hash() const {
  return table().at(handle()).hash;
}

VrfName defaultVrfName() {
  static const VrfName name("default");
  return name;
}

}  // namespace L3
