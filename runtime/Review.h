// What a machine has to judge anew, a slice at a time: noted by reactors, worked off by a walk or a
// plain task.
//
//   bool FooSm::reviewInputs(Sylva::Slice& slice) {
//     while (const auto place = inputReview_.next()) {
//       const auto row = in.status->row(place->key);
//       if (!row) continue;
//       for (const auto& item : row->itemIteratorFrom(place->item)) {
//         if (!slice.take()) {
//           inputReview_.stopAt({place->key, item});
//           return false;
//         }
//         handleItem(place->key, item);
//       }
//     }
//     return true;  // the round is over
//   }
//
// Owns: the turn of the keys. The noted keys and the bookmark are attributes of the machine, for
// people to see. A key leaves the set when its review begins, so an event that notes it meanwhile
// asks for another look; where a review has stopped it goes on, whatever has been noted since. Keys
// have their turns in one order, and those that come behind the present one wait for the next
// round: no stream of events keeps another key waiting for more than a round.
#pragma once

#include <optional>
#include <utility>

#include "runtime/Record.h"
#include "runtime/Slice.h"

namespace Sylva {

/// A set of keys to review, each with a sequence of items of its own. `SetTag` and `BookmarkTag`
/// are attributes of the machine: VESK_SET(Key, x) and VESK_VALUE(std::optional<Bookmark>, y),
/// where a Bookmark tells its `subject()`, a Key, and the first `item()` of it that is left.
template <class SetTag, class BookmarkTag>
class ReviewSet {
 public:
  using Sm = typename SetTag::Record;
  using Key = typename SetTag::Attr::Key;
  using Bookmark = typename BookmarkTag::Attr::Value::value_type;
  using Item = std::remove_cvref_t<decltype(std::declval<const Bookmark&>().item())>;

  /// Where to go on: the key, and the first item of it that is left, none for all of them.
  struct Place {
    Key key;
    std::optional<Item> item;
  };

  explicit ReviewSet(Sm* machine) : machine_(*machine) {}

  void note(const Key& key) { SetTag::attr(machine_).is(machine_, SetTag::id, key); }
  /// The key is nobody's business any more.
  void forget(const Key& key) {
    SetTag::attr(machine_).del(machine_, SetTag::id, key);
    if (const auto& at = bookmark(); at && at->subject() == key) bookmarkIs({});
  }
  [[nodiscard]] bool isDue() const { return SetTag::attr(machine_).count() != 0 || isUnderWay(); }
  /// A slice has stopped in the middle of a key.
  [[nodiscard]] bool isUnderWay() const { return bookmark().has_value(); }

  /// The next place to review, none when the round is over. What has been noted behind it is due in
  /// the next one.
  [[nodiscard]] std::optional<Place> next() {
    if (const std::optional<Bookmark> at = bookmark()) {
      bookmarkIs({});
      last_ = at->subject();
      return Place{at->subject(), at->item()};
    }
    const auto& map = SetTag::attr(machine_).map();
    auto cursor = last_ ? map.from(*last_) : map.begin();
    if (last_ && !cursor.atEnd() && cursor.key() == *last_) cursor.advance();
    if (cursor.atEnd()) {
      last_.reset();
      return std::nullopt;
    }
    last_ = cursor.key();
    SetTag::attr(machine_).del(machine_, SetTag::id, *last_);
    return Place{*last_, std::nullopt};
  }
  /// The slice is used up; the next one begins with this item.
  void stopAt(Bookmark at) { bookmarkIs(std::move(at)); }

 private:
  [[nodiscard]] const std::optional<Bookmark>& bookmark() const {
    return BookmarkTag::attr(machine_).get();
  }
  void bookmarkIs(std::optional<Bookmark> at) {
    BookmarkTag::attr(machine_).is(machine_, BookmarkTag::id, std::move(at));
  }

  Sm& machine_;
  std::optional<Key> last_;  // of this round
};

/// A pass over one whole collection. `DueTag` and `BookmarkTag` are attributes of the machine:
/// VESK_VALUE(bool, x) and VESK_VALUE(std::optional<Key>, y).
///
///   if (!outputReview_.begins()) return true;
///   for (const auto& row : in.status->rowIteratorFrom(outputReview_.place())) {
///     if (!slice.take()) {
///       outputReview_.stopAt(row.key);
///       return false;
///     }
///     ...
///   }
///   outputReview_.ends();
template <class DueTag, class BookmarkTag>
class ReviewPass {
 public:
  using Sm = typename DueTag::Record;
  using Key = typename BookmarkTag::Attr::Value::value_type;

  explicit ReviewPass(Sm* machine) : machine_(*machine) {}

  /// Asks for a pass, for another one if it is under way.
  void ask() { dueIs(true); }
  [[nodiscard]] bool isDue() const { return DueTag::attr(machine_).get() || isUnderWay(); }
  /// A slice has stopped in the middle of the pass.
  [[nodiscard]] bool isUnderWay() const { return place().has_value(); }
  /// False if there is nothing to do. What asks from here on asks for another pass.
  [[nodiscard]] bool begins() {
    if (isUnderWay()) return true;
    const bool due = DueTag::attr(machine_).get();
    dueIs(false);
    return due;
  }
  /// The first key that is left, none for all of them.
  [[nodiscard]] const std::optional<Key>& place() const {
    return BookmarkTag::attr(machine_).get();
  }
  void stopAt(Key key) { bookmarkIs(std::move(key)); }
  void ends() { bookmarkIs({}); }

 private:
  void dueIs(bool due) { DueTag::attr(machine_).is(machine_, DueTag::id, due); }
  void bookmarkIs(std::optional<Key> at) {
    BookmarkTag::attr(machine_).is(machine_, BookmarkTag::id, std::move(at));
  }

  Sm& machine_;
};

}  // namespace Sylva
