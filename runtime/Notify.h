// How a change reaches those who watch it.
// Owns: the list of listeners of one entity, one pointer when nobody watches.
// Publishing runs the handlers at once, on the same stack, in the order of subscription, nested to
// any depth. During a dispatch a listener that goes is not called and one that comes does not see
// the event in flight; the machine, the entity and the entry that it stands on may all be deleted
// by a handler.
#pragma once

#include <cstdint>

#include "runtime/Node.h"

namespace Ombra {
/// Identity of an attribute within its record.
using FieldId = std::uint16_t;
}  // namespace Ombra

namespace Vesk {

class Entity;
class Machine;
class Publisher;

/// Something that has to wait until the write in progress, and whatever its reactors have written
/// in turn, is through. Waits in a list; gone with its owner.
class Afterwards {
 public:
  Afterwards() = default;
  Afterwards(const Afterwards&) = delete;
  Afterwards& operator=(const Afterwards&) = delete;

 protected:
  virtual ~Afterwards() { forget(); }
  virtual void run() = 0;
  /// Runs when the outermost write is through, once however often it is asked for; at once if no
  /// write is in progress.
  void ask();
  void forget();

 private:
  friend class Publisher;
  static void runAll();

  static inline Afterwards* first_ = nullptr;
  Afterwards* next_ = nullptr;
  bool waits_ = false;
};

/// One subscription, a member of whoever subscribes. Not copied, not moved; gone with its owner.
class Listener {
 public:
  /// Gets the attribute that changed and, for a collection, a pointer to the key (of the
  /// collection's own key type).
  using Call = void (*)(Listener& self, Ombra::FieldId field, const void* key);
  static constexpr Ombra::FieldId anyField = 0xffff;

  /// Listens for the machine: silent while the machine is a zombie. The machine and those that hold
  /// it live through the call.
  Listener(Machine* owner, Ombra::FieldId field, Call call)
      : call_(call), owner_(owner), field_(field) {}
  /// An observer: hears every attribute of the entity, before any machine does.
  explicit Listener(Call call) : call_(call) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() { detach(); }

  /// Starts to listen to the entity, which may be null: then nothing is heard. Detaches first.
  void attach(const Entity* entity);
  void detach();
  [[nodiscard]] bool attached() const { return publisher_ != nullptr; }
  [[nodiscard]] Machine* owner() const { return owner_; }

 private:
  friend class Publisher;
  [[nodiscard]] bool hears(Ombra::FieldId field) const;

  // What a dispatch reads comes first, to lie in one cache line.
  Listener* next_ = nullptr;
  Call call_;
  Machine* owner_ = nullptr;
  std::uint64_t joined_ = 0;
  Ombra::FieldId field_ = anyField;
  Listener* previous_ = nullptr;
  Publisher* publisher_ = nullptr;
};

/// The listeners of one entity.
class Publisher {
 public:
  Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  ~Publisher() { dropAll(); }

  [[nodiscard]] bool watched() const { return head_ != nullptr; }
  void publish(Ombra::FieldId field, const void* key) {
    if (head_ == nullptr) return;
    dispatch(field, key);
    if (Afterwards::first_ != nullptr) [[unlikely]]
      Afterwards::runAll();
  }
  /// Calls f with each machine that listens, once for each of its subscriptions.
  template <class F>
  void forEachMachine(F f) const {
    for (const Listener* l = head_; l != nullptr; l = l->next_ == head_ ? nullptr : l->next_)
      if (l->owner_ != nullptr) f(*l->owner_);
  }
  /// Forgets the machines that listen, without a word to them: their process is gone. Observers
  /// stay.
  void dropMachines();

  /// The process whose writes are in progress is gone: nothing of them goes on, and what waited for
  /// their end never comes.
  static void dropWrites();

  /// Test mode: every new subscription takes a random place among the machines of its entity. 0
  /// switches it off.
  static void shuffleSeedIs(std::uint64_t seed);

 private:
  friend class Listener;
  void dispatch(Ombra::FieldId field, const void* key);
  void add(Listener* listener);
  void remove(Listener* listener);
  void dropAll();

  Listener* head_ = nullptr;  // a ring: head_->previous_ is the last one
};

}  // namespace Vesk
