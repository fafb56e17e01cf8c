#include "host/play/MortalStory.h"

#include <algorithm>
#include <thread>
#include <unistd.h>

#include "runtime/Corruption.h"
#include "runtime/Log.h"
#include "runtime/Record.h"

namespace Host {
namespace {

/// In whose turn the writes are heard: after the tables have them and before any of the agent's
/// machines.
class FirstListener final : public Vesk::Machine {
  VESK_LOCAL_RECORD(Host::FirstListener)
};

}  // namespace

/// Counts what is written to one output.
class MortalStory::Writes final : public Vesk::TreeObserver {
 public:
  Writes(MortalStory& story, const Ombra::Ptr<Vesk::Entity>& output)
      : TreeObserver(story.listener_.get()), story_(story) {
    rootIs(output);
  }

 private:
  void valueChanged(const Node&, const Vesk::FieldInfo&, std::string_view) override {
    story_.wrote();
  }
  void entityCame(const Node&) override { story_.wrote(); }
  void entityWent(const Node&) override { story_.wrote(); }
  MortalStory& story_;
};

MortalStory::MortalStory(const Scenario& scenario, std::size_t steps, std::size_t deadlyWrite)
    : scenario_(scenario),
      steps_(steps),
      deadlyWrite_(deadlyWrite),
      world_(scenario.slice),
      listener_(Ombra::make<FirstListener>()) {
  Vesk::logSinkIs([](auto&&...) {});
  VeskSharedMem::corruptionSinkIs([](auto&&...) {});
}

MortalStory::Result MortalStory::tell() {
  std::thread([this] {
    tellFrom(0);
    isOver_.release();
  }).detach();
  isOver_.acquire();
  if (result_.deadIn) {
    takeOver();
    tellFrom(*result_.deadIn + 1);
  }
  result_.end = outputsOf(world_);
  if (isMortal_ && world_.agent().root()) takeOver();
  return std::move(result_);
}

void MortalStory::tellFrom(std::size_t step) {
  for (step_ = step; step_ < steps_; ++step_) {
    act(scenario_.steps[step_]);
    if (scenario_.settlesByItself) rests(world_.run());
  }
  settle();
}

void MortalStory::act(const Step& step) {
  switch (step.kind) {
    case StepKind::write:
      for (const auto& statement : step.statements)
        note(world_.write(statement.address, statement.content));
      break;
    case StepKind::start:
      begin();
      break;
    case StepKind::crash:
      outputs_.clear();
      if (world_.agent().root()) world_.agent().crash();
      break;
    case StepKind::advance:
      stepEnd_ = world_.now() + step.seconds;
      rests(world_.advance(step.seconds));
      break;
    case StepKind::run:
      rests(world_.run(step.slices.value_or(Sylva::TaskScheduler::unlimited)));
      break;
    case StepKind::corrupt:
      for (const Address& address : step.addresses)
        note(world_.corrupt(address));
      break;
    default:
      break;
  }
}

void MortalStory::begin() {
  if (isMortal_) {
    for (const auto& mount : Corvane::mountCatalog())
      if (isOutput(mount)) outputs_.push_back(std::make_unique<Writes>(*this, outputEntity(mount)));
  }
  world_.agent().create();
  world_.agent().begin();
}

void MortalStory::wrote() {
  if (!world_.agent().root() || ++result_.writes != deadlyWrite_) return;
  result_.deadIn = step_;
  isOver_.release();
  for (;;)
    pause();
}

/// Others finish what they were at when the agent died; they may have been in the middle of a row.
void MortalStory::takeOver() {
  isMortal_ = false;
  world_.agent().crash();
  begin();
  settle();
  if (step_ < steps_) {
    const Step& step = scenario_.steps[step_];
    if (step.kind == StepKind::write) act(step);
    if (step.kind == StepKind::advance && stepEnd_ > world_.now())
      rests(world_.advance(stepEnd_ - world_.now()));
    settle();
  }
  result_.settled = outputsOf(world_);
}

void MortalStory::settle() {
  rests(world_.advance(settleTime));
}

void MortalStory::rests(bool atRest) {
  if (!atRest) note({restless});
}

void MortalStory::note(const std::vector<Failure>& failures) {
  result_.failures.insert(result_.failures.end(), failures.begin(), failures.end());
}

}  // namespace Host
