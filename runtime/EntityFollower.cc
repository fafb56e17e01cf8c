#include "runtime/EntityFollower.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "runtime/Corruption.h"

namespace VeskSharedMem {

EntityFollower::EntityFollower(Ombra::Ptr<Vesk::Entity> entity, const std::vector<RowFile>& files)
    : entity_(std::move(entity)) {
  for (const RowFile& layout : files)
    files_.push_back({&layout, nullptr});
}

void EntityFollower::findFiles(const Refusal& refused) {
  // The files of a table lie in one directory, and many tables have none at all.
  const bool canBeThere =
      !files_.empty() &&
      std::filesystem::exists(std::filesystem::path(files_.front().layout->file).parent_path());
  for (std::size_t number = 0; number < files_.size(); ++number) {
    OtherFile& file = files_[number];
    const bool isReplaced = file.follower && file.follower->reader().isReplaced();
    if (file.follower && !isReplaced) continue;
    std::unique_ptr<TableReader> reader;
    try {
      if (canBeThere) reader = readerOf(file);
      file.isRefused = false;
    } catch (const TableError& error) {
      if (!std::exchange(file.isRefused, true)) refused(error);
    }
    if (reader && file.follower) {
      file.follower->readerIs(std::move(reader));
    } else if (reader) {
      file.follower = std::make_unique<RowFollower>(std::move(reader));
    } else if (file.follower) {
      letGo(number);
    }
  }
}

std::unique_ptr<TableReader> EntityFollower::readerOf(const OtherFile& file) {
  if (!std::filesystem::exists(file.layout->file)) return nullptr;
  return VeskSharedMem::readerOf(file.layout->file, file.layout->shape);
}

void EntityFollower::letGo(std::size_t number) {
  OtherFile& file = files_[number];
  file.follower->forEachKnown([&](std::string_view key) {
    due_.push_back({number, RowState::missing, std::string(key), {}});
  });
  file.follower.reset();
  // Their entities go, and their own files say nothing of it.
  forEachBelow(file, [](OtherFile& below) { below.hasOrphans = true; });
}

template <class F>
void EntityFollower::forEachBelow(const OtherFile& parent, F f) {
  const auto& above = parent.layout->chain;
  for (OtherFile& file : files_) {
    const auto& chain = file.layout->chain;
    if (chain.size() > above.size() && std::equal(above.begin(), above.end(), chain.begin()))
      f(file);
  }
}

void EntityFollower::skipPresent() {
  for (OtherFile& file : files_)
    if (file.follower) file.follower->follow([](auto...) {});
}

bool EntityFollower::hasChanges() const {
  return !due_.empty() || std::any_of(files_.begin(), files_.end(), [](const OtherFile& file) {
    return file.follower && file.follower->hasNews();
  });
}

bool EntityFollower::takeUp(const std::function<bool()>& mustStop) {
  if (due_.empty()) readChanges();
  while (!due_.empty()) {
    const Change change = std::move(due_.front());
    due_.pop_front();
    apply(change);
    if (!due_.empty() && mustStop()) return false;
  }
  return true;
}

/// What an entity holds is read before it: whoever sees a row sees its parent as well, which the
/// writer puts before the row and takes away after it. Applied they are the other way round.
void EntityFollower::readChanges() {
  std::vector<std::vector<Change>> changes(files_.size());
  for (std::size_t number = files_.size(); number-- > 0;) {
    if (!files_[number].follower) continue;
    files_[number].follower->follow(
        [&](std::string_view key, RowState state, std::string_view value) {
          changes[number].push_back({number, state, std::string(key), std::string(value)});
        });
  }
  for (auto& ofFile : changes)
    std::move(ofFile.begin(), ofFile.end(), std::back_inserter(due_));
}

void EntityFollower::apply(const Change& change) {
  OtherFile& file = files_[change.file];
  if (change.state == RowState::missing) return removeRow(*entity_, *file.layout, change.key);
  const bool isCorrupt = change.state == RowState::corrupt;
  switch (applyRow(*entity_, *file.layout, change.key, change.value, isCorrupt)) {
    case Applied::done:
      return takeInOrphans(file);
    case Applied::orphan:
      file.hasOrphans = true;
      return;
    case Applied::unreadable:
      // It may have been the row of an entity that others lie in.
      forEachBelow(file, [](OtherFile& below) { below.hasOrphans = true; });
      damagedRow(*entity_, unreadableKey);
      return;
  }
}

/// A parent that came only now: the rows that waited for it are told again.
void EntityFollower::takeInOrphans(const OtherFile& parent) {
  forEachBelow(parent, [](OtherFile& below) {
    if (below.follower && std::exchange(below.hasOrphans, false)) below.follower->lookAgain();
  });
}

void EntityFollower::addTo(TableWaiter::Watched& watched) const {
  for (const OtherFile& file : files_) {
    watched.paths.push_back(file.layout->file);
    if (file.follower)
      watched.tables.push_back({&file.follower->reader(), file.follower->cursor()});
  }
}

}  // namespace VeskSharedMem
