#include "runtime/PathWatch.h"

namespace Vesk {

PathWatch::Step::Step(PathWatch* of, std::size_t at)
    : Listener(of->owner_, of->type_.steps[at].field, &PathWatch::heard),
      path(of),
      index(at),
      next(at + 1 == of->type_.length ? nullptr : std::make_unique<Step>(of, at + 1)) {}

PathWatch::PathWatch(Machine* owner, const Entity* root, const PathType& type)
    : Part(owner), type_(type), owner_(owner), isOwn_(root == owner), first_(this, 0) {
  if (!isOwn_) first_.object = root;
  bind(first_);
}

void PathWatch::heard(Listener& self, Ombra::FieldId, const void* key) {
  auto& step = static_cast<Step&>(self);
  PathWatch& path = *step.path;
  if (step.next) {
    path.replace(*step.next, path.type_.steps[step.index].target(*path.standsOn(step)));
  } else {
    path.type_.run(*path.owner_, key);
  }
}

void PathWatch::replace(Step& step, Ombra::Ptr<const Entity> object) {
  const Ombra::Ptr<const Entity> old = last().object;
  step.object = std::move(object);
  bind(step);
  const Ombra::Ptr<const Entity> now = last().object;
  if (old == now || type_.runReplaced == nullptr) return;
  if (owner_->hasNotificationActive() && !owner_->zombie()) {
    const HeldMachine alive(owner_);
    type_.runReplaced(*owner_, old, now);
  }
}

void PathWatch::bind(Step& step) {
  const Entity* const object = standsOn(step);
  step.attach(owner_->hasNotificationActive() ? object : nullptr);
  if (!step.next) return;
  step.next->object = object == nullptr ? nullptr : type_.steps[step.index].target(*object);
  bind(*step.next);
}

const Entity* PathWatch::standsOn(const Step& step) const {
  return isOwn_ && step.index == 0 ? owner_ : step.object.get();
}

PathWatch::Step& PathWatch::last() {
  Step* step = &first_;
  while (step->next)
    step = step->next.get();
  return *step;
}

void PathWatch::activeIs(bool) {
  bind(first_);
}

}  // namespace Vesk
