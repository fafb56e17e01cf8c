// What a trace statement costs: off, on, and in the ring of the flight recorder.
#include <stdexcept>

#include "bench/peers/Processes.h"
#include "bench/peers/Recorder.h"
#include "bench/peers/Timing.h"
#include "runtime/Fleetlog.h"
#include "runtime/Trace.h"

namespace Peers {
namespace {

constexpr std::string_view text = "vlan 1000 group 239.1.1.4 underlay 232";

const Vesk::TraceHandle handle("PeersTracing");

template <class Statement>
double statementNs(std::size_t count, Statement statement) {
  return nsPer(count, [&] {
    for (std::size_t i = 0; i < count; ++i) {
      DoNotOptimize(i);
      statement(i);
      benchmark::ClobberMemory();
    }
  });
}

void levelsIs(const char* settings) {
  if (const auto fault = Vesk::traceLevelsIs(settings)) throw std::runtime_error(*fault);
}

void measureTrace(const Options& options, Recorder& recorder) {
  const std::size_t many = options.sized(5000000, 10000);
  const std::size_t few = options.sized(100000, 1000);
  const auto trace = [](std::size_t i) {
    Vesk::trace(handle, 8, [&] { return fmt::format("vlan {}", i); });
  };
  levelsIs("");
  const double bare = statementNs(many, [](std::size_t) {});
  const double off = statementNs(many, trace);
  recorder.add("trace, off", "ns", off - bare);

  std::size_t lines = 0;
  Vesk::traceSinkIs([&](const Vesk::TraceLine& line) { lines += line.level == 8 ? 1 : 0; });
  levelsIs("PeersTracing/8");
  recorder.add("trace, on, to a sink", "ns", statementNs(few, trace));
  levelsIs("");
  Vesk::traceSinkIs({});
  if (lines != few) throw std::runtime_error("a trace line was lost");
}

void measureRing(const Options& options, Recorder& recorder) {
  const ScratchDirectory directory(options.place / "tracing");
  const std::size_t count = options.sized(1000000, 1000);
  const Fleetlog::TraceHandle ring("PeersTracing");
  const auto record = [&](std::size_t) { Fleetlog::record(ring, 2, text); };
  const double bare = statementNs(count, [](std::size_t) {});
  recorder.add("ring, off", "ns", statementNs(count, record) - bare);

  Fleetlog::directoryIs(directory.str());
  Fleetlog::Sizes sizes{};
  sizes[2] = 256;
  if (!Fleetlog::initialize("peers.fl", sizes, nullptr, 0, 32, 0, true, 256))
    throw std::runtime_error("no trace ring");
  statementNs(options.sized(10000, 100), record);  // each page of the ring once
  recorder.add("ring record", "ns", statementNs(count, record));
  recorder.add("ring record, formatted", "ns", statementNs(count, [&](std::size_t i) {
                 Fleetlog::record(ring, 2, "vlan {} group {} underlay {}", i & 4095U, "239.1.1.4",
                                  "232.0.0.1");
               }));
  const auto file = Fleetlog::readRing(Fleetlog::currentFile());
  Fleetlog::shutdown();
  if (file.records.empty() || file.records.back().level != 2)
    throw std::runtime_error("the trace ring is empty");
}

}  // namespace

Topic tracing(const Options& options) {
  return {"tracing", options.sized(15, 2), {{"trace", true, [options](Recorder& recorder) {
                                               measureTrace(options, recorder);
                                               measureRing(options, recorder);
                                             }}}};
}

}  // namespace Peers
