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

Vesk::InternTable<Entry>& table() {
  return Vesk::InternTable<Entry>::instance();
}

}  // namespace

VrfName::VrfName(std::string_view name) {
  if (name.size() > maxLength)
    throw Ombra::RangeException("Vesk::String::bytes > maxLength() not allowed");
  handle_ = table().handleOf(name);
}

const std::string& VrfName::str() const {
  return table().at(handle_).text;
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
  return table().at(handle_).hash;
}

VrfName defaultVrfName() {
  static const VrfName name("default");
  return name;
}

}  // namespace L3
