// One turn of a task that works item by item.
// Owns: the number of items that this turn has taken. Reads: whether the task must yield.
#pragma once

#include <cstddef>

#include "runtime/Task.h"

namespace Sylva {

/// The first item is always granted, so that each slice gets on.
class Slice {
 public:
  explicit Slice(const Task& task) : task_(task) {}
  /// Takes one more item; false if the task must yield instead.
  [[nodiscard]] bool take() {
    if (items_ != 0 && task_.taskShouldYield()) return false;
    ++items_;
    return true;
  }
  [[nodiscard]] std::size_t items() const { return items_; }

 private:
  const Task& task_;
  std::size_t items_ = 0;
};

}  // namespace Sylva
