// Hears every change below one address, wherever the objects on the way come and go.
// Owns: listeners on the entities on the way, and an observer of the tree at the end. Writes: lines
// into its sink. Attaching is no change, and neither is the mounting of a record that stands at its
// own path. Caveat: after a crash the objects behind shared tables are new ones: `attach` again.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/play/World.h"
#include "runtime/TreeObserver.h"

namespace Host {

class Watch {
 public:
  /// Called once per effective write. `lines` makes the notes of it; whoever only counts does not
  /// call it.
  using Lines = std::function<std::vector<std::string>()>;
  using Sink = std::function<void(const Lines& lines)>;

  Watch(World& world, Address address, Sink sink);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Follows the address anew from its root, without a note.
  void attach();
  void detach();
  [[nodiscard]] const Address& address() const { return address_; }

 private:
  struct Ear;
  class Below;
  friend class Below;

  /// Moves along the way from step i on, as far as there is something.
  void follow(std::size_t from);
  void heard(std::size_t index, const Vesk::FieldInfo& field, const std::string& key);
  void wayChanged(std::size_t index);
  void observeEnd();
  [[nodiscard]] bool endsAtEntity() const;
  [[nodiscard]] Vesk::Entity* end() const;
  /// True if what appeared at this step of the way stands there of its own, as a mounted record
  /// does.
  [[nodiscard]] bool isMount(std::size_t index) const;
  [[nodiscard]] std::vector<std::string> goneLines(const Ombra::Ptr<Vesk::Entity>& old) const;
  [[nodiscard]] std::vector<std::string> newLines(bool isMount) const;

  World& world_;
  Address address_;
  Sink sink_;
  std::vector<AddressStep> steps_;  ///< from the root entity, directories included
  std::size_t pathSteps_ = 0;       ///< how many of them lead through directories
  std::vector<Ombra::Ptr<Vesk::Entity>> way_;
  std::vector<std::unique_ptr<Ear>> ears_;
  std::unique_ptr<Below> below_;
};

/// The notes of an entity that came as it stands: what it holds beside defaults, its own key left
/// out.
void contentLines(const Vesk::Entity& entity, const AddressText& at,
                  std::vector<std::string>& lines);

}  // namespace Host
