// A subscription on the end of a path of references, as a member of a machine.
// Owns: one subscription per step. Reads: the references on the way, the root included if it is the
// machine's own attribute. Runs its handler on a change of the last attribute, and when a step is
// replaced and the end then stands on another object: once, or for a collection whose key the
// handler takes once per key of the old and the new object. A path with a step that is not there is
// silent. Caveat: the steps are those of the moment; what a silenced machine missed stays missed.
#pragma once

#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/KeyedMap.h"
#include "runtime/Machine.h"

namespace Vesk {

/// What the compiler knows of one step of a path.
struct PathStep {
  Ombra::FieldId field;
  /// What the reference of that attribute holds; null for the last step.
  Ombra::Ptr<const Entity> (*target)(const Entity&);
};

/// What it knows of the whole path.
struct PathType {
  using End = const Ombra::Ptr<const Entity>&;
  const PathStep* steps;
  std::size_t length;
  void (*run)(Machine& machine, const void* key);
  /// The end stands on another object; null if that is nobody's business.
  void (*runReplaced)(Machine& machine, End old, End now);
};

class PathWatch final : public Part {
 public:
  PathWatch(Machine* owner, const Entity* root, const PathType& type);
  /// Moves the path to another root; the handler runs as for a replaced step.
  void rootIs(const Ombra::Ptr<const Entity>& root) { replace(first_, root); }

 private:
  struct Step : Listener {
    Step(PathWatch* path, std::size_t index);
    PathWatch* const path;
    const std::size_t index;
    Ombra::Ptr<const Entity> object;
    std::unique_ptr<Step> next;
  };
  static void heard(Listener& self, Ombra::FieldId field, const void* key);
  void replace(Step& step, Ombra::Ptr<const Entity> object);
  /// The steps from this one on stand where the one before them leads.
  void bind(Step& step);
  [[nodiscard]] const Entity* standsOn(const Step& step) const;
  [[nodiscard]] Step& last();
  void activeIs(bool active) override;

  const PathType& type_;
  Machine* const owner_;
  /// The machine's own attributes are no path out of it: a counted reference would keep it for
  /// ever.
  const bool isOwn_;
  Step first_;
};

// --- how a machine makes one
// -----------------------------------------------------------------------------------------------

template <class Tag>
constexpr PathStep pathStep() {
  if constexpr (requires { Tag::Attr::isReference; }) {
    return {Tag::id, [](const Entity& entity) {
              return Ombra::Ptr<const Entity>(
                  Tag::attr(static_cast<const typename Tag::Record&>(entity)).get());
            }};
  } else {
    return {Tag::id, nullptr};
  }
}
template <class... Tags>
inline constexpr PathStep pathSteps[] = {pathStep<Tags>()...};

/// Every key of both objects, as long as the machine listens.
template <class Last, void (*run)(Machine&, const void*)>
void runPerKey(Machine& machine, PathType::End old, PathType::End now) {
  KeyedMap<typename Last::Attr::Key, NoValue> keys;
  for (const auto* object : {&old, &now}) {
    if (!*object) continue;
    const auto& map = Last::attr(static_cast<const typename Last::Record&>(**object)).map();
    for (auto c = map.begin(); !c.atEnd(); c.advance())
      if (!keys.has(c.key())) keys.insert(c.key(), {});
  }
  for (auto c = keys.begin(); !c.atEnd() && machine.hasNotificationActive() && !machine.zombie();
       c.advance()) {
    const auto key = c.key();
    run(machine, &key);
  }
}

template <auto Handler, bool isQuiet, class... Tags>
constexpr PathType pathType() {
  using Last = std::tuple_element_t<sizeof...(Tags) - 1, std::tuple<Tags...>>;
  using Key = typename Last::Attr::Key;
  constexpr auto run = &runHandler<Handler, Key>;
  PathType type{pathSteps<Tags...>, sizeof...(Tags), run, nullptr};
  if constexpr (isQuiet) return type;
  if constexpr (HandlerTraits<decltype(Handler)>::arity == 0) {
    type.runReplaced = [](Machine& machine, PathType::End, PathType::End) {
      run(machine, nullptr);
    };
  } else {
    type.runReplaced = &runPerKey<Last, run>;
  }
  return type;
}
template <auto Handler, bool isQuiet, class... Tags>
inline constexpr PathType pathTypeOf = pathType<Handler, isQuiet, Tags...>();

inline const Entity* rootOf(const Entity* own) {
  return own;
}
template <class Record>
const Entity* rootOf(const Ombra::Ptr<Record>& input) {
  return input.get();
}

template <auto Handler, class Root, class... Tags>
PathWatch Machine::watchPath(const Root& root, Tags...) {
  return PathWatch(this, rootOf(root), pathTypeOf<Handler, false, Tags...>);
}
template <auto Handler, class Root, class... Tags>
PathWatch Machine::watchPathQuietly(const Root& root, Tags...) {
  return PathWatch(this, rootOf(root), pathTypeOf<Handler, true, Tags...>);
}

}  // namespace Vesk
