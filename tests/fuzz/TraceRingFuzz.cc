// A trace ring's file with any bytes in it: its records read, or the complaint names the file.
#include <fuzzer/FuzzedDataProvider.h>

#include "runtime/Fleetlog.h"
#include "tests/fuzz/FuzzFile.h"

namespace {

const Fuzz::FuzzFile& file() {
  static const Fuzz::FuzzFile theFile("ring.fl");
  return theFile;
}

// Rings of one unit each, of which one has gone around.
const std::string& soundBytes() {
  static const std::string bytes = [] {
    Fleetlog::initialize(file().path(), {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, "note", 4, 24, 0, true,
                         512);
    const Fleetlog::TraceHandle handle("Mapping");
    for (int i = 0; i < 60; ++i)
      Fleetlog::record(handle, 8, "a record, number {}", i);
    Fleetlog::record(handle, 0, "the only one");
    Fleetlog::shutdown();
    return file().content();
  }();
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t headBytes = 360;
  static const std::string& sound = soundBytes();
  FuzzedDataProvider input(data, size);
  const bool isRaw = input.ConsumeIntegralInRange(0, 15) == 0;
  std::string bytes = isRaw ? input.ConsumeRandomLengthString() : sound;
  if (!isRaw) {
    while (input.remaining_bytes() > 0)
      Fuzz::damage(bytes, 0, input.ConsumeBool() ? headBytes : bytes.size(), input);
  }
  file().contentIs(bytes);
  Fuzz::attempt<Fleetlog::FileError>(file(), [&] {
    const auto ring = Fleetlog::readRing(file().path());
    for (const auto& record : ring.records)
      if (record.text.size() > bytes.size() || record.level >= Fleetlog::levelCount)
        Fuzz::finding("a record that cannot be");
  });
  return 0;
}
