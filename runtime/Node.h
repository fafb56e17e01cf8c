// Counted nodes and the pointers that count them.
// Owns: the use count of every entity, machine and table; a node dies with its last Ptr.
// Counts are not atomic: all logic runs on one thread.
// Caveat: nodes are made by Ombra::make only. A node holds one reference to itself while its
// constructor runs, so that a reactor that fires in the middle of construction cannot destroy it.
#pragma once

#include <cstdint>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "runtime/Assert.h"

namespace Ombra {

class Node {
 public:
  Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  virtual ~Node() = default;

  [[nodiscard]] std::uint32_t useCount() const { return useCount_; }

 protected:
  /// Runs when the last user has gone and the object is still whole: it may take and drop
  /// references to itself. One that is kept would point to nothing: that ends the process.
  virtual void lastUserGone() {}

 private:
  friend void intrusive_ptr_add_ref(const Node* node) noexcept { ++node->useCount_; }
  friend void intrusive_ptr_release(const Node* node) noexcept(false) {
    if (--node->useCount_ == 0) const_cast<Node*>(node)->expire();
  }
  void expire() {
    useCount_ = dying;
    lastUserGone();
    assertThat(useCount_ == dying, "useCount_ == dying");
    delete this;
  }

  static constexpr std::uint32_t dying = 1U << 30;
  mutable std::uint32_t useCount_ = 1;
};

/// Strong pointer. `Ptr<T const>` is the same for read access: an input that a machine only reads.
template <class T>
using Ptr = boost::intrusive_ptr<T>;

/// The one way to make a node.
template <class T, class... Args>
[[nodiscard]] Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...), false);
}

}  // namespace Ombra
