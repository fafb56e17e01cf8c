// What the program makes of files, directories and tables that it cannot use: one line that names
// the path and the reason, status 2, and nothing broken for whoever works there.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "runtime/shm/TableReader.h"
#include "runtime/shm/TableWriter.h"
#include "tests/TemporaryDirectory.h"
#include "tests/host/Program.h"

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using VeskSharedMem::TableHeader;
using VeskSharedMem::TableReader;
using VeskSharedMem::TableWriter;

constexpr const char* tablePath = "multicast/ipv4/tunnel/forwarding/status";

struct BadInputTest : testing::Test {
  static void expectRefused(const std::string& arguments, const std::string& path,
                            const std::string& reason, int status = 2) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, status) << arguments;
    EXPECT_THAT(outcome.output, HasSubstr(path)) << arguments;
    EXPECT_THAT(outcome.output, HasSubstr(reason)) << arguments;
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1) << outcome.output;
  }
  std::string play(const std::string& keep) const { return "play --keep " + keep + " " + story; }

  TemporaryDirectory directory;
  std::string kept = directory / "kept";
  std::string story = CORVANE_SCENARIO_DIR "/fabric.yaml";
};

TEST_F(BadInputTest, LookingAtWhatIsNoSuchTableIsRefused) {
  const Outcome played = run(play(kept));
  ASSERT_EQ(played.status, 0) << played.output;
  const std::string file = fmt::format("{}/shm/{}.vlanStatus.table", kept, tablePath);
  fs::copy_file(file, directory / "sound");
  struct Case {
    const char* reason;
    std::function<void()> spoil;
  };
  const Case cases[] = {
      {"expected a header", [&] { std::ofstream(file) << "short\n"; }},
      {"another layout",
       [&] {
         std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
         stream.seekp(offsetof(TableHeader, signature));
         stream << "8 others";
       }},
      {"regular file", [&] { fs::remove(file), fs::create_directory(file); }},
      {"regular file", [&] { fs::remove(file), mkfifo(file.c_str(), 0600); }},
  };
  for (const Case& one : cases) {
    one.spoil();
    for (const char* command : {"show", "watch --seconds 0.2"})
      expectRefused(fmt::format("{} --dir {} {}", command, kept, tablePath), file, one.reason);
    fs::remove_all(file);
    fs::copy_file(directory / "sound", file);
  }
  // A wrong directory is not an empty one, and nothing is made in it.
  const std::string wrong = directory / "wrong", none = directory / "none";
  fs::create_directories(wrong + "/deep");
  for (const char* command : {"show", "watch --seconds 0.2", "write"}) {
    const char* patch = command == std::string("write") ? ":vlanStatus '{10: {}}'" : "";
    expectRefused(fmt::format("{} --dir {} {}{}", command, none, tablePath, patch), none,
                  "no such directory", 3);
    expectRefused(fmt::format("{} --dir {} {}{}", command, wrong, tablePath, patch), wrong,
                  "no tables here", 3);
  }
  EXPECT_TRUE(fs::is_empty(wrong + "/deep") && !fs::exists(none));
  expectRefused(fmt::format("write --dir {} {}:vlanStatus[10] ' '", kept, tablePath), tablePath,
                "null deletes");
  expectRefused("trace " + kept, kept, "not a regular file");
  expectRefused("play " + kept, kept, "cannot be read");
}

// Little text that would be endless work.
TEST_F(BadInputTest, AScenarioThatDoesNotEndIsRefused) {
  const std::string bad =
      CORVANE_SCENARIO_DIR "/../tests/fuzz/corpus/Scenario/aliases-of-aliases.yaml";
  expectRefused("play " + bad, "aliases-of-aliases.yaml:", "");
}

TEST_F(BadInputTest, APlayerThatCannotWriteLeavesNothingHalfMade) {
  std::ofstream(directory / "file") << "in the way";
  expectRefused(play(directory / "file"), directory / "file", "Not a directory");
  expectRefused(play("/proc/corvane"), "/proc/corvane", "No such file");
  // A limit of 100 blocks is a full disk that needs no privilege: less than any table.
  const Outcome outcome = run(play(kept), "ulimit -f 100");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.output, HasSubstr("shared table " + kept));
  EXPECT_THAT(outcome.output, HasSubstr("File too large"));
  for (const auto& entry : fs::recursive_directory_iterator(kept)) {
    if (entry.path().extension() != ".table") continue;
    EXPECT_NO_THROW(TableReader::openAny(entry.path().string()));
  }
}

TEST_F(BadInputTest, APlayerKeepsItsHandsOffADirectoryInWhichOthersWork) {
  // Of somebody who has nothing to do with us.
  fs::create_directories(kept + "/shm/other");
  const std::string foreign = kept + "/shm/other/agent.rows.table";
  std::ofstream(kept + "/shm/precious") << "mine";
  expectRefused(play(kept), kept, "neither empty nor the directory of a former run");
  EXPECT_TRUE(fs::exists(kept + "/shm/precious"));
  std::ofstream(kept + "/.corvane").flush();
  {
    const auto writer = TableWriter::open(foreign, {4, 4, 8, 1});
    expectRefused(play(kept), foreign, fmt::format("process {}", getpid()));
    EXPECT_TRUE(fs::exists(foreign));
  }
  // Held up before it has a table of its own, a player counts all the same.
  std::ofstream(directory / "long.yaml") << "title: long\nsteps: [advance: 1]\n";
  Program player(fmt::format("play --stay --keep {} {}", kept, directory / "long.yaml"));
  ASSERT_NE(player.lineWith("stays"), "");
  for (const char* resume : {"", " --resume"})
    expectRefused(play(kept) + resume, kept, "another player");
  player.signal(SIGKILL);
  player.end();
  const Outcome outcome = run(play(kept));
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_FALSE(fs::exists(foreign));
}

TEST_F(BadInputTest, AnInterruptLeavesNothingBehind) {
  const std::string temporary = directory / "tmp";
  fs::create_directory(temporary);
  const std::string here = "export TMPDIR=" + temporary;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Program player("play --crash-at 0 " + story, here);
    ASSERT_NE(player.line(), "");
    player.signal(signal);
    EXPECT_EQ(player.end().status, -1);
    EXPECT_TRUE(fs::is_empty(temporary)) << signal;
  }
  // A reader of the report that goes away.
  run("play " + story + " " + story + " | head -n 1", here);
  EXPECT_TRUE(fs::is_empty(temporary));
}

}  // namespace
