// The player tells the demo story over and over and is killed at random instants; each time another
// starts over the tables that it left, while a reader looks at them without pause.
//
// A row is valid before and after a kill if the tables held it when the player died and the next
// one holds it again when its agent has started and come to rest. The story moves some rows about
// (the underlay of red's default group, a disputed range, a live group that waits), and its first
// steps move those back, so they are not valid on both sides of every kill. The rows below are:
// every agent publishes them at its start and no step takes them away, so from the first rest on
// no look may miss one, whichever instant the player dies at. What the steps expect is left out: a
// row whose underlay group is another one than the predecessor's has to wait.
// CORVANE_PLAYER_KILLS says how many kills; CORVANE_SEED repeats the sequence of a failure.
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sys/prctl.h>
#include <thread>

#include <yaml-cpp/yaml.h>

#include "records/IpTunnelForwardingStatus.h"
#include "runtime/RowFile.h"
#include "tests/fault/Environment.h"
#include "tests/runtime/TableFileFixture.h"

namespace VeskSharedMem {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Rows = std::map<std::string, std::string>;

constexpr std::chrono::seconds patience{60};

/// Vlan and overlay group, and the underlay groups that the story ever gives them.
const std::map<std::string, std::set<std::string>>& lastingRows() {
  static const std::set<std::string> red{"232.1.0.1", "232.1.0.2"};
  static const std::map<std::string, std::set<std::string>> rows{
      {"10 0.0.0.0", red},
      {"20 0.0.0.0", {"232.2.0.1"}},
      {"30 0.0.0.0", {"232.3.0.1"}},
      {"1000 0.0.0.0", red},
      {"1000 239.1.1.4", {"232.1.1.1"}},
      {"1000 239.1.1.5", {"232.1.1.1"}},
      {"1000 239.1.1.6", {"232.1.1.1"}},
      {"1000 239.1.1.7", {"232.1.1.1"}},
      {"2000 0.0.0.0", {"232.2.0.1"}},
      {"2000 239.2.2.0", {"232.2.2.1"}},
      {"2000 239.2.2.1", {"232.2.2.1"}},
  };
  return rows;
}

/// Looks at the forwarding table from outside of the player: the vlans, and then their routes.
class Onlooker {
 public:
  explicit Onlooker(const std::string& directory)
      : files_(rowFilesOf(directory, "multicast/ipv4/tunnel/forwarding/status",
                          Routing::Multicast::IpTunnelForwardingStatus::veskType())) {}

  void look() {
    for (const RowFile& file : files_) {
      try {
        Rows rows;
        // Each look opens the table anew.
        const std::uint32_t busy =
            readerOf(file.file, file.shape)
                ->forEach(
                    [&](auto, const std::byte* key, const std::byte* value, bool isCorrupt) {
                      if (isCorrupt) note("a corrupt row");
                      addRow(rows, file, {reinterpret_cast<const char*>(key), file.shape.keySize},
                             {reinterpret_cast<const char*>(value), file.shape.valueSize});
                    },
                    TableReader::Check::checksum);
        if (busy == 0) judge(rows, file);
      } catch (const TableError& error) {
        note(error.what());
      }
    }
  }
  [[nodiscard]] const std::string& fault() const { return fault_; }

 private:
  [[nodiscard]] bool hasRoutes(const RowFile& file) const { return &file != &files_.front(); }
  void addRow(Rows& rows, const RowFile& file, std::string_view key, std::string_view value) const {
    const std::string vlan = Vesk::textOf(Vesk::fromBytes<Bridging::VlanId>(key));
    if (!hasRoutes(file)) {
      rows[vlan];
      return;
    }
    const auto route = Vesk::fromBytes<Routing::Multicast::OverlayRoute>(key);
    const auto mapping = Vesk::fromBytes<Routing::Multicast::IpTunnelMapping>(value);
    rows[vlan + " " + Vesk::textOf(route.group)] =
        Vesk::textOf(mapping.underlayRoute.underlayGroup);
  }
  void judge(const Rows& rows, const RowFile& file) {
    for (const auto& [key, groups] : lastingRows()) {
      const auto row = rows.find(hasRoutes(file) ? key : key.substr(0, key.find(' ')));
      if (row == rows.end()) {
        note(key + " is absent from " + file.name());
      } else if (hasRoutes(file) && !groups.contains(row->second)) {
        note(key + " has " + row->second);
      }
    }
  }
  void note(const std::string& text) {
    if (fault_.empty()) fault_ = text;
  }

