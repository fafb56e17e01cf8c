// What the program shows of another process: its shared tables as they change, its trace ring.
#include <csignal>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "records/IpTunnelForwardingStatus.h"
#include "runtime/Fleetlog.h"
#include "runtime/SharedMem.h"

namespace {

namespace fs = std::filesystem;

struct LookingInTest : testing::Test {
  LookingInTest() { mkdtemp(directory.data()); }
  ~LookingInTest() override { fs::remove_all(directory); }
  std::FILE* start(const std::string& arguments) {
    const char* named = std::getenv("CORVANE_PROGRAM");
    const auto beside = fs::read_symlink("/proc/self/exe").parent_path() / "corvane";
    const std::string program = named ? named : beside.string();
    std::FILE* const out = popen(("echo $$; exec " + program + arguments + " 2>&1").c_str(), "r");
    pid = std::stoi(line(out));
    return out;
  }
  static std::string line(std::FILE* from) {
    char text[500];
    return fgets(text, sizeof text, from) == nullptr ? "" : text;
  }
  static void inKilledProcess(auto f) {
    EXPECT_EXIT((f(), std::raise(SIGKILL)), testing::KilledBySignal(SIGKILL), "");
  }
  std::string directory = testing::TempDir() + "looking-XXXXXX";
  pid_t pid = 0;
};

TEST_F(LookingInTest, WatchTellsWhatIsThereAndThenEachChangeAcrossKilledWriters) {
  using Bridging::VlanId, VeskSharedMem::EntityManager;
  using Status = Routing::Multicast::IpTunnelForwardingStatus;
  const std::string path = "multicast/ipv4/tunnel/forwarding/status";
  EntityManager::directoryIs(directory);
  auto* const manager = EntityManager::getEntityManager();
  const auto inWriter = [&](auto write) {
    inKilledProcess([&] { write(static_cast<Status&>(*manager->open(path, Status::veskName))); });
  };
  std::FILE* const watch = start(" watch --seconds 60 --dir " + directory + " " + path);
  const auto expectLine = [&](const std::string& text) {
    EXPECT_EQ(line(watch), path + ":vlanStatus" + text + "\n");
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
  kill(pid, SIGINT);
  EXPECT_EQ(line(watch), "");
  EXPECT_EQ(pclose(watch), 0);
}

TEST_F(LookingInTest, TraceReadsTheRingOfAKilledProcessAndRefusesOtherFiles) {
  const std::string ring = directory + "/ring";
  inKilledProcess([&] {
    Fleetlog::initialize(ring, {4, 4, 4, 4, 4, 4, 4, 4, 4, 4}, nullptr, 0, 24, 0, true, 512);
    const Fleetlog::TraceHandle handle("Mapping");
    Fleetlog::record(handle, 8, "vlan 10");
    Fleetlog::record(handle, 0, "two\nlines");
  });
  const auto expect = [&](const std::string& options, const std::string& says, int status) {
    std::FILE* const trace = start(" trace " + ring + options);
    EXPECT_NE(line(trace).find(says), std::string::npos) << says;
    EXPECT_EQ(WEXITSTATUS(pclose(trace)), status) << says;
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
