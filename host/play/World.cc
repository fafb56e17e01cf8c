#include "host/play/World.h"

#include <algorithm>

#include <fmt/format.h>

#include "host/EventLoop.h"
#include "runtime/Dir.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace Host {
namespace {

using Vesk::Entity;
using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;

/// More turns than any table needs: beyond it two tasks feed each other for ever.
constexpr std::size_t turnLimit = 20'000'000;

std::string joined(const std::string& path, std::string_view key) {
  return path + "/" + Vesk::fromBytes<std::string>(key);
}

/// Played time that has begun to run.
class RunningClock final : public Vesk::Clock {
 public:
  explicit RunningClock(double start) : offset_(start - real_.now()) {}
  [[nodiscard]] double now() const override { return real_.now() + offset_; }

 private:
  Vesk::RealClock real_;
  double offset_;
};

VeskSharedMem::EntityManager& tables() {
  return *VeskSharedMem::EntityManager::getEntityManager();
}

}  // namespace

World::World(std::size_t slice)
    : yield_(slice), scheduler_(Sylva::TaskSchedulerRoot::findOrCreateScheduler()) {
  Vesk::System::clockIs(&clock_);
  scheduler_->yieldPolicyIs(&yield_);
}

bool World::run(std::size_t slices) {
  const std::size_t limit = std::min(slices, turnLimit);
  std::size_t done = 0;
  for (; done < limit && scheduler_->runOne(); ++done)
    tables().wakeReaders();
  return done < turnLimit;
}

bool World::advance(double seconds) {
  const double target = clock_.now() + seconds;
  for (;;) {
    if (!run()) return false;
    const double next = scheduler_->nextExpiry();
    if (next > target) break;
    clock_.advanceTo(std::max(next, clock_.now()));
    scheduler_->fireExpired(clock_.now());
  }
  clock_.advanceTo(target);
  return true;
}

void World::stay(const std::function<bool()>& isOver) {
  const RunningClock clock(clock_.now());
  Vesk::System::clockIs(&clock);
  tables().leaveToOthers();
  EventLoop().run(isOver);
  clock_.advanceTo(clock.now());
  Vesk::System::clockIs(&clock_);
  scheduler_->yieldPolicyIs(&yield_);
}

Ombra::Ptr<Entity> World::root(const Address& address) const {
  if (address.inProcess) return agent_.root();
  if (address.shared) return tables().peek(address.path, address.rootType->name());
  return Halden::StateDatabase::instance().find(address.path);
}

Found World::find(const Address& address) const {
  Found found;
  Ombra::Ptr<Entity> at = root(address);
  if (!at && !address.inProcess && pathInfo(address.path)->fixed)
    at = blankEntity(*address.rootType);
  for (const AddressStep& step : address.steps) {
    found.holder = at;
    found.field = step.field;
    if (!step.leadsToEntity() || !at) {
      at = nullptr;
      continue;
    }
    at = step.key ? step.field->child(*at, *step.key) : step.field->child(*at);
  }
  if (address.entityType() != nullptr) found.entity = at;
  return found;
}

std::vector<Failure> World::write(const Address& address, const Content& patch) {
  failures_.clear();
  writing_ = address.text();
  if (address.steps.empty() && !address.inProcess) {
    writePath(address.path, patch);
    return std::move(failures_);
  }
  const bool deletes = patch.kind == Content::Kind::absent;
  Ombra::Ptr<Entity> at =
      address.shared ? tables().open(address.path, address.rootType->name()) : root(address);
  if (!at && !deletes && !address.inProcess) {
    Content present;
    present.kind = Content::Kind::entity;
    writePath(address.path, present);
    at = root(address);
  }
  if (!at) {
    if (!deletes) cannot("nothing is there to be written to");
    return std::move(failures_);
  }
  if (address.steps.empty()) {
    patchEntity(*at, {}, patch);
    return std::move(failures_);
  }
  for (std::size_t i = 0; i + 1 < address.steps.size(); ++i) {
    const AddressStep& step = address.steps[i];
    const std::string key = step.key.value_or(std::string());
    const auto child = [&] {
      return step.key ? step.field->child(*at, key) : step.field->child(*at);
    };
    Ombra::Ptr<Entity> next = child();
    if (!next) {
      if (deletes) return std::move(failures_);
      Content present;
      present.kind = Content::Kind::entity;
      patchChild(*at, *step.field, key, present);
      next = child();
      if (!next) return std::move(failures_);
    }
    at = next;
  }
  const AddressStep& last = address.steps.back();
  Content whole = patch;
  for (std::size_t i = address.members.size(); i-- > 0;) {
    Content row;
    row.kind = Content::Kind::row;
    row.row.emplace_back(address.members[i], std::move(whole));
    whole = std::move(row);
  }
  if (last.key) {
    patchEntry(*at, *last.field, *last.key, address.path, whole);
  } else {
    patchField(*at, *last.field, address.path, whole);
  }
  return std::move(failures_);
}

