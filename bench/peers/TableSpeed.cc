// The life of a full table: every row inserted, updated, read and scanned by a second process, the
// store opened anew and verified, every row deleted. Keys have no order of their own. Once all
// steps take them in the order in which they were inserted, once each step in another shuffled one.
#include "bench/peers/Processes.h"
#include "bench/peers/Recorder.h"
#include "bench/peers/Store.h"
#include "bench/peers/Timing.h"

namespace Peers {
namespace {

constexpr int scans = 5;

struct Workload {
  std::vector<RowKey> inserts;
  std::vector<RowKey> updates;
  std::vector<RowKey> reads;
  std::vector<RowKey> deletes;

  static Workload inOrder(std::size_t rows) {
    const std::vector<RowKey> keys = rowKeys(rows);
    return {keys, keys, keys, keys};
  }
  static Workload inShuffledOrder(std::size_t rows) {
    const std::vector<RowKey> keys = rowKeys(rows);
    return {keys, reordered(keys, 1), reordered(keys, 2), reordered(keys, 3)};
  }
};

void require(bool isTrue, const StoreKind& kind, const char* what) {
  if (!isTrue) throw std::runtime_error(kind.name + ": " + what);
}

/// In the second process: nanoseconds of a read by key, and of a row of a scan.
OtherProcess::Numbers readAll(const StoreKind& kind, const std::string& directory,
                              const Workload& work) {
  const std::size_t rows = work.inserts.size();
  const auto store = kind.open(directory, Role::reader, rows);
  require(store->scan().rows == rows, kind, "a second process sees other rows");
  const double read = nsPer(rows, [&] {
    ValueBytes value{};
    for (const RowKey& key : work.reads) {
      require(store->get(key, value), kind, "a row is missing");
      DoNotOptimize(value);
    }
  });
  const double scan = nsPer(rows * scans, [&] {
    for (int pass = 0; pass < scans; ++pass) {
      const ScanResult result = store->scan();
      require(result.rows == rows && result.versions == 2 * rows, kind, "a scan misses rows");
    }
  });
  return {read, scan};
}

void measureLife(const StoreKind& kind, const Workload& work, const std::filesystem::path& place,
                 Recorder& recorder) {
  const std::size_t rows = work.inserts.size();
  const ScratchDirectory directory(place / "speed");
  OtherProcess second([&] { return readAll(kind, directory.str(), work); });

  auto store = kind.open(directory.str(), Role::writer, rows);
  recorder.add("insert", "ns", nsPer(rows, [&] {
                 for (const RowKey& key : work.inserts)
                   store->put(key, 1);
                 store->commit();
               }));
  recorder.add("update", "ns", nsPer(rows, [&] {
                 for (const RowKey& key : work.updates)
                   store->put(key, 2);
                 store->commit();
               }));
  const double bytes = static_cast<double>(store->bytesUsed()) / static_cast<double>(rows);
  second.start();
  const OtherProcess::Numbers reading = second.result();

  store.reset();
  const double opening = nsPer(1, [&] {
    store = kind.open(directory.str(), Role::writer, rows);
    store->verify();
  });
  recorder.add("delete", "ns", nsPer(rows, [&] {
                 for (const RowKey& key : work.deletes)
                   store->erase(key);
                 store->commit();
               }));
  require(store->scan().rows == 0, kind, "rows are left");

  recorder.add("read", "ns", reading.at(0));
  recorder.add("scan", "ns", reading.at(1));
  recorder.add("size", "bytes", bytes);
  recorder.add("opening", "ms", opening * 1e-6);
}

Topic topicOf(std::string name, const Options& options, Workload workload) {
  const auto work = std::make_shared<const Workload>(std::move(workload));
  Topic topic{std::move(name), options.sized(5, 2), {}};
  for (const StoreKind& kind : storeKinds())
    topic.candidates.push_back(
        {kind.name, kind.isOurs, [kind, work, place = options.place](Recorder& recorder) {
           measureLife(kind, *work, place, recorder);
         }});
  return topic;
}

}  // namespace

std::vector<Topic> tableSpeed(const Options& options) {
  const std::size_t rows = options.sized(131072, 2048);
  return {topicOf("tables in order of insertion", options, Workload::inOrder(rows)),
          topicOf("tables in shuffled order", options, Workload::inShuffledOrder(rows))};
}

}  // namespace Peers
