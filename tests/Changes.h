// Counts the effective changes below an entity, for tests that care how often something is written.
#pragma once

#include "runtime/TreeObserver.h"

class Changes final : public Vesk::TreeObserver {
 public:
  explicit Changes(const Ombra::Ptr<Vesk::Entity>& root) { rootIs(root); }
  int count = 0;

 private:
  void valueChanged(const Node&, const Vesk::FieldInfo&, std::string_view) override { ++count; }
  void entityCame(const Node&) override { ++count; }
  void entityWent(const Node&) override { ++count; }
};
