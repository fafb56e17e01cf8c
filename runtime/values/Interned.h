// Texts that stand in the process once and are known by a small number from then on.
// Owns: one entry per text that was ever asked for; entries are never freed and never move.
// Handle 0 is the empty text, in every table.
// Caveat: one thread; handles mean nothing in another process, so nothing is written or ordered by
// them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Vesk {

/// Entry is made from a std::string_view and keeps it as `text`.
template <class Entry>
class InternTable {
 public:
  InternTable() { add({}); }
  InternTable(const InternTable&) = delete;
  InternTable& operator=(const InternTable&) = delete;

  [[nodiscard]] std::uint32_t handleOf(std::string_view text) {
    const auto found = handles_.find(text);
    return found == handles_.end() ? add(text) : found->second;
  }
  [[nodiscard]] const Entry& at(std::uint32_t handle) const { return *entries_[handle]; }

  /// The process's table of this kind of entry; it outlives every static object.
  static InternTable& instance() {
    static InternTable& table = *new InternTable;
    return table;
  }

 private:
  std::uint32_t add(std::string_view text) {
    const auto handle = static_cast<std::uint32_t>(entries_.size());
    entries_.push_back(new Entry(text));
    handles_.emplace(entries_.back()->text, handle);
    return handle;
  }

  std::vector<const Entry*> entries_;
  std::unordered_map<std::string_view, std::uint32_t> handles_;  // the keys lie in the entries
};

}  // namespace Vesk