  std::vector<RowFile> files_;
  std::string fault_;
};

class KilledPlayerTest : public TableFileTest {
 protected:
  KilledPlayerTest() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
  /// In a group of its own, which is what gets killed: the player runs its agent in a child.
  pid_t start(const std::string& options) const {
    const char* named = std::getenv("CORVANE_PROGRAM");
    const std::string program =
        named ? named : (fs::read_symlink("/proc/self/exe").parent_path() / "corvane").string();
    const pid_t player = fork();
    setpgid(player, player);
    if (player != 0) return player;
    const std::string command =
        "exec " + program + " play " + options + " >" + directory_ + "/report 2>&1";
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  /// How the player ended. Its agent, orphaned by the kill, must be gone as well before another
  /// may write the tables.
  static int endOf(pid_t player) {
    int status = 0;
    waitpid(player, &status, 0);
    while (waitpid(-player, nullptr, 0) > 0)
      continue;
    return status;
  }
  std::string report() const { return contentOfFile(directory_ + "/report"); }

  /// The demo's steps that act, in a file of their own.
  std::string story() const {
    YAML::Node demo = YAML::LoadFile(CORVANE_SCENARIO_DIR "/fabric.yaml");
    YAML::Node steps;
    for (const auto& step : demo["steps"]) {
      const bool acts = step["write"] || step["start"] || step["crash"] || step["advance"];
      if (acts || (step["logs"] && step["logs"].IsScalar())) steps.push_back(step);
    }
    demo["steps"] = steps;
    std::ofstream(directory_ + "/story.yaml") << demo;
    return directory_ + "/story.yaml";
  }
};

TEST_F(KilledPlayerTest, RowsThatLastAreNeverAbsent) {
  const std::string kept = directory_ + "/kept";
  const std::string options = "--keep " + kept + " --resume " + story();
  const auto begun = Clock::now();
  ASSERT_EQ(endOf(start(options)), 0) << report();
  const auto duration = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun);

  Onlooker onlooker(kept + "/shm");
  std::mutex turn;
  std::atomic<bool> isOver = false;
  std::atomic<unsigned> looks = 0;
  std::thread reader([&] {
    for (; !isOver; ++looks) {
      const std::lock_guard held(turn);
      onlooker.look();
    }
  });
  const std::uint32_t seed = numberOf("CORVANE_SEED", std::random_device()());
  std::minstd_rand random(seed);
  const std::uint32_t kills = numberOf("CORVANE_PLAYER_KILLS", 100);
  std::uint32_t killed = 0;
  std::string fault;
  while (killed < kills && fault.empty()) {
    const unsigned before = looks;
    const pid_t player = start(options);
    std::this_thread::sleep_for(duration * (random() % 1000) / 1000);
    while (looks == before)
      std::this_thread::yield();
    kill(-player, SIGKILL);
    const int status = endOf(player);
    if (WIFSIGNALED(status)) {
      ++killed;
    } else if (status != 0) {
      fault = "the player failed over the tables of its predecessor:\n" + report();
    }
    if (Clock::now() - begun > patience * (1 + kills / 50)) fault = "this takes too long";
    const std::lock_guard held(turn);
    if (fault.empty()) fault = onlooker.fault();
  }
  isOver = true;
  reader.join();
  EXPECT_EQ(fault, "") << "kill " << killed << "; CORVANE_SEED=" << seed << " repeats the sequence";
  EXPECT_EQ(endOf(start(options)), 0) << report();
  RecordProperty("looks", static_cast<int>(looks));
}

}  // namespace
}  // namespace VeskSharedMem
