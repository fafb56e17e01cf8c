#include "runtime/Machine.h"

#include <vector>

#include "runtime/Assert.h"
#include "runtime/Reflect.h"

namespace Vesk {
namespace {

/// The machines that this one owns, held so that any of them may go meanwhile.
std::vector<Ombra::Ptr<Machine>> ownedMachines(const Machine& machine) {
  std::vector<Ombra::Ptr<Machine>> owned;
  for (const FieldInfo* field : machine.recordType().fields()) {
    if (!field->owns() || !field->targetType().isMachine()) continue;
    field->forEachChild(machine, [&](std::string_view, Entity& child) {
      owned.emplace_back(static_cast<Machine*>(&child));
    });
  }
  return owned;
}

}  // namespace

const RecordType* Acting::type() {
  if (innermost_ == nullptr) return nullptr;
  return innermost_->machine_ == nullptr ? &innermost_->type_()
                                         : &innermost_->machine_->worker().recordType();
}

Part::Part(Machine* owner) : machine_(owner), previousPart_(this) {
  Part*& first = owner->parts_;
  if (first == nullptr) {
    first = this;
    return;
  }
  previousPart_ = first->previousPart_;
  previousPart_->nextPart_ = this;
  first->previousPart_ = this;
}

Part::~Part() {
  Part*& first = machine_->parts_;
  (nextPart_ == nullptr ? first : nextPart_)->previousPart_ = previousPart_;
  (first == this ? first : previousPart_->nextPart_) = nextPart_;
}

Watch::Watch(Machine* owner, Ombra::Ptr<const Entity> input, Ombra::FieldId field,
             Listener::Call call)
    : Part(owner), listener_(owner, field, call), input_(std::move(input)) {
  Watch::activeIs(owner->hasNotificationActive());
}

void Watch::activeIs(bool active) {
  if (active) {
    listener_.attach(input_.get());
  } else {
    listener_.detach();
  }
}

void Machine::hasNotificationActiveIs(bool active) {
  if (active_ == active) return;
  active_ = active;
  for (Part* part = parts_; part != nullptr; part = part->nextPart_)
    part->activeIs(active);
  for (const auto& owned : ownedMachines(*this))
    owned->hasNotificationActiveIs(active);
}

void Machine::reviewAll() {
  const Ombra::Ptr<Machine> alive(this);
  {
    const Acting turn(*this);
    review();
  }
  for (const auto& owned : ownedMachines(*this))
    owned->reviewAll();
}

void Machine::lastUserGone() {
  const Acting turn(*this);
  hasNotificationActiveIs(false);
  handleCleanup();
  letGoOfOwned();
}

/// In the reverse order of declaration, as members would go; machines before what they work on.
void Machine::letGoOfOwned() {
  const auto& fields = recordType().fields();
  for (const bool machines : {true, false})
    for (auto field = fields.rbegin(); field != fields.rend(); ++field)
      if ((*field)->owns() && (*field)->targetType().isMachine() == machines)
        (*field)->reset(*this);
}

MakingTurns::Begun::Begun(MakingTurns& turns, Link& turn) : turns_(turns) {
  turn.outer = turns.innermost_;
  turns.innermost_ = &turn;
}

MakingTurns::Begun::~Begun() {
  turns_.innermost_ = turns_.innermost_->outer;
}

void HeldMachine::tooDeep() {
  Ombra::fatal("machines hold each other more than 16 deep");
}

}  // namespace Vesk
