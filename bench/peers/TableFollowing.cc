// How a second process follows the changes of a shared table: after a while of not looking, while
// they are made, and when it has to be woken. None of the other stores tells a reader what has
// changed.
#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "bench/peers/Processes.h"
#include "bench/peers/Recorder.h"
#include "bench/peers/Store.h"
#include "bench/peers/Timing.h"
#include "runtime/shm/TableReader.h"
#include "runtime/shm/TableWriter.h"

namespace Peers {
namespace {

using VeskSharedMem::RowState;
using VeskSharedMem::TableCursor;
using VeskSharedMem::TableReader;
using VeskSharedMem::TableWriter;

constexpr std::size_t burst = 256;

struct Plan {
  std::size_t rows;
  std::size_t missed;  ///< changes before the reader looks for the first time
  std::size_t bursts;
  std::size_t wakes;
};

/// Where both sides are. Each waits for the other's next step.
struct Steps {
  std::atomic<int> writer{0};
  std::atomic<int> reader{0};
};

void await(const std::atomic<int>& steps, int step) {
  const std::uint64_t deadline = nowNs() + 30'000'000'000;
  while (steps < step) {
    if (nowNs() > deadline) throw std::runtime_error("following: the other process is stuck");
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

class Follower {
 public:
  explicit Follower(const std::string& file)
      : reader_(TableReader::openAny(file)), cursor_(reader_->cursor()) {}

  /// Nanoseconds in which all changes are told.
  double catchUp() {
    return nsPer(1, [&] {
      if (reader_->changesSince(
              cursor_, [this](std::uint32_t, RowState, const std::byte*, const std::byte* value) {
                ++told_;
                last_ = versionOf(value);
              }) != TableReader::Changes::ok)
        ++losses_;
    });
  }
  bool waitForChange() { return reader_->waitForChange(cursor_, std::chrono::milliseconds(1000)); }
  std::size_t takeTold() { return std::exchange(told_, 0); }
  [[nodiscard]] std::size_t told() const { return told_; }
  [[nodiscard]] std::uint64_t last() const { return last_; }
  [[nodiscard]] std::size_t losses() const { return losses_; }

 private:
  std::unique_ptr<TableReader> reader_;
  TableCursor cursor_;
  std::size_t told_ = 0;
  std::size_t losses_ = 0;
  std::uint64_t last_ = 0;
};

/// Nanoseconds a change when many are told at once, and when they are told as they come; how often
/// changes were lost; then the nanoseconds of each wake-up.
OtherProcess::Numbers follow(const std::string& file, const Plan& plan, Steps& steps) {
  Follower follower(file);
  steps.reader = 1;
  await(steps.writer, 1);
  const double together = follower.catchUp();
  OtherProcess::Numbers result{together / static_cast<double>(follower.takeTold())};

  steps.reader = 2;
  double live = 0;
  while (follower.told() < plan.bursts * burst && follower.losses() == 0 &&
         follower.waitForChange())
    live += follower.catchUp();
  result.push_back(live / static_cast<double>(std::max<std::size_t>(1, follower.takeTold())));
  result.push_back(static_cast<double>(follower.losses()));

  steps.reader = 3;
  for (std::size_t i = 0; i < plan.wakes && follower.waitForChange(); ++i) {
    follower.catchUp();
    result.push_back(static_cast<double>(nowNs() - follower.last()));
    steps.reader = static_cast<int>(4 + i);
  }
  if (result.size() != 3 + plan.wakes) throw std::runtime_error("a sleeping reader was not woken");
  return result;
}

void put(TableWriter& table, const RowKey& key, std::uint64_t version) {
  const ValueBytes value = valueBytes(routeValue(version));
  table.put(key.bytes.data(), value.data());
}

void measureFollowing(const Plan& plan, const std::filesystem::path& place, Recorder& recorder) {
  using namespace std::chrono_literals;
  const std::vector<RowKey> keys = rowKeys(plan.rows);
  const std::vector<RowKey> changed = reordered(keys, 1);
  const ScratchDirectory directory(place / "following");
  const std::string file = directory.str() + "/rows.table";
  const SharedObject<Steps> steps;
  OtherProcess reader([&] { return follow(file, plan, *steps); });

  const auto table = TableWriter::open(file, {.keySize = sizeof(KeyBytes),
                                              .valueSize = sizeof(ValueBytes),
                                              .capacity = static_cast<std::uint32_t>(plan.rows)});
  for (const RowKey& key : keys)
    put(*table, key, 1);
  std::size_t next = 0;
  const auto change = [&](std::uint64_t version) {
    put(*table, changed[next++ % changed.size()], version);
  };

  reader.start();
  await(steps->reader, 1);
  for (std::size_t i = 0; i < plan.missed; ++i)
    change(2);
  steps->writer = 1;
  await(steps->reader, 2);
  for (std::size_t i = 0; i < plan.bursts; ++i) {
    for (std::size_t j = 0; j < burst; ++j)
      change(3 + i);
    table->wakeReaders();
    std::this_thread::sleep_for(100us);
  }
  await(steps->reader, 3);
  for (std::size_t i = 0; i < plan.wakes; ++i) {
    std::this_thread::sleep_for(1ms);
    change(nowNs());
    const std::uint64_t start = nowNs();
    table->wakeReaders();
    recorder.add("wake a sleeping reader", "ns", static_cast<double>(nowNs() - start));
    await(steps->reader, static_cast<int>(4 + i));
  }
  const OtherProcess::Numbers found = reader.result();

  constexpr std::size_t idleWakes = 100000;
  recorder.add("wake, nobody asleep", "ns", nsPer(idleWakes, [&] {
                 for (std::size_t i = 0; i < idleWakes; ++i)
                   table->wakeReaders();
               }));
  recorder.add("change, many at once", "ns", found.at(0));
  recorder.add("change, as they come", "ns", found.at(1));
  recorder.add("changes lost", "", found.at(2));
  for (std::size_t i = 3; i < found.size(); ++i)
    recorder.add("from write to woken reader", "us", found[i] * 1e-3);
}

}  // namespace

Topic tableFollowing(const Options& options) {
  const Plan plan{.rows = options.sized(131072, 4096),
                  .missed = options.sized(16384, 512),
                  .bursts = options.sized(200, 10),
                  .wakes = options.sized(100, 5)};
  return {"following", options.sized(5, 2), {{"shared table", true, [=](Recorder& recorder) {
                                                measureFollowing(plan, options.place, recorder);
                                              }}}};
}

}  // namespace Peers
