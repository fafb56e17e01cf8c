#include "host/play/Player.h"

#include <fmt/format.h>

#include "host/Interrupt.h"
#include "host/play/ExplainStep.h"
#include "host/play/Matcher.h"
#include "host/play/Shown.h"
#include "runtime/Corruption.h"
#include "runtime/Log.h"
#include "runtime/SharedMem.h"

namespace Host {
namespace {

void append(std::vector<Failure>& failures, std::vector<Failure> more) {
  for (Failure& failure : more)
    failures.push_back(std::move(failure));
}

/// A step that expects something, and does nothing.
bool isQuestion(StepKind kind) {
  switch (kind) {
    case StepKind::expect:
    case StepKind::equal:
    case StepKind::changes:
    case StepKind::writes:
    case StepKind::logs:
    case StepKind::corruptions:
    case StepKind::explain:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool Player::play() {
  for (std::size_t i = 0; i < scenario_.steps.size(); ++i) {
    begins_(i);
    Told told;
    std::vector<Failure> failures = run(scenario_.steps[i], told);
    VeskSharedMem::EntityManager::getEntityManager()->wakeReaders();
    if (scenario_.settlesByItself && !world_.run()) failures.push_back(restless);
    if (wiring_) wiring_->rests();
    told.logs = recorder_.takeTold();
    report_.step(scenario_, i, world_.now(), failures, told);
    if (!failures.empty()) return false;
  }
  if (scenario_.aborts) return true;
  if (stays_) {
    stay();
    return true;
  }
  begins_(scenario_.steps.size());
  return Oracles(world_, recorder_, scenario_, report_).ask();
}

std::vector<Failure> Player::run(const Step& step, Told& told) {
  std::vector<Failure> failures = done(step, told);
  if (!asks_ && isQuestion(step.kind)) failures.clear();
  return failures;
}

std::vector<Failure> Player::done(const Step& step, Told& told) {
  std::vector<Failure> failures;
  switch (step.kind) {
    case StepKind::write:
      for (const auto& statement : step.statements)
        append(failures, world_.write(statement.address, statement.content));
      break;
    case StepKind::start:
      start();
      break;
    case StepKind::crash:
      crash();
      break;
    case StepKind::advance:
      if (!world_.advance(step.seconds)) failures.push_back(restless);
      break;
    case StepKind::run:
      if (!world_.run(step.slices.value_or(Sylva::TaskScheduler::unlimited)))
        failures.push_back(restless);
      break;
    case StepKind::expect:
      return compare(step, false);
    case StepKind::equal:
      return compare(step, true);
    case StepKind::record:
      recorder_.record(step.addresses);
      break;
    case StepKind::changes:
      failures = recorder_.takeChanges(step, told.changes);
      if (!failures.empty()) told.changes.clear();  // the failure tells them
      break;
    case StepKind::writes:
      return recorder_.takeWrites(step);
    case StepKind::logs:
      return recorder_.takeLogs(step);
    case StepKind::corrupt:
      for (const Address& address : step.addresses)
        append(failures, world_.corrupt(address));
      break;
    case StepKind::corruptions:
      return recorder_.takeCorruptions(step);
    case StepKind::explain:
      told.shown.push_back(
          shownExplanation(step.explained, world_.agent().explain(step.explained)));
      return unsaid(told.shown.back(), step.says);
    case StepKind::show:
      for (const Address& address : step.addresses)
        told.shown.push_back(show(world_, address, report_.style()));
      break;
  }
  return failures;
}

std::vector<Failure> Player::compare(const Step& step, bool exact) {
  std::vector<Failure> failures;
  for (const auto& statement : step.statements)
    append(failures, Matcher(exact).compare(world_, statement.address, statement.content));
  return failures;
}

/// The closing questions are not asked: what others write is no part of the story.
void Player::stay() {
  recorder_.detachAgent();
  Vesk::logSinkIs({});
  VeskSharedMem::corruptionSinkIs([](const std::string& table, const std::string& text) {
    fmt::print(stderr, "{}: {}\n", table, text);
  });
  endOnInterrupt();
  report_.stays(VeskSharedMem::EntityManager::directory());
  world_.stay(isInterrupted);
}

void Player::start() {
  recorder_.countsReset();
  world_.agent().create();
  recorder_.attachAgent();
  if (wiring_) wiring_->agentBegins();
  world_.agent().begin();
}

void Player::crash() {
  if (!world_.agent().root()) return;
  recorder_.detachAgent();
  world_.agent().crash();
  recorder_.attachAll();
}

}  // namespace Host
