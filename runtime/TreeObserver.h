// Hears every change below an entity: of its attributes, and of the entities that it owns at any
// depth. Runs before any machine hears of the change, so that what a machine writes in answer comes
// after its cause; an observer that belongs to a machine runs in that machine's turn instead.
// Owns: one listener per entity below the root. Used for recording, counting and for keeping shared
// tables.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "runtime/Reflect.h"

namespace Vesk {

class TreeObserver {
 public:
  /// One entity of the tree and how it is reached from the one above.
  struct Node {
    Node(TreeObserver* tree, Node* parent, const FieldInfo* field, std::string key,
         Ombra::Ptr<Entity> entity);
    TreeObserver* const tree;
    Node* const parent;            ///< null at the root
    const FieldInfo* const field;  ///< of the parent, null at the root
    const std::string key;         ///< bytes of the key in that field, empty for an instance
    const Ombra::Ptr<Entity> entity;

    /// The nodes of one attribute's entities.
    template <class F>
    void forEachChild(const FieldInfo& of, F f) const {
      for (const auto& [slot, child] : children_)
        if (slot.first == of.id) f(*child);
    }

   private:
    friend class TreeObserver;
    struct Ear : Listener {
      explicit Ear(Node* of)
          : Listener(of->tree->owner_, anyField, &TreeObserver::heard), node(of) {}
      Node* node;
    };
    Ear ear_;
    std::map<std::pair<Ombra::FieldId, std::string>, std::unique_ptr<Node>> children_;
  };

  explicit TreeObserver(Machine* owner = nullptr) : owner_(owner) {}
  virtual ~TreeObserver() = default;
  TreeObserver(const TreeObserver&) = delete;
  TreeObserver& operator=(const TreeObserver&) = delete;

  /// Begins to observe; what is there already is not reported. Null ends it.
  void rootIs(const Ombra::Ptr<Entity>& root);
  [[nodiscard]] const Node* root() const { return root_.get(); }
  /// The node of an entity in this tree, or null. Visits the whole tree.
  [[nodiscard]] const Node* find(const Entity& entity) const {
    return root_ ? findBelow(*root_, entity) : nullptr;
  }

 protected:
  /// A value, reference, map entry or set member changed. `key` is empty for scalars.
  virtual void valueChanged(const Node& node, const FieldInfo& field, std::string_view key) = 0;
  /// An owned entity came, as it stands: its content is not reported apart.
  virtual void entityCame(const Node& node) = 0;
  /// An owned entity went; the node still holds it with its content.
  virtual void entityWent(const Node& node) = 0;

 private:
  static const Node* findBelow(const Node& node, const Entity& entity);
  static void heard(Listener& self, Ombra::FieldId field, const void* key);
  void attach(Node& node);
  void follow(Node& node, const FieldInfo& field, const std::string& key);

  Machine* const owner_;
  std::unique_ptr<Node> root_;
};

}  // namespace Vesk
