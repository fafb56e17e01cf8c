// What the program shows of another process: its shared tables as they change, its trace ring.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "records/IpTunnelForwardingStatus.h"
#include "runtime/Fleetlog.h"
#include "runtime/SharedMem.h"
#include "tests/TemporaryDirectory.h"
#include "tests/host/Program.h"

namespace {

namespace fs = std::filesystem;

void inKilledProcess(auto f) {
  EXPECT_EXIT((f(), std::raise(SIGKILL)), testing::KilledBySignal(SIGKILL), "");
}

TEST(LookingInTest, WatchTellsWhatIsThereAndThenEachChangeAcrossKilledWriters) {
  using Bridging::VlanId, VeskSharedMem::EntityManager;
  using Status = Routing::Multicast::IpTunnelForwardingStatus;
  const std::string path = "multicast/ipv4/tunnel/forwarding/status";
  const TemporaryDirectory directory;
  EntityManager::directoryIs(directory.path());
  auto* const manager = EntityManager::getEntityManager();
  const auto inWriter = [&](auto write) {
    inKilledProcess([&] { write(static_cast<Status&>(*manager->open(path, Status::veskName))); });
  };
  Program watch("watch --seconds 60 --dir " + directory.path() + " " + path);
  const auto expectLine = [&](const std::string& text) {
    EXPECT_EQ(watch.line(), path + ":vlanStatus" + text + "\n");
  };
  inWriter([](auto& root) { root.vlanStatusIs(VlanId(10))->overlayToUnderlayIs({}); });
  expectLine("[10] added");
  expectLine("[10].overlayToUnderlay[none,none] = none,none,PimSsm");
  inWriter([&](auto& root) {
    const auto vlan = root.vlanStatus(VlanId(10));
    const auto& rows = *vlan->recordType().field("overlayToUnderlay");
    manager->corruptIs(*vlan, rows, rows.keyType->defaultBytes(), true);
  });
  expectLine("[10].overlayToUnderlay[none,none] = (corrupt)");
  inWriter([](auto& root) { root.vlanStatusDel(VlanId(10)); });
  expectLine("[10] removed");
  watch.signal(SIGINT);
  const Outcome outcome = watch.end();
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.status, 0);
}

TEST(LookingInTest, TraceReadsTheRingOfAKilledProcessAndRefusesOtherFiles) {
  const TemporaryDirectory directory;
  const std::string ring = directory / "ring";
  inKilledProcess([&] {
    Fleetlog::initialize(ring, {4, 4, 4, 4, 4, 4, 4, 4, 4, 4}, nullptr, 0, 24, 0, true, 512);
    const Fleetlog::TraceHandle handle("Mapping");
    Fleetlog::record(handle, 8, "vlan 10");
    Fleetlog::record(handle, 0, "two\nlines");
  });
  const auto expect = [&](const std::string& options, const std::string& says, int status) {
    const Outcome outcome = run("trace " + ring + options);
    EXPECT_NE(outcome.output.find(says), std::string::npos) << outcome.output;
    EXPECT_EQ(outcome.status, status) << says;
  };
  expect("", "  8  Mapping  vlan 10\n", 0);
  expect(" --json --level 0", R"("level":0,"module":"Mapping","text":"two\nlines"})", 0);
  fs::resize_file(ring, fs::file_size(ring) / 2);
  expect("", ring + ": the file is cut short", 2);
  std::ofstream(ring) << "just a text\n";
  expect("", ring + ": not a trace ring", 2);
  fs::remove(ring);
  expect("", ring + ": No such file", 2);
}

}  // namespace