void World::writePath(const std::string& path, const Content& patch) {
  const auto info = pathInfo(path);
  auto& database = Halden::StateDatabase::instance();
  if (info->shared) {
    return patchEntity(*tables().open(path, info->type->name()), path, patch);
  }
  Ombra::Ptr<Entity> present = database.find(path);
  if (patch.kind == Content::Kind::absent) {
    if (!present) return;
    if (info->fixed) {
      patchEntity(*present, path, patch);
    } else {
      database.remove(path);
    }
    return;
  }
  if (patch.whole && !info->fixed && info->type != &Vesk::Dir::veskType()) {
    const std::size_t slash = path.rfind('/');
    const auto above = database.create(path.substr(0, slash), "Vesk::Dir");
    auto* dir = dynamic_cast<Vesk::Dir*>(above.get());
    if (dir == nullptr)
      return cannot(fmt::format("{} lies below something that is no directory", path));
    const auto entity = made(*info->type, {});
    if (!entity) return;
    Vesk::identityIs(*entity, path);
    patchEntity(*entity, path, patch);
    dir->createEntity(entity, path.substr(slash + 1));
    return;
  }
  if (!present) present = database.create(path, info->type->name());
  if (!present) return cannot(fmt::format("{} cannot be made", path));
  patchEntity(*present, path, patch);
}

void World::patchEntity(Entity& entity, const std::string& path, const Content& patch) {
  if (patch.kind == Content::Kind::absent) {
    for (const FieldInfo* field : entity.recordType().fields())
      if (!isIdentity(*field)) patchField(entity, *field, path, patch);
    return;
  }
  for (const auto& [field, content] : patch.fields)
    patchField(entity, *field, path, content);
}

void World::patchField(Entity& entity, const FieldInfo& field, const std::string& path,
                       const Content& patch) {
  const bool deletes = patch.kind == Content::Kind::absent;
  if (field.isKey) return;
  if (field.kind == FieldKind::value) {
    if (deletes) {
      field.reset(entity);
    } else {
      field.set(entity, mergedRow(*field.valueType, field.get(entity), patch));
    }
    return;
  }
  if (deletes && isDirectoryField(field)) {
    for (const std::string& key : field.keys(entity))
      writePath(joined(path, key), patch);
    return;
  }
  if (deletes) return field.reset(entity);
  if (!field.isCollection()) return patchChild(entity, field, {}, patch);
  for (const auto& [key, content] : patch.entries)
    patchEntry(entity, field, key, path, content);
}

void World::patchEntry(Entity& entity, const FieldInfo& field, const std::string& key,
                       const std::string& path, const Content& patch) {
  if (isDirectoryField(field)) return writePath(joined(path, key), patch);
  if (patch.kind == Content::Kind::absent) return field.del(entity, key);
  switch (field.kind) {
    case FieldKind::valueSet:
      return field.add(entity, key);
    case FieldKind::instanceMap:
      return patchChild(entity, field, key, patch);
    default:
      break;
  }
  const bool readable = field.has(entity, key) && !field.corrupt(entity, key);
  const std::string base = readable ? field.get(entity, key) : field.valueType->defaultBytes();
  field.set(entity, key, mergedRow(*field.valueType, base, patch));
}

void World::patchChild(Entity& owner, const FieldInfo& field, const std::string& key,
                       const Content& patch) {
  const auto child = [&] {
    return field.isCollection() ? field.child(owner, key) : field.child(owner);
  };
  const Ombra::Ptr<Entity> present = child();
  if (present && !patch.whole) return patchEntity(*present, {}, patch);
  const auto entity = made(field.targetType(), key);
  if (!entity) return;
  if (patch.whole) patchEntity(*entity, {}, patch);
  if (!field.adopt(owner, key, entity))
    return cannot(fmt::format("{} takes no entity", field.name));
  // Whoever hears of it may have put another one in its place.
  if (!patch.whole)
    if (const auto now = child()) patchEntity(*now, {}, patch);
}

Ombra::Ptr<Entity> World::made(const RecordType& type, const std::string& key) {
  if (!type.canMake()) {
    cannot(fmt::format("a {} cannot be made by a scenario", type.name()));
    return nullptr;
  }
  return type.make(key);
}

void World::cannot(const std::string& text) {
  failures_.push_back({writing_, "a write", text});
}

std::vector<Failure> World::corrupt(const Address& address) {
  const Found found = find(address);
  const AddressStep& last = address.steps.back();
  if (!found.holder || !last.field->has(*found.holder, *last.key))
    return {{address.text(), "an entry to mark", "absent"}};
  tables().corruptIs(*found.holder, *last.field, *last.key, true);
  if (!last.field->corrupt(*found.holder, *last.key))
    return {{address.text(), "an entry of a shared table", "another"}};
  return {};
}

}  // namespace Host
