#include "host/play/Oracles.h"

#include <memory>

#include <fmt/format.h>

#include "host/play/Outputs.h"
#include "runtime/Machine.h"

namespace Host {
namespace {

void collectMachines(Vesk::Entity& entity, std::vector<Ombra::Ptr<Vesk::Machine>>& machines) {
  if (auto* machine = dynamic_cast<Vesk::Machine*>(&entity)) machines.emplace_back(machine);
  for (const Vesk::FieldInfo* field : entity.recordType().fields())
    if (field->owns())
      field->forEachChild(
          entity, [&](std::string_view, Vesk::Entity& child) { collectMachines(child, machines); });
}

}  // namespace

bool Oracles::ask() {
  std::vector<Failure> rest;
  if (!world_.advance(settleTime)) rest.push_back(restless);
  bool well = answered("rest", rest);
  const bool runs = world_.agent().root() != nullptr;
  if (runs && !scenario_.oraclesOff.contains("review")) well = answered("review", review()) && well;
  // What the restart brings up is its own affair, so it is asked for before the crash.
  const std::vector<Failure> leftovers = recorder_.leftovers();
  recorder_.deaf();
  if (runs && !scenario_.oraclesOff.contains("restart"))
    well = answered("restart", restart()) && well;
  if (!scenario_.oraclesOff.contains("leftovers")) well = answered("leftovers", leftovers) && well;
  report_.oraclesEnd();
  return well;
}

bool Oracles::answered(const std::string& name, const std::vector<Failure>& failures) {
  report_.oracle(scenario_, name, failures);
  return failures.empty();
}

std::vector<Failure> Oracles::review() {
  const Outputs before = outputsOf(world_);
  std::vector<Ombra::Ptr<Vesk::Machine>> machines;
  collectMachines(*world_.agent().root(), machines);
  for (const auto& machine : machines)
    if (machine->hasNotificationActive()) machine->review();
  if (!world_.run()) return {restless};
  return differences(before, outputsOf(world_));
}

std::vector<Failure> Oracles::restart() {
  const Outputs before = outputsOf(world_);
  recorder_.detachAgent();
  world_.agent().crash();
  std::vector<Failure> failures;
  std::vector<std::unique_ptr<Watch>> watches;
  for (const auto& mount : Corvane::mountCatalog()) {
    if (!isOutput(mount) || mount.store() == Corvane::Store::stateDb) continue;
    watches.push_back(
        std::make_unique<Watch>(world_, Address::parse(mount.path), [&](const Watch::Lines& lines) {
          for (const std::string& line : lines())
            failures.push_back({mount.path, "no write on the way", line});
        }));
    watches.back()->attach();
  }
  world_.agent().create();
  world_.agent().begin();
  if (!world_.advance(settleTime)) failures.push_back(restless);
  for (Failure& failure : differences(before, outputsOf(world_)))
    failures.push_back(std::move(failure));
  return failures;
}

}  // namespace Host
