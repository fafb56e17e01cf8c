// Compares what stands at an address with what a scenario expects of it.
// Reads: the world, by look-up: a damaged row that is looked at is reported as any reader would
// report it. A pattern matches if everything that it names matches; an exact comparison allows
// nothing beside it.
#pragma once

#include <vector>

#include "host/play/World.h"

namespace Host {

class Matcher {
 public:
  explicit Matcher(bool exact) : exact_(exact) {}
  /// Everything that is not as expected; empty if all is well.
  [[nodiscard]] std::vector<Failure> compare(const World& world, const Address& address,
                                             const Content& expected);

 private:
  void entity(const Vesk::Entity* entity, const AddressText& at, const Content& expected);
  void field(const Vesk::Entity& entity, const Vesk::FieldInfo& field, const AddressText& at,
             const Content& expected);
  void entry(const Vesk::Entity& entity, const Vesk::FieldInfo& field, const std::string& key,
             const AddressText& at, const Content& expected);
  void value(const Vesk::ValueType& type, const std::string& bytes, const std::string& initial,
             const std::string& at, const Content& expected);
  void nothingElse(const Vesk::Entity& entity, const AddressText& at, const Content& expected);
  void fail(const std::string& at, const std::string& expected, std::string found);

  bool exact_;
  std::vector<Failure> failures_;
};

}  // namespace Host
