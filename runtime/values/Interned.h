// Texts that stand in the process once and are known by a small number as long as they are used.
// Owns: one entry per text in use, and how many handles there are of each; an entry never moves,
// and goes with its last handle, so that names which come and go leave nothing behind. Handle 0 is
// the empty text, in every table. Caveat: one thread; handles mean nothing in another process, and
// a number may come to mean another text, so nothing is written or ordered by them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "runtime/Assert.h"

namespace Vesk {

/// The text itself; throws Ombra::RangeException with this message if it is longer.
[[nodiscard]] inline std::string_view atMost(std::string_view text, std::size_t longest,
                                             const char* message) {
  if (text.size() > longest) throw Ombra::RangeException(message);
  return text;
}

/// Entry is made from a std::string_view and keeps it as `text`. Owner is the class that holds
/// handles.
template <class Entry, class Owner>
class InternTable;

/// A counted handle, as the base of a class of names, which has a static `release(handle)`.
template <class Owner>
class Interned {
 public:
  constexpr Interned() = default;
  constexpr Interned(const Interned& other) noexcept : handle_(other.handle_) { hold(); }
  constexpr Interned(Interned&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  constexpr Interned& operator=(const Interned& other) noexcept {
    other.hold();  // first, since it may be this one
    drop();
    handle_ = other.handle_;
    return *this;
  }
  constexpr Interned& operator=(Interned&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  constexpr ~Interned() { drop(); }

  [[nodiscard]] constexpr bool empty() const { return handle_ == 0; }
  constexpr bool operator==(const Interned&) const = default;

 protected:
  /// Takes over a handle that the table has counted.
  constexpr explicit Interned(std::uint32_t handle) : handle_(handle) {}
  [[nodiscard]] constexpr std::uint32_t handle() const { return handle_; }

 private:
  template <class, class>
  friend class InternTable;
  constexpr void hold() const {
    if (handle_ != 0) ++uses_[handle_];
  }
  constexpr void drop() const {
    if (handle_ != 0 && --uses_[handle_] == 0) Owner::release(handle_);
  }

  /// By handle; the table's own, which is known here so that a copy is no call.
  static inline std::uint32_t* uses_ = nullptr;
  std::uint32_t handle_ = 0;
};

template <class Entry, class Owner>
class InternTable {
 public:
  InternTable() { add({}); }
  InternTable(const InternTable&) = delete;
  InternTable& operator=(const InternTable&) = delete;

  /// Counts as one use.
  [[nodiscard]] std::uint32_t handleOf(std::string_view text) {
    const auto found = handles_.find(text);
    const std::uint32_t handle = found == handles_.end() ? add(text) : found->second;
    ++uses_[handle];
    return handle;
  }
  [[nodiscard]] const Entry& at(std::uint32_t handle) const { return *entries_[handle]; }
  /// The last use has ended.
  void release(std::uint32_t handle) {
    const Entry* const entry = std::exchange(entries_[handle], nullptr);
    handles_.erase(entry->text);
    delete entry;
    free_.push_back(handle);
  }
  /// Texts in use, the empty one included.
  [[nodiscard]] std::size_t size() const { return handles_.size(); }

  /// The process's table of this kind of entry; it outlives every static object.
  static InternTable& instance() {
    static InternTable& table = *new InternTable;
    return table;
  }

 private:
  std::uint32_t add(std::string_view text) {
    if (free_.empty()) {
      free_.push_back(static_cast<std::uint32_t>(entries_.size()));
      entries_.push_back(nullptr);
      uses_.push_back(0);
      Interned<Owner>::uses_ = uses_.data();
    }
    const std::uint32_t handle = free_.back();
    free_.pop_back();
    entries_[handle] = new Entry(text);
    handles_.emplace(entries_[handle]->text, handle);
    return handle;
  }

  std::vector<const Entry*> entries_;
  std::vector<std::uint32_t> uses_;
  std::vector<std::uint32_t> free_;
  std::unordered_map<std::string_view, std::uint32_t> handles_;  // the keys lie in the entries
};

}  // namespace Vesk
