// One nested machine per row of a collection, kept in step with it.
// A nested machine has the inputs `parent` and `row`, and stands in an instantiating collection of
// the machine that follows. When a row goes or is replaced its machine goes first: its `handleDel`,
// if it has one, runs while it still holds the old row. Then comes the machine of the new row, then
// the handler of the one that follows, with the key if it takes one; `followAfter` runs the handler
// before the nested machine is made, and `follow` without one leaves all to the nested machines.
// Owns: the subscription; the machines belong to the attribute.
// Caveat: what stands in the collection already is taken up by `begin`, where the initial
// evaluation stands.
#pragma once

#include <type_traits>
#include <utility>

#include "runtime/Attributes.h"

namespace Vesk {

/// What the compiler knows of it.
struct FollowType {
  Ombra::FieldId field;
  void (*update)(Machine& machine, const Entity& input, const void* key);
  void (*begin)(Machine& machine, const Entity& input, bool withHandler);
};

class Follow final : public Part {
 public:
  Follow(Machine* owner, Ombra::Ptr<const Entity> input, const FollowType& type)
      : Part(owner), type_(type), ear_(this, owner), input_(std::move(input)) {
    Follow::activeIs(owner->hasNotificationActive());
  }

  /// Makes the nested machines of the rows that are there, without a call of the handler.
  void begin() { beginWith(false); }
  /// The same with the handler's turn for each, as if all rows came now.
  void beginWithHandler() { beginWith(true); }

 private:
  struct Ear : Listener {
    Ear(Follow* of, Machine* owner)
        : Listener(owner, of->type_.field, &Follow::heard), follow(of) {}
    Follow* const follow;
  };
  static void heard(Listener& self, Ombra::FieldId, const void* key) {
    const Follow& follow = *static_cast<Ear&>(self).follow;
    follow.type_.update(*self.owner(), *follow.input_, key);
  }
  void beginWith(bool withHandler) {
    if (input_) type_.begin(*ear_.owner(), *input_, withHandler);
  }
  void activeIs(bool active) override { ear_.attach(active ? input_.get() : nullptr); }

  const FollowType& type_;
  Ear ear_;
  Ombra::Ptr<const Entity> input_;
};

// --- how a machine makes one
// -----------------------------------------------------------------------------------------------

template <auto Handler, bool isHandlerFirst, class Tag, class OwnTag>
struct FollowSteps {
  using Sm = typename OwnTag::Record;
  using Nested = typename OwnTag::Attr::Target;
  using Key = typename Tag::Attr::Key;
  using Row = decltype(Nested::Inputs::row);
  static_assert(std::is_same_v<Key, typename OwnTag::Attr::Key>, "keys of another type");

  static Row rowOf(const Entity& input, const Key& key) {
    const auto row = Tag::attr(static_cast<const typename Tag::Record&>(input)).get(key);
    if constexpr (std::is_convertible_v<decltype(row), Row>) {
      return row;
    } else {  // a directory holds entities of any type
      return boost::dynamic_pointer_cast<typename Row::element_type>(row);
    }
  }
  static void dropOutdated(Sm& sm, const Entity& input, const Key& key) {
    auto& own = OwnTag::attr(sm);
    const Ombra::Ptr<Nested> present = own.get(key);
    if (present && present->in.row == rowOf(input, key)) return;
    if constexpr (requires { present->handleDel(); }) {
      if (present) present->handleDel();
    }
    // One that is just being made is dropped as well.
    if (own.get(key) == present) own.del(sm, OwnTag::id, key);
  }
  static void make(Sm& sm, const Entity& input, const Key& key) {
    if (Row row = rowOf(input, key))
      OwnTag::attr(sm).is(sm, OwnTag::id, key, {.parent = &sm, .row = std::move(row)});
  }
  static void handle(Sm& sm, const Key& key) {
    if constexpr (!std::is_null_pointer_v<decltype(Handler)>) runHandler<Handler, Key>(sm, &key);
  }
  static void update(Sm& sm, const Entity& input, const Key key, bool withHandler) {
    dropOutdated(sm, input, key);
    if (isHandlerFirst && withHandler) handle(sm, key);
    make(sm, input, key);
    if (!isHandlerFirst && withHandler) handle(sm, key);
  }

  static void heard(Machine& machine, const Entity& input, const void* key) {
    update(static_cast<Sm&>(machine), input, *static_cast<const Key*>(key), true);
  }
  static void begin(Machine& machine, const Entity& input, bool withHandler) {
    const auto& map = Tag::attr(static_cast<const typename Tag::Record&>(input)).map();
    for (auto c = map.begin(); !c.atEnd(); c.advance())
      update(static_cast<Sm&>(machine), input, c.key(), withHandler);
  }
  static constexpr FollowType type{Tag::id, &heard, &begin};
};

template <auto Handler, class Record, class Tag, class OwnTag>
Follow Machine::follow(const Ombra::Ptr<Record>& input, Tag, OwnTag) {
  static_assert(std::is_base_of_v<typename Tag::Record, std::remove_const_t<Record>>,
                "attribute of another record");
  return Follow(this, input, FollowSteps<Handler, false, Tag, OwnTag>::type);
}
template <auto Handler, class Record, class Tag, class OwnTag>
Follow Machine::followAfter(const Ombra::Ptr<Record>& input, Tag, OwnTag) {
  static_assert(std::is_base_of_v<typename Tag::Record, std::remove_const_t<Record>>,
                "attribute of another record");
  return Follow(this, input, FollowSteps<Handler, true, Tag, OwnTag>::type);
}

}  // namespace Vesk
