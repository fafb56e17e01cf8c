// Tables that hold one shared handle per distinct value: reference-counted rows.
// Many producers may hold one row; the table's notifiee runs when the first reference is taken and
// when the last is gone. Owns: nothing but the map from value to handle; a handle belongs to those
// who hold it. Caveat: a handle whose last reference has gone is detached; taking it again ends the
// process.
#pragma once

#include <utility>

#include "runtime/Assert.h"
#include "runtime/Entity.h"
#include "runtime/KeyedMap.h"

namespace Sylva {

template <class T>
class DedupTable;

/// The shared handle of one value.
class DedupHandleBase {
 public:
  DedupHandleBase(const DedupHandleBase&) = delete;
  DedupHandleBase& operator=(const DedupHandleBase&) = delete;

 protected:
  DedupHandleBase() = default;
  virtual ~DedupHandleBase() = default;
  /// Runs when the last reference has gone: takes the handle out of the table, then tells the
  /// notifiee.
  virtual void doRemoveFromDedupTable() const = 0;

 private:
  friend void intrusive_ptr_add_ref(const DedupHandleBase* handle) {
    Ombra::assertThat(!handle->detached_, "!detached_");
    ++handle->useCount_;
  }
  friend void intrusive_ptr_release(const DedupHandleBase* handle) {
    if (--handle->useCount_ != 0) return;
    handle->detached_ = true;
    handle->doRemoveFromDedupTable();
    delete handle;
  }

  mutable std::uint32_t useCount_ = 0;
  mutable bool detached_ = false;
};

template <class T>
class DedupHandle final : public DedupHandleBase {
 public:
  [[nodiscard]] const T& value() const { return value_; }

 private:
  friend class DedupTable<T>;
  DedupHandle(Ombra::Ptr<DedupTable<T>> table, T value)
      : table_(std::move(table)), value_(std::move(value)) {}
  void doRemoveFromDedupTable() const override { table_->remove(*this); }

  Ombra::Ptr<DedupTable<T>> table_;
  T value_;
};

/// Who is told of first and last references.
template <class T>
class DedupHashTableLifeTimeNotifiee : public Vesk::Entity {
 public:
  virtual void handleInsert(const DedupHandle<T>& handle) = 0;
  /// The handle is out of the table; its value still reads.
  virtual void handleRemove(const DedupHandle<T>& handle) = 0;
};

template <class T>
class DedupTable : public Vesk::Entity {
 public:
  using Handle = Ombra::Ptr<const DedupHandle<T>>;
  explicit DedupTable(Ombra::Ptr<DedupHashTableLifeTimeNotifiee<T>> notifiee)
      : notifiee_(std::move(notifiee)) {}

  /// The handle of the value; made, and inserted in the notifiee's eyes, if nobody holds one yet.
  [[nodiscard]] Handle dedup(const T& value) {
    if (Handle present = lookup(value)) return present;
    Handle made(new DedupHandle<T>(Ombra::Ptr<DedupTable>(this), value));
    handles_.insert(value, made.get());
    notifiee_->handleInsert(*made);
    return made;
  }
  /// The handle of the value if somebody holds it. The answer is a reference like any other.
  [[nodiscard]] Handle lookup(const T& value) const {
    const DedupHandle<T>* const* held = handles_.find(value);
    return held == nullptr ? nullptr : Handle(*held);
  }
  [[nodiscard]] std::uint32_t size() const { return handles_.size(); }

 private:
  friend class DedupHandle<T>;
  void remove(const DedupHandle<T>& handle) {
    handles_.erase(handle.value());
    notifiee_->handleRemove(handle);
  }

  Ombra::Ptr<DedupHashTableLifeTimeNotifiee<T>> notifiee_;
  Vesk::KeyedMap<T, const DedupHandle<T>*> handles_;
};

}  // namespace Sylva

/// A handle reads and prints as the value that it stands for.
template <class T>
struct Vesk::Leaf<Ombra::Ptr<const Sylva::DedupHandle<T>>> {
  using Value = T;
  using Handle = Ombra::Ptr<const Sylva::DedupHandle<T>>;
  static void toBytes(const Handle& handle, std::string& out) {
    Vesk::toBytes(handle ? handle->value() : T(), out);
  }
  /// Nobody makes a reference out of bytes: this is none.
  static Handle fromBytes(std::string_view& in) {
    (void)Vesk::fromBytes<T>(in);
    return nullptr;
  }
};
