// What the program shows of another process: changes of its shared tables as they happen, and the
// trace ring that it left when it was killed.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/Fleetlog.h"
#include "runtime/Reflect.h"
#include "runtime/SharedMem.h"

namespace {

namespace fs = std::filesystem;

class LookingInTest : public testing::Test {
 protected:
  LookingInTest() {
    std::string pattern = (fs::temp_directory_path() / "looking-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
  }
  ~LookingInTest() override { fs::remove_all(directory_); }

  static std::FILE* start(const std::string& arguments) {
    const char* named = std::getenv("CORVANE_PROGRAM");
    const auto beside = fs::read_symlink("/proc/self/exe").parent_path() / "corvane";
    return popen(((named ? named : beside.string()) + " " + arguments + " 2>&1").c_str(), "r");
  }
  static std::string line(std::FILE* from) {
    std::array<char, 500> text{};
    return fgets(text.data(), text.size(), from) == nullptr ? "" : text.data();
  }
  /// Runs in a process of its own, which then dies without warning.
  template <class F>
  static void inKilledProcess(F f) {
    const pid_t child = fork();
    if (child == 0) {
      f();
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  }
  fs::path directory_;
};

TEST_F(LookingInTest, WatchTellsWhatIsThereAndThenEachChangeAcrossWriters) {
  const std::string path = "multicast/ipv4/tunnel/forwarding/status";
  const auto inWriter = [&](auto f) {
    inKilledProcess([&] {
      VeskSharedMem::EntityManager::directoryIs(directory_);
      const auto root = VeskSharedMem::EntityManager::getEntityManager()->open(
          path, "Routing::Multicast::IpTunnelForwardingStatus");
      const Vesk::FieldInfo& vlans = *root->recordType().field("vlanStatus");
      const Vesk::FieldInfo& routes = *vlans.targetType().field("overlayToUnderlay");
      const auto vlan = [&](const char* text) { return vlans.keyType->bytes(text); };
      const auto route = [&](const char* id, const char* key) {
        const std::string bytes = routes.keyType->bytes(key);
        vlans.add(*root, vlan(id));
        const auto holder = vlans.child(*root, vlan(id));
        routes.set(*holder, bytes, bytes + routes.valueType->defaultBytes().substr(bytes.size()));
      };
      f(*root, vlans, routes, vlan, route);
    });
  };
  std::FILE* const watch =
      start("watch --seconds 2 --dir " + directory_.string() + " '" + path + ":vlanStatus'");
  // The files come while they are waited for.
  inWriter([](auto&, auto&, auto&, auto&, auto& route) { route("10", "0.0.0.0,239.1.1.1"); });
  const std::string vlan = path + ":vlanStatus[10]";
  const std::string first = vlan + ".overlayToUnderlay[0.0.0.0,239.1.1.1]";
  EXPECT_EQ(line(watch), vlan + " added\n");
  EXPECT_TRUE(line(watch).starts_with(first + " = "));
  inWriter([](auto& root, auto& vlans, auto& routes, auto& of, auto& route) {
    route("300", "10.0.0.1,239.1.1.2");
    routes.del(*vlans.child(root, of("10")), routes.keyType->bytes("0.0.0.0,239.1.1.1"));
  });
  EXPECT_EQ(line(watch), path + ":vlanStatus[300] added\n");
  std::string both = line(watch) + line(watch);
  EXPECT_NE(both.find("[10.0.0.1,239.1.1.2] = "), std::string::npos) << both;
  EXPECT_NE(both.find(first + " removed\n"), std::string::npos) << both;
  inWriter([](auto& root, auto& vlans, auto&, auto& of, auto&) { vlans.del(root, of("300")); });
  EXPECT_EQ(line(watch), path + ":vlanStatus[300] removed\n");
  EXPECT_EQ(line(watch), "");
  EXPECT_EQ(pclose(watch), 0);
}

TEST_F(LookingInTest, TraceReadsTheRingOfAKilledProcessAndRefusesOtherFiles) {
  const fs::path ring = directory_ / "ring";
  inKilledProcess([&] {
    Fleetlog::Sizes sizes;
    sizes.fill(4);
    Fleetlog::directoryIs(directory_);
    Fleetlog::initialize("ring", sizes, nullptr, 0, 24, 0, true, 512);
    const Fleetlog::TraceHandle handle("Mapping");
    Fleetlog::record(handle, 8, "vlan 10");
    Fleetlog::record(handle, 0, "two\nlines");
    Fleetlog::record(handle, 8, "vlan 20");
  });
  std::FILE* trace = start("trace " + ring.string());
  for (const char* text : {"  8  Mapping  vlan 10\n", "  0  Mapping  two\\nlines\n", "vlan 20\n"})
    EXPECT_TRUE(line(trace).ends_with(text)) << text;
  EXPECT_EQ(pclose(trace), 0);
  trace = start("trace --json --level 0 " + ring.string());
  EXPECT_NE(line(trace).find(R"("level":0,"module":"Mapping","text":"two\nlines"})"),
            std::string::npos);
  EXPECT_EQ(line(trace), "");
  pclose(trace);

  std::ofstream(directory_ / "foreign") << "just a text\n";
  fs::copy_file(ring, directory_ / "short");
  fs::resize_file(directory_ / "short", fs::file_size(ring) / 2);
  for (const char* name : {"foreign", "short", "absent"}) {
    trace = start("trace " + (directory_ / name).string());
    EXPECT_NE(line(trace).find((directory_ / name).string() + ": "), std::string::npos) << name;
    EXPECT_EQ(WEXITSTATUS(pclose(trace)), 2) << name;
  }
}

}  // namespace
