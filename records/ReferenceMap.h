// A map of references: records that others own, held under a key.
// Owns: nothing but the references. A machine that watches the attribute learns which key got
// another record. Caveat: printing goes through the references as if they were owned; writing
// through them is for scenarios only.
#pragma once

#include "runtime/Record.h"

namespace Vesk {

template <class Tag>
class ReferenceMapField final : public CollectionField<Tag> {
  using Target = typename Tag::Attr::Target;
  using Base = CollectionField<Tag>;

 public:
  using Base::child;
  ReferenceMapField() : Base(FieldKind::instanceMap) {
    this->targetType = &Base::template typeOf<Target>;
    this->isConst = std::is_const_v<Target>;
  }
  Ombra::Ptr<Entity> child(const Entity& e, std::string_view key) const override {
    return Base::erased(Base::attr(e).get(Base::readKey(key)));
  }
  bool adopt(Entity& e, std::string_view key, const Ombra::Ptr<Entity>& target) const override {
    Base::attr(e).adopt(e, Tag::id, Base::readKey(key),
                        Ombra::Ptr<Target>(static_cast<Target*>(target.get())));
    return true;
  }
  void forEachChild(const Entity& e,
                    const std::function<void(std::string_view, Entity&)>& f) const override {
    for (auto c = Base::attr(e).map().begin(); !c.atEnd(); c.advance())
      if (const auto child = c.value()) f(bytesOf(c.key()), *Base::erased(child));
  }
};

}  // namespace Vesk

/// x(k), xHas(k), xIs(k, ptr), xDel(k), xDelAll(), xCount(), xIterator(); a null reference removes
/// the entry.
#define VESK_REFERENCES(KEY, TARGET, NAME)                                    \
  VESK_FIELD_(NAME, ReferenceMapField, 0, Vesk::InstanceMapAttr<KEY, TARGET>) \
  [[nodiscard]] Ombra::Ptr<TARGET> NAME(const KEY& key) const {               \
    return NAME##_.get(key);                                                  \
  }                                                                           \
  void NAME##Is(KEY key, const Ombra::Ptr<TARGET>& target) {                  \
    if (!target) {                                                            \
      NAME##_.del(*this, NAME##Index, key);                                   \
    } else if (NAME##_.get(key) != target) {                                  \
      NAME##_.adopt(*this, NAME##Index, key, target);                         \
    }                                                                         \
  }                                                                           \
  VESK_COLLECTION_(NAME, KEY)                                                 \
  VESK_STORAGE_(NAME, Vesk::InstanceMapAttr<KEY, TARGET> NAME##_)
