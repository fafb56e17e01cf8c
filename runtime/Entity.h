// The base of every record and machine: a counted node whose attributes publish their changes.
// Owns: the list of its listeners. What attributes it has is told by its RecordType.
#pragma once

#include <string>

#include "runtime/Node.h"
#include "runtime/Notify.h"

namespace Vesk {

class Machine;
class RecordType;

/// Constructor arguments of a record that takes none beside its key.
struct NoInputs {
  bool operator==(const NoInputs&) const = default;
};

class Entity : public Ombra::Node {
 public:
  using Inputs = NoInputs;

  [[nodiscard]] virtual const RecordType& recordType() const = 0;

  /// Tells everyone who watches this attribute; `key` points to the collection's key, null for a
  /// scalar attribute.
  void publish(Ombra::FieldId field, const void* key = nullptr) { publisher_.publish(field, key); }
  [[nodiscard]] Publisher& publisher() const { return publisher_; }

  /// This entity if it is a machine, else null.
  [[nodiscard]] virtual Machine* asMachine() { return nullptr; }

 private:
  mutable Publisher publisher_;
};

/// An entity of a collection, which carries its own key.
template <class K>
class Keyed : public Entity {
 public:
  using KeyType = K;
  explicit Keyed(K key) : key_(std::move(key)) {}

 protected:
  K key_;
};

}  // namespace Vesk
