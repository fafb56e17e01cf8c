#include "runtime/TreeObserver.h"

namespace Vesk {

TreeObserver::Node::Node(TreeObserver* ofTree, Node* above, const FieldInfo* by, std::string under,
                         Ombra::Ptr<Entity> of)
    : tree(ofTree),
      parent(above),
      field(by),
      key(std::move(under)),
      entity(std::move(of)),
      ear_(this) {
  ear_.attach(entity.get());
}

void TreeObserver::rootIs(const Ombra::Ptr<Entity>& root) {
  root_.reset();
  if (!root) return;
  root_ = std::make_unique<Node>(this, nullptr, nullptr, std::string(), root);
  attach(*root_);
}

void TreeObserver::attach(Node& node) {
  for (const FieldInfo* field : node.entity->recordType().fields()) {
    if (!field->owns()) continue;
    field->forEachChild(*node.entity, [&](std::string_view key, Entity& child) {
      auto& slot = node.children_[{field->id, std::string(key)}];
      slot =
          std::make_unique<Node>(this, &node, field, std::string(key), Ombra::Ptr<Entity>(&child));
      attach(*slot);
    });
  }
}

const TreeObserver::Node* TreeObserver::findBelow(const Node& node, const Entity& entity) {
  if (node.entity.get() == &entity) return &node;
  for (const auto& [slot, child] : node.children_)
    if (const Node* found = findBelow(*child, entity)) return found;
  return nullptr;
}

void TreeObserver::heard(Listener& self, Ombra::FieldId id, const void* key) {
  Node& node = *static_cast<Node::Ear&>(self).node;
  const FieldInfo& field = *node.entity->recordType().fields()[id];
  const std::string keyBytes = key == nullptr ? std::string() : field.keyBytes(key);
  if (field.owns()) {
    node.tree->follow(node, field, keyBytes);
  } else {
    node.tree->valueChanged(node, field, keyBytes);
  }
}

void TreeObserver::follow(Node& node, const FieldInfo& field, const std::string& key) {
  const Ombra::Ptr<Entity> now =
      field.isCollection() ? field.child(*node.entity, key) : field.child(*node.entity);
  const auto slot = std::make_pair(field.id, key);
  if (const auto it = node.children_.find(slot); it != node.children_.end()) {
    if (it->second->entity == now) return;
    const std::unique_ptr<Node> gone = std::move(it->second);
    node.children_.erase(it);
    entityWent(*gone);
  }
  if (!now) return;
  auto& child = node.children_[slot];
  child = std::make_unique<Node>(this, &node, &field, key, now);
  attach(*child);
  entityCame(*child);
}

}  // namespace Vesk
