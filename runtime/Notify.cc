#include "runtime/Notify.h"

#include <random>

#include "runtime/Machine.h"

namespace Vesk {
namespace {

/// One dispatch in progress. A listener that leaves moves every cursor that stands on it.
struct Dispatch {
  Listener* next;
  Dispatch* outer;
};

Dispatch* innermost = nullptr;
std::uint64_t events = 0;
std::mt19937_64* shuffle = nullptr;

}  // namespace

void Listener::attach(const Entity* entity) {
  detach();
  if (entity != nullptr) entity->publisher().add(this);
}

void Listener::detach() {
  if (publisher_ != nullptr) publisher_->remove(this);
}

void Listener::fire(Ombra::FieldId field, const void* key) {
  if (owner_ == nullptr) {
    call_(*this, field, key);
    return;
  }
  if (owner_->zombie()) return;
  const Ombra::Ptr<Machine> alive(owner_);
  call_(*this, field, key);
}

void Publisher::dispatch(Ombra::FieldId field, const void* key) {
  const std::uint64_t event = ++events;
  Dispatch self{head_, innermost};
  innermost = &self;
  struct Leave {
    Dispatch* outer;
    ~Leave() { innermost = outer; }
  } leave{self.outer};
  while (Listener* listener = self.next) {
    self.next = listener->next_ == head_ ? nullptr : listener->next_;
    if ((listener->field_ == field || listener->field_ == Listener::anyField) &&
        listener->joined_ < event)
      listener->fire(field, key);
  }
}

void Publisher::add(Listener* listener) {
  listener->publisher_ = this;
  listener->joined_ = events;
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
    if (d->next == listener) d->next = next == head_ ? nullptr : next;
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

void Publisher::shuffleSeedIs(std::uint64_t seed) {
  delete shuffle;
  shuffle = seed == 0 ? nullptr : new std::mt19937_64(seed);
}

}  // namespace Vesk
