// A writer that is killed at a random instant, again and again, and what its successor finds. The
// rows must be those after the last operation that was done, or after the one under way: nothing
// lost, nothing half, nothing else.
#include <atomic>
#include <random>
#include <thread>

#include <fmt/format.h>

#include "bench/peers/Processes.h"
#include "bench/peers/Recorder.h"
#include "bench/peers/Store.h"

namespace Peers {
namespace {

constexpr std::size_t keyCount = 1024;
constexpr std::size_t capacity = 4096;

struct Progress {
  std::atomic<std::uint64_t> done{0};  ///< operations of committed transactions
  std::atomic<bool> hasBegun{false};
};

/// Operation number `number`, always the same: three puts to one erase.
struct Operation {
  std::size_t key;
  std::uint64_t version;  ///< 0: erase

  static Operation at(std::uint64_t number) {
    const std::uint64_t random = Vesk::mixHash(number + 0x9e3779b97f4a7c15ULL);
    return {random % keyCount, (random >> 32) % 4 == 0 ? 0 : number + 1};
  }
};

using Versions = std::vector<std::uint64_t>;

void apply(Versions& versions, std::uint64_t from, std::uint64_t to) {
  for (std::uint64_t number = from; number < to; ++number) {
    const Operation operation = Operation::at(number);
    versions[operation.key] = operation.version;
  }
}

void writeForever(const StoreKind& kind, const std::string& directory,
                  const std::vector<RowKey>& keys, Progress& progress) {
  const auto store = kind.open(directory, Role::writer, capacity);
  progress.hasBegun = true;
  for (std::uint64_t number = 0;; ++number) {
    const Operation operation = Operation::at(number);
    if (operation.version == 0) {
      store->erase(keys[operation.key]);
    } else {
      store->put(keys[operation.key], operation.version);
    }
    if ((number + 1) % kind.batch == 0) progress.done = number + 1;
  }
}

enum Finding { lockLeftHeld = 1, damaged = 2 };

/// In the successor's process, since a damaged store may crash or hang whoever looks into it.
int examine(const StoreKind& kind, const std::string& directory, const std::vector<RowKey>& keys,
            std::uint64_t done) {
  const auto store = kind.open(directory, Role::writer, capacity);
  const int lock = store->seizeLock() ? lockLeftHeld : 0;
  Versions found(keyCount);
  std::size_t rows = 0;
  try {
    store->verify();
    for (std::size_t i = 0; i < keyCount; ++i) {
      ValueBytes value{};
      if (!store->get(keys[i], value)) continue;
      const auto version = wholeVersion(value);
      if (!version) return lock | damaged;
      found[i] = *version;
      ++rows;
    }
    if (store->scan().rows != rows) return lock | damaged;
  } catch (const std::exception&) {
    return lock | damaged;
  }
  Versions expected(keyCount);
  apply(expected, 0, done);
  if (found == expected) return lock;
  apply(expected, done, done + kind.batch);
  return found == expected ? lock : lock | damaged;
}

int killOnce(const StoreKind& kind, const std::filesystem::path& place,
             const std::vector<RowKey>& keys, std::chrono::microseconds delay) {
  const ScratchDirectory directory(place / "kills");
  const SharedObject<Progress> progress;
  OtherProcess writer([&] {
    writeForever(kind, directory.str(), keys, *progress);
    return OtherProcess::Numbers{};
  });
  writer.start();
  while (!progress->hasBegun)
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  std::this_thread::sleep_for(delay);
  writer.kill();

  constexpr auto patience = std::chrono::seconds(3);
  const SharedObject<std::atomic<int>> finding;
  *finding = -1;
  OtherProcess successor([&] {
    *finding = examine(kind, directory.str(), keys, progress->done);
    return OtherProcess::Numbers{};
  });
  successor.start();
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (*finding < 0 && std::chrono::steady_clock::now() < deadline && !successor.hasEnded())
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  const int found = *finding;
  return found < 0 ? damaged : found;
}

void measureKills(const StoreKind& kind, std::size_t kills, const std::filesystem::path& place,
                  Recorder& recorder) {
  const std::vector<RowKey> keys = rowKeys(keyCount);
  std::mt19937 random(static_cast<unsigned>(kills));
  std::uniform_int_distribution<int> delays(500, 8000);
  std::size_t sound = 0;
  std::size_t held = 0;
  for (std::size_t i = 0; i < kills; ++i) {
    const int found = killOnce(kind, place, keys, std::chrono::microseconds(delays(random)));
    sound += (found & damaged) == 0 ? 1 : 0;
    held += (found & lockLeftHeld) != 0 ? 1 : 0;
  }
  recorder.add("kills", "", static_cast<double>(kills));
  recorder.add("lock left held", "", static_cast<double>(held));
  recorder.add("damaged", "", static_cast<double>(kills - sound));
}

}  // namespace

Topic tableKills(const Options& options) {
  const std::size_t ourKills = options.sized(200, 5);
  const std::size_t peerKills = options.sized(40, 5);
  Topic topic{"kills", 1, {}};
  for (const StoreKind& kind : storeKinds())
    topic.candidates.push_back(
        {kind.name, kind.isOurs,
         [kind, kills = kind.isOurs ? ourKills : peerKills, place = options.place](
             Recorder& recorder) { measureKills(kind, kills, place, recorder); }});
  return topic;
}

}  // namespace Peers
