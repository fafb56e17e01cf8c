// A collection that a pipeline writes, and what becomes of the rows that its predecessor left.
// Owns: the keys that have been written since the start, until the inputs have been scanned once.
// Then a reconciliation deletes the rows that no scan has produced, and the output is ready; who
// reads the table has seen no gap. Writes: the collection, only where a row differs. The keys, the
// bookmark and the ready flag are attributes of the pipeline, for people to see:
//
//   LYNTHE_OUTPUT(Bridging::VlanId, mcastIrbStatusVlanToSbd)
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "pipeline/Pipeline.h"

#define LYNTHE_OUTPUT(KEY, NAME)                             \
  VESK_SET(KEY, NAME##OutputSeen)                            \
  VESK_VALUE(bool, NAME##OutputReconciling, true)            \
  VESK_VALUE(std::optional<KEY>, NAME##OutputBookmark)       \
  VESK_VALUE(bool, NAME##OutputUseBookmark)                  \
  struct NAME##Progress {                                    \
    using Seen = NAME##OutputSeenTag;                        \
    using Reconciling = NAME##OutputReconcilingTag;          \
    using Bookmark = NAME##OutputBookmarkTag;                \
    using UseBookmark = NAME##OutputUseBookmarkTag;          \
    static constexpr std::string_view name = #NAME "Output"; \
  };

namespace Lynthe {

template <class Tag, class Progress>
class Output final : public OutputBase {
 public:
  using Record = typename Tag::Record;
  using Key = typename Tag::Attr::Key;
  using Row = typename Tag::Attr::Value;
  using Sm = typename Progress::Seen::Record;

  /// `text` is the literal text of the output step.
  Output(Sm* sm, Ombra::Ptr<Record> record, Tag, Progress, std::string_view text, Flag ready)
      : OutputBase(sm, Progress::name, ready), sm_(*sm), record_(std::move(record)), text_(text) {}

  /// The row under the key; none removes it.
  void into(const Key& key, const std::optional<Row>& row) {
    if (!row) {
      if (!isReady()) Progress::Seen::attr(sm_).del(sm_, Progress::Seen::id, key);
      if (auto t = sm_.trace().at(8)) t << text_ << ": deleting k1=" << Vesk::textOf(key);
      Tag::attr(*record_).del(*record_, Tag::id, key);
      return;
    }
    if constexpr (Vesk::hasKeyMember<Row>()) {
      if (!(Vesk::keyOf(*row) == key)) [[unlikely]]
        Ombra::fatal(
            fmt::format("In \"{}\" the value inserted in the into statement has internal "
                        "key: {}, but the key specified in the into is: {}",
                        text_, Vesk::textOf(Vesk::keyOf(*row)), Vesk::textOf(key)));
    }
    if (!isReady()) Progress::Seen::attr(sm_).is(sm_, Progress::Seen::id, key);
    if (auto t = sm_.trace().at(8))
      t << text_ << ": inserting k1=" << Vesk::textOf(key) << ", value=" << Vesk::textOf(*row);
    Tag::attr(*record_).is(*record_, Tag::id, key, *row);
  }

 private:
  bool reconcileRows(Gen::Turn& turn, std::size_t& deleted) override {
    const auto from = Progress::Bookmark::attr(sm_).get();
    bookmarkIs(std::nullopt);
    for (auto c = Tag::attr(*record_).map().from(from); !c.atEnd(); c.advance()) {
      if (!turn.take()) {
        bookmarkIs(c.key());
        return false;
      }
      const Key key = c.key();
      if (Progress::Seen::attr(sm_).has(key)) continue;
      Tag::attr(*record_).del(*record_, Tag::id, key);
      ++deleted;
    }
    Progress::Seen::attr(sm_).delAll(sm_, Progress::Seen::id);
    Progress::Reconciling::attr(sm_).is(sm_, Progress::Reconciling::id, false);
    return true;
  }
  void bookmarkIs(std::optional<Key> key) {
    Progress::UseBookmark::attr(sm_).is(sm_, Progress::UseBookmark::id, key.has_value());
    Progress::Bookmark::attr(sm_).is(sm_, Progress::Bookmark::id, std::move(key));
  }

  Sm& sm_;
  Ombra::Ptr<Record> record_;
  std::string_view text_;
};

}  // namespace Lynthe
