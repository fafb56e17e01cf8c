#include "runtime/Notify.h"

#include <random>
#include <utility>

#include "runtime/Acting.h"
#include "runtime/Machine.h"

namespace Vesk {
namespace {

/// One dispatch in progress. A listener that leaves moves every cursor that stands on it.
struct Dispatch {
  Listener* next = nullptr;
  Dispatch* outer;
  bool moved = false;  // `next` is another one than before the call
};

Dispatch* innermost = nullptr;
std::uint64_t joins = 0;
std::mt19937_64* shuffle = nullptr;

/// Apart, so that a machine that nobody holds does not pay for it.
[[gnu::noinline]] void callHeld(Machine* owner, Listener::Call call, Listener& listener,
                                Ombra::FieldId field, const void* key) {
  const HeldMachine alive(owner);
  call(listener, field, key);
}

}  // namespace

void Afterwards::ask() {
  if (innermost == nullptr) return run();
  if (std::exchange(waits_, true)) return;
  next_ = std::exchange(first_, this);
}

void Afterwards::forget() {
  if (!std::exchange(waits_, false)) return;
  Afterwards** place = &first_;
  while (*place != this)
    place = &(*place)->next_;
  *place = next_;
}

void Afterwards::runAll() {
  while (innermost == nullptr && first_ != nullptr) {
    Afterwards& waiting = *first_;
    waiting.forget();
    waiting.run();
  }
}

void Listener::attach(const Entity* entity) {
  detach();
  if (entity != nullptr) entity->publisher().add(this);
}

void Listener::detach() {
  if (publisher_ != nullptr) publisher_->remove(this);
}

inline bool Listener::hears(Ombra::FieldId field) const {
  return (field_ == field || field_ == anyField) && (owner_ == nullptr || !owner_->zombie());
}

void Publisher::dispatch(Ombra::FieldId field, const void* key) {
  const std::uint64_t present = joins;
  Dispatch self{.outer = innermost};
  innermost = &self;
  struct Leave {
    Dispatch* outer;
    ~Leave() { innermost = outer; }
  } leave{self.outer};
  for (Listener* listener = head_; listener != nullptr;) {
    Listener* next = listener->next_ == head_ ? nullptr : listener->next_;
    if (listener->joined_ <= present && listener->hears(field)) {
      self.next = next;
      Machine* const owner = listener->owner_;
      if (owner == nullptr) {
        listener->call_(*listener, field, key);
      } else if (owner->holder() == nullptr) [[likely]] {
        const Ombra::Ptr<Machine> alive(owner);
        const Acting turn(*owner);
        listener->call_(*listener, field, key);
      } else {
        callHeld(owner, listener->call_, *listener, field, key);
      }
      if (self.moved) [[unlikely]] {
        self.moved = false;
        next = self.next;
      }
    }
    listener = next;
  }
}

void Publisher::add(Listener* listener) {
  listener->publisher_ = this;
  listener->joined_ = ++joins;
  if (head_ == nullptr) {
    head_ = listener->next_ = listener->previous_ = listener;
    return;
  }
  Listener* before = head_;  // in a ring, before the head is behind the last
  bool first = false;
  if (listener->owner_ == nullptr) {
    first = true;
  } else if (shuffle != nullptr) {
    std::uint64_t places = 1;
    Listener* machines = nullptr;
    for (Listener* l = head_;;) {
      if (l->owner_ != nullptr) {
        if (machines == nullptr) machines = l;
        ++places;
      }
      l = l->next_;
      if (l == head_) break;
    }
    if (machines != nullptr) {
      std::uint64_t place = (*shuffle)() % places;
      first = place == 0 && machines == head_;
      before = machines;
      while (place-- > 0)
        before = before->next_;
    }
  }
  listener->next_ = before;
  listener->previous_ = before->previous_;
  before->previous_->next_ = listener;
  before->previous_ = listener;
  if (first) head_ = listener;
}

void Publisher::remove(Listener* listener) {
  Listener* const next = listener->next_;
  for (Dispatch* d = innermost; d != nullptr; d = d->outer)
    if (d->next == listener) {
      d->next = next == head_ ? nullptr : next;
      d->moved = true;
    }
  if (next == listener) {
    head_ = nullptr;
  } else {
    if (head_ == listener) head_ = next;
    next->previous_ = listener->previous_;
    listener->previous_->next_ = next;
  }
  listener->next_ = listener->previous_ = nullptr;
  listener->publisher_ = nullptr;
}

void Publisher::dropAll() {
  while (head_ != nullptr)
    remove(head_);
}

void Publisher::dropMachines() {
  if (head_ == nullptr) return;
  Listener* l = head_;
  for (bool more = true; more && head_ != nullptr;) {
    Listener* const next = l->next_;
    more = next != head_;
    if (l->owner_ != nullptr) remove(l);
    l = next;
  }
}

void Publisher::dropWrites() {
  innermost = nullptr;
  Acting::dropTurns();
  Afterwards::first_ = nullptr;  // the machines that wait are memory of the dead
}

void Publisher::shuffleSeedIs(std::uint64_t seed) {
  delete shuffle;
  shuffle = seed == 0 ? nullptr : new std::mt19937_64(seed);
}

}  // namespace Vesk
