// State machines and their subscriptions.
// A machine reads inputs, watches them and writes outputs. Its subscriptions are its members: they
// are made in the order of declaration before the constructor's body runs, they go with the
// machine, and they fall silent together. hasNotificationActiveIs(false) is recursive over the
// machines that this one owns, and immediate.
#pragma once

#include <array>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/Entity.h"
#include "runtime/KeyedMap.h"

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
  /// Moves the subscription to another entity, without running the handler.
  void inputIs(Ombra::Ptr<const Entity> input);

 private:
  void activeIs(bool active) override;
  Listener listener_;  // first, to lie close to what its machine's handlers read
  Ombra::Ptr<const Entity> input_;
};

template <class... Tags>
class PathWatch;

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

 protected:
  Machine() = default;
  /// Runs once when the machine goes, silent already and still whole.
  virtual void handleCleanup() {}
  void lastUserGone() override;

  /// A subscription that runs Handler, a member function of the deriving machine without argument
  /// or with the key.
  template <auto Handler, class Record, class Tag>
  [[nodiscard]] Watch watch(const Ombra::Ptr<Record>& input, Tag);
  /// A subscription on a path of references: `watchPath<&Sm::handleX>(root, Root::stepAttr,
  /// Step::attributeAttr)`.
  template <auto Handler, class Record, class... Tags>
  [[nodiscard]] PathWatch<Tags...> watchPath(const Ombra::Ptr<Record>& root, Tags...);

 private:
  friend class Part;
  Part* parts_ = nullptr;
  bool active_ = true;
  bool zombie_ = false;
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

// --- paths
// ---------------------------------------------------------------------------------------------------------

/// Watches the last attribute of a path of references. When a step is replaced the subscriptions
/// move on; if the end then stands on another object the handler runs: once, or for a collection
/// once per key of the old and the new object.
template <class... Tags>
class PathWatch final : public Part {
 public:
  using Run = void (*)(Machine& machine, const void* key);
  static constexpr std::size_t length = sizeof...(Tags);
  using Last = std::tuple_element_t<length - 1, std::tuple<Tags...>>;

  PathWatch(Machine* owner, Ombra::Ptr<const Entity> root, Run run, bool perKey)
      : Part(owner),
        owner_(owner),
        run_(run),
        perKey_(perKey),
        steps_(makeSteps(std::make_index_sequence<length>{})) {
    objects_[0] = std::move(root);
    bind(0);
  }
  /// Moves the path to another root; the handler runs as for a replaced step.
  void rootIs(Ombra::Ptr<const Entity> root) {
    if (objects_[0] != root) replace(0, std::move(root));
  }

 private:
  struct Step : Listener {
    Step(PathWatch* of, Machine* owner, Ombra::FieldId field, std::size_t at)
        : Listener(owner, field, &PathWatch::heard), path(of), index(at) {}
    PathWatch* path;
    std::size_t index;
  };
  template <std::size_t... I>
  std::array<Step, length> makeSteps(std::index_sequence<I...>) {
    return {Step{this, owner_, Tags::id, I}...};
  }

  static void heard(Listener& self, Ombra::FieldId, const void* key) {
    auto& step = static_cast<Step&>(self);
    PathWatch& path = *step.path;
    if (step.index + 1 == length) {
      path.run_(*path.owner_, key);
    } else {
      path.replace(step.index + 1, path.follow(step.index));
    }
  }

  /// What the reference at a step holds.
  Ombra::Ptr<const Entity> follow(std::size_t index) const {
    Ombra::Ptr<const Entity> next;
    std::size_t i = 0;
    (
        [&] {
          if constexpr (requires { Tags::Attr::isReference; }) {
            if (i == index && objects_[i])
              next = Tags::attr(static_cast<const typename Tags::Record&>(*objects_[i])).get();
          }
          ++i;
        }(),
        ...);
    return next;
  }

  void replace(std::size_t index, Ombra::Ptr<const Entity> object) {
    const Ombra::Ptr<const Entity> old = objects_[length - 1];
    objects_[index] = std::move(object);
    bind(index);
    if (old != objects_[length - 1]) runEnd(old, objects_[length - 1]);
  }

  void bind(std::size_t from) {
    for (std::size_t i = from; i < length; ++i) {
      if (i > from) objects_[i] = follow(i - 1);
      steps_[i].attach(owner_->hasNotificationActive() ? objects_[i].get() : nullptr);
    }
  }

  void runEnd(const Ombra::Ptr<const Entity>& old, const Ombra::Ptr<const Entity>& now) {
    if (!owner_->hasNotificationActive() || owner_->zombie()) return;
    const Ombra::Ptr<Machine> alive(owner_);
    if constexpr (std::is_void_v<typename Last::Attr::Key>) {
      run_(*alive, nullptr);
    } else {
      if (!perKey_) {
        run_(*alive, nullptr);
        return;
      }
      KeyedMap<typename Last::Attr::Key, NoValue> keys;
      for (const auto* object : {&old, &now}) {
        if (!*object) continue;
        const auto& attr = Last::attr(static_cast<const typename Last::Record&>(**object));
        for (auto c = attr.map().begin(); !c.atEnd(); c.advance())
          if (!keys.has(c.key())) keys.insert(c.key(), {});
      }
      const Run run = run_;
      for (auto c = keys.begin(); !c.atEnd() && alive->hasNotificationActive() && !alive->zombie();
           c.advance()) {
        const auto key = c.key();
        run(*alive, &key);
      }
    }
  }

  void activeIs(bool) override { bind(0); }

  Machine* owner_;
  Run run_;
  bool perKey_;
  std::array<Ombra::Ptr<const Entity>, length> objects_;
  std::array<Step, length> steps_;
};

template <auto Handler, class Record, class... Tags>
PathWatch<Tags...> Machine::watchPath(const Ombra::Ptr<Record>& root, Tags...) {
  using Last = typename PathWatch<Tags...>::Last;
  return PathWatch<Tags...>(this, root, &runHandler<Handler, typename Last::Attr::Key>,
                            HandlerTraits<decltype(Handler)>::arity != 0);
}

}  // namespace Vesk
