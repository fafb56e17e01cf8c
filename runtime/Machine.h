// State machines and their subscriptions.
// A machine reads inputs, watches them and writes outputs. Its subscriptions are its members: they
// are made in the order of declaration before the constructor's body runs, they go with the
// machine, and they fall silent together. hasNotificationActiveIs(false) is recursive over the
// machines that this one owns, and immediate. When the last user has gone a machine falls silent,
// cleans up, and lets go of what it owns, in this order and whole all the while.
#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "runtime/Acting.h"
#include "runtime/Entity.h"

namespace Vesk {

class Machine;

/// A subscription, task or timer that is a member of a machine and is switched with it.
class Part {
 public:
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;

 protected:
  explicit Part(Machine* owner);
  virtual ~Part();
  virtual void activeIs(bool active) = 0;

 private:
  friend class Machine;
  Machine* machine_;
  Part* nextPart_ = nullptr;
  Part* previousPart_;  // in a ring: that of the first is the last
};

/// Watches one attribute of one entity; a null entity is legal and silent.
class Watch final : public Part {
 public:
  Watch(Machine* owner, Ombra::Ptr<const Entity> input, Ombra::FieldId field, Listener::Call call);

 private:
  void activeIs(bool active) override;
  Listener listener_;  // first, to lie close to what its machine's handlers read
  Ombra::Ptr<const Entity> input_;
};

class Follow;
class PathWatch;

/// How a machine that is asked for with other arguments makes room for its successor. A machine
/// says so as `static constexpr Vesk::Succession succession`; without a word it goes first.
enum class Succession {
  goesFirst,  ///< what it takes back at its end is not what the successor has written
  goesLast,   ///< the shared handles that it holds pass to the successor; no row leaves in between
};

/// A state machine. A derived class holds its constructor arguments in a public constant member
/// `in` of its type `Inputs`, which an instantiating attribute compares.
class Machine : public Entity {
 public:
  [[nodiscard]] bool hasNotificationActive() const { return active_; }
  /// False: silences this machine and, recursively, every machine that it owns; tasks and timers
  /// too. True: listens again. The present value changes nothing.
  void hasNotificationActiveIs(bool active);
  /// While set, no reactor of this machine runs.
  void veskDoZombieReactors(bool zombie) { zombie_ = zombie; }
  [[nodiscard]] bool zombie() const { return zombie_; }

  /// Judges everything that this machine is responsible for anew. With unchanged inputs no output
  /// may change.
  virtual void review() {}
  /// `review` of this machine and of every machine that it owns.
  void reviewAll();

  /// The machine whose attribute holds this one, null if it is held otherwise. Kept by attributes.
  [[nodiscard]] Machine* holder() const { return holder_; }
  /// The machine whose work this one does: another if this one is but a piece of it.
  [[nodiscard]] virtual const Machine& worker() const { return *this; }
  void holderIs(Entity* holder) { holder_ = holder == nullptr ? nullptr : holder->asMachine(); }

 protected:
  Machine() = default;
  /// Runs once when the machine goes, silent already and still whole.
  virtual void handleCleanup() {}
  void lastUserGone() override;

  /// A subscription that runs Handler, a member function of the deriving machine without argument
  /// or with the key.
  template <auto Handler, class Record, class Tag>
  [[nodiscard]] Watch watch(const Ombra::Ptr<Record>& input, Tag);
  /// A subscription on the end of a path of references: `watchPath<&Sm::handleX>(root,
  /// Root::stepAttr, Step::attributeAttr)`. The root may be the machine itself, given as `this`.
  template <auto Handler, class Root, class... Tags>
  [[nodiscard]] PathWatch watchPath(const Root& root, Tags...);
  /// The same, for a handler that hears elsewhere that a step was replaced.
  template <auto Handler, class Root, class... Tags>
  [[nodiscard]] PathWatch watchPathQuietly(const Root& root, Tags...);
  /// Keeps one nested machine per row of a collection, in an attribute of this machine:
  /// `follow<&Sm::handleRow>(in.status, Status::rowAttr, rowSmAttr)`. See runtime/Follow.h.
  template <auto Handler = nullptr, class Record, class Tag, class OwnTag>
  [[nodiscard]] Follow follow(const Ombra::Ptr<Record>& input, Tag, OwnTag);
  /// The same, with the handler's turn before the nested machine is made.
  template <auto Handler, class Record, class Tag, class OwnTag>
  [[nodiscard]] Follow followAfter(const Ombra::Ptr<Record>& input, Tag, OwnTag);

 private:
  friend class Part;
  [[nodiscard]] Machine* asMachine() override { return this; }
  void letGoOfOwned();

  Part* parts_ = nullptr;
  Machine* holder_ = nullptr;
  bool active_ = true;
  bool zombie_ = false;
};

/// The machines that an attribute has under construction, the innermost first.
class MakingTurns {
 protected:
  struct Link {
    Link* outer = nullptr;
  };
  /// A turn stands in the list for its scope.
  class Begun {
   public:
    Begun(MakingTurns& turns, Link& turn);
    Begun(const Begun&) = delete;
    Begun& operator=(const Begun&) = delete;
    ~Begun();

   private:
    MakingTurns& turns_;
  };
  [[nodiscard]] Link* innermost() const { return innermost_; }

 private:
  Link* innermost_ = nullptr;
};

/// A machine's turn. Keeps it and those that hold it through a call: whatever the call takes away
/// ends after it, the inner one first, and none of them is called dead.
class HeldMachine {
 public:
  explicit HeldMachine(Machine* machine) : turn_(*machine) {
    for (; machine != nullptr; machine = machine->holder()) {
      if (depth_ == maxDepth) [[unlikely]]
        tooDeep();
      intrusive_ptr_add_ref(machine);
      held_[depth_++] = machine;
    }
  }
  HeldMachine(const HeldMachine&) = delete;
  HeldMachine& operator=(const HeldMachine&) = delete;
  ~HeldMachine() {
    for (std::size_t i = 0; i < depth_; ++i)
      intrusive_ptr_release(held_[i]);
  }

 private:
  static constexpr std::size_t maxDepth = 16;
  [[noreturn]] static void tooDeep();

  const Acting turn_;
  std::array<Machine*, maxDepth> held_;
  std::size_t depth_ = 0;
};

// --- handlers
// ------------------------------------------------------------------------------------------------------

template <class F>
struct HandlerTraits;
template <class Sm_, class... Args>
struct HandlerTraits<void (Sm_::*)(Args...)> {
  using Sm = Sm_;
  static constexpr std::size_t arity = sizeof...(Args);
};

/// Runs Handler on its machine, with the key if it takes one.
template <auto Handler, class Key>
void runHandler(Machine& machine, const void* key) {
  using Traits = HandlerTraits<decltype(Handler)>;
  auto& sm = static_cast<typename Traits::Sm&>(machine);
  if constexpr (Traits::arity == 0) {
    (sm.*Handler)();
  } else {
    (sm.*Handler)(*static_cast<const Key*>(key));
  }
}

template <auto Handler, class Record, class Tag>
Watch Machine::watch(const Ombra::Ptr<Record>& input, Tag) {
  static_assert(std::is_base_of_v<typename Tag::Record, std::remove_const_t<Record>>,
                "attribute of another record");
  return Watch(this, input, Tag::id, [](Listener& self, Ombra::FieldId, const void* key) {
    runHandler<Handler, typename Tag::Attr::Key>(*self.owner(), key);
  });
}

}  // namespace Vesk
