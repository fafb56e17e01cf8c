// The kinds of input stream: rows of a collection, one value, and rows that hold rows.
// Owns: what each row was when it was handled last, which is what a change takes back. A row that
// reads as corrupt changes nothing: its event is given up, and what was derived from it stays.
#pragma once

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "pipeline/InputStateMachine.h"
#include "runtime/Record.h"

namespace Lynthe::Gen {

template <class Tag>
using RowOf = std::remove_pointer_t<decltype(std::declval<typename Tag::Attr::Map&>().find(
    std::declval<typename Tag::Attr::Key>()))>;

/// What two of them share: the scan of a collection, row by row.
template <class Tag>
class CollectionSource : public Source {
 public:
  using Record = typename Tag::Record;
  using Key = typename Tag::Attr::Key;

 protected:
  CollectionSource(InputStateMachine* machine, Ombra::Ptr<const Record> input, unsigned number,
                   std::string_view text)
      : Source(machine, input, Tag::id, number, text), input_(std::move(input)) {}

  [[nodiscard]] const Record& input() const { return *input_; }
  /// The row under this key may have changed. A copy of the key: the row may go meanwhile.
  virtual void handleRow(Key key) = 0;
  void handle(const void* key) override { handleRow(*static_cast<const Key*>(key)); }

 private:
  bool scanRows(Turn& turn) override {
    if (!input_) return true;
    for (auto c = Tag::attr(*input_).map().from(std::exchange(bookmark_, std::nullopt)); !c.atEnd();
         c.advance()) {
      if (!turn.take()) {
        bookmark_ = c.key();
        return false;
      }
      handleRow(c.key());
    }
    return true;
  }

  Ombra::Ptr<const Record> input_;
  std::optional<Key> bookmark_;
};

/// `a.b[]`: an event per row, under the key that `KeyOf` makes of the row's own.
template <class Tag, class EventKey>
class RowSource final : public CollectionSource<Tag> {
  using Base = CollectionSource<Tag>;

 public:
  using typename Base::Key;
  using typename Base::Record;
  using Row = RowOf<Tag>;
  using Event = Change<EventKey, Row>;
  using KeyOf = std::function<EventKey(const Key&)>;

  RowSource(InputStateMachine* machine, Ombra::Ptr<const Record> input, unsigned number,
            std::string_view text, InputStream<Event> stream, KeyOf keyOf)
      : Base(machine, std::move(input), number, text),
        stream_(std::move(stream)),
        keyOf_(std::move(keyOf)) {}

  void doDeleteAll() override {
    for (const Key& key : handled_.keys())
      change(key, std::nullopt);
  }
  void replay() override {
    for (const Key& key : handled_.keys())
      if (const Row* row = handled_.find(key)) change(key, *row);
  }

 private:
  void handleRow(Key key) override {
    const auto& rows = Tag::attr(this->input());
    if (rows.damaged(this->input(), key)) return;
    const Row* row = rows.map().find(key);
    change(key, row == nullptr ? std::nullopt : std::optional<Row>(*row));
  }
  void change(const Key& key, std::optional<Row> now) {
    Row* const last = handled_.find(key);
    Event event{keyOf_(key), last == nullptr ? std::nullopt : std::optional<Row>(*last),
                std::move(now)};
    if (!event.now) {
      if (!handled_.erase(key)) return;
    } else if (last != nullptr) {
      *last = *event.now;
    } else {
      handled_.insert(key, *event.now);
    }
    this->emitted(stream_, event);
  }

  InputStream<Event> stream_;
  KeyOf keyOf_;
  Vesk::KeyedMap<Key, Row> handled_;
};

/// `a[].b`, where b is a value: one event, under the key of a.
template <class Tag, class EventKey>
class ValueSource final : public Source {
 public:
  using Record = typename Tag::Record;
  using Value = typename Tag::Attr::Value;
  using Event = Change<EventKey, Value>;

  ValueSource(InputStateMachine* machine, Ombra::Ptr<const Record> input, unsigned number,
              std::string_view text, InputStream<Event> stream, EventKey key)
      : Source(machine, input, Tag::id, number, text),
        input_(std::move(input)),
        stream_(std::move(stream)),
        key_(std::move(key)) {}

  void doDeleteAll() override { change(std::nullopt); }
  void replay() override { handle(nullptr); }

 private:
  bool scanRows(Turn& turn) override {
    if (!turn.take()) return false;
    handle(nullptr);
    return true;
  }
  void handle(const void*) override { change(Tag::attr(*input_).get()); }
  void change(std::optional<Value> now) {
    emitted(stream_, Event{key_, std::exchange(handled_, now), now});
  }

  Ombra::Ptr<const Record> input_;
  InputStream<Event> stream_;
  EventKey key_;
  std::optional<Value> handled_;
};

/// `a[].b[]`: a machine per row of a, which `Populate` gives the streams of its inner collections.
template <class Tag>
class NestedSource final : public CollectionSource<Tag> {
  using Base = CollectionSource<Tag>;

 public:
  using typename Base::Key;
  using typename Base::Record;
  using Row = Ombra::Ptr<typename Tag::Attr::Target const>;
  using Populate = std::function<void(InputStateMachine&, const Key&, const Row&)>;

  NestedSource(InputStateMachine* machine, Ombra::Ptr<const Record> input, unsigned number,
               std::string_view text, std::string rowName, Populate populate)
      : Base(machine, std::move(input), number, text),
        rowName_(std::move(rowName)),
        populate_(std::move(populate)) {}

  void doDeleteAll() override {
    for (const Key& key : rows_.keys())
      drop(key);
  }
  void replay() override {
    for (const auto& [key, child] : this->machine().childSm())
      child->replay();
  }

 private:
  void handle(const void* key) override {
    Base::handle(key);
    this->machine().scanDone();  // a row that was not through yet may have gone
  }
  void handleRow(Key key) override {
    InputStateMachine& machine = this->machine();
    const Row row = Tag::attr(this->input()).get(key);
    if (const Row* present = rows_.find(key); present != nullptr && *present != row) drop(key);
    if (!row) return;
    if (!rows_.has(key)) {
      rows_.insert(key, row);
      const auto child = Ombra::make<InputStateMachine>(machine.root(), this, rowName_);
      populate_(*child, key, row);
      machine.childSmIs(keyText(key), child);
    }
    machine.childSm().at(keyText(key))->doInputScan();
  }
  void drop(const Key& key) {
    if (!rows_.erase(key)) return;
    InputStateMachine& machine = this->machine();
    machine.childSm().at(keyText(key))->doDeleteAll();
    machine.childSmDel(keyText(key));
  }

  std::string rowName_;
  Populate populate_;
  Vesk::KeyedMap<Key, Row> rows_;
};

}  // namespace Lynthe::Gen
