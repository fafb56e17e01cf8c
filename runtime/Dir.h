// A directory of entities: the inner nodes of a state tree.
// Owns: its entities by name. Whoever watches `entryState` learns which name came or went.
#pragma once

#include <string>
#include <string_view>

#include "runtime/Record.h"

namespace Vesk {

/// The entries of a directory are of any type, so their types are asked of the entities themselves.
template <class Tag>
class DirectoryField final : public CollectionField<Tag> {
  using Base = CollectionField<Tag>;

 public:
  using Base::child;
  DirectoryField() : Base(FieldKind::instanceMap) {
    this->targetType = []() -> const RecordType& { return Tag::Record::veskType(); };
  }
  Ombra::Ptr<Entity> child(const Entity& e, std::string_view key) const override {
    return Base::attr(e).get(Base::readKey(key));
  }
  bool adopt(Entity& e, std::string_view key, const Ombra::Ptr<Entity>& target) const override {
    Base::attr(e).adopt(e, Tag::id, Base::readKey(key), target);
    return true;
  }
  void forEachChild(const Entity& e,
                    const std::function<void(std::string_view, Entity&)>& f) const override {
    for (auto c = Base::attr(e).map().begin(); !c.atEnd(); c.advance())
      if (const auto child = c.value()) f(bytesOf(c.key()), *child);
  }
};

class Dir : public Entity {
  VESK_RECORD(Vesk::Dir)
  VESK_FIELD_(entryState, DirectoryField, 0, InstanceMapAttr<std::string, Entity>)

  /// The entry of that name; made of the record type if it is not there. Null if there is no such
  /// type.
  Ombra::Ptr<Entity> createEntity(std::string_view type, const std::string& name);
  void createEntity(const Ombra::Ptr<Entity>& entity, const std::string& name) {
    entryState_.adopt(*this, entryStateIndex, name, entity);
  }
  /// No error if there is none.
  void deleteEntity(const std::string& name) { entryState_.del(*this, entryStateIndex, name); }
  void deleteAll() { entryState_.delAll(*this, entryStateIndex); }
  [[nodiscard]] Ombra::Ptr<Entity> entityPtr(const std::string& name) {
    return entryState_.get(name);
  }
  [[nodiscard]] Ombra::Ptr<Entity const> entityPtr(const std::string& name) const {
    return entryState_.get(name);
  }
  VESK_ITERATORS_(entryState, std::string, const)
  VESK_ITERATORS_(entryState, std::string, )
  [[nodiscard]] bool empty() const { return entryState_.count() == 0; }

 private:
  InstanceMapAttr<std::string, Entity> entryState_;
};

/// Fills the attributes `name` and `af`, where the record has them, from the entity's path.
void identityIs(Entity& entity, std::string_view path);

}  // namespace Vesk
