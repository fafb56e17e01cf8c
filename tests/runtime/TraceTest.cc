#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/Clock.h"
#include "runtime/Fleetlog.h"
#include "runtime/Log.h"
#include "runtime/Trace.h"
#include "tests/TemporaryDirectory.h"

namespace {

class TraceTest : public testing::Test {
 protected:
  TraceTest() {
    Vesk::System::clockIs(&clock);
    unsetenv("FLEETLOGDIR");
    Fleetlog::directoryIs(dir);
  }
  ~TraceTest() override {
    Fleetlog::shutdown();
    Vesk::traceSinkIs({});
    EXPECT_EQ(Vesk::traceLevelsIs(""), std::nullopt);
    Vesk::System::clockIs(nullptr);
  }
  static bool startRing(const std::string& name, const Fleetlog::Sizes& sizes,
                        std::uint32_t quiet = 0) {
    return Fleetlog::initialize(name, sizes, nullptr, 0, 24, quiet, true, 512);
  }

  Vesk::ManualClock clock{1000};
  TemporaryDirectory directory;
  std::filesystem::path dir = directory.path();
  static constexpr Fleetlog::Sizes usual{30, 30, 30, 30, 30, 30, 30, 90, 90, 90};
};

TEST_F(TraceTest, linesCarryTheirPlaceAndNothingIsEvaluatedWhenOff) {
  std::vector<std::string> lines;
  Vesk::traceSinkIs([&](const Vesk::TraceLine& line) {
    lines.push_back(
        fmt::format("{} {} {} {}: {}", line.time, line.module, line.level, line.file, line.text));
    EXPECT_NE(line.function.find("TestBody"), std::string::npos) << line.function;
  });
  const Vesk::TraceHandle handle("IpTunnelMappingSm");
  int made = 0;
  for (const char* setting : {"", "IpTunnelMappingSm/8"}) {
    ASSERT_EQ(Vesk::traceLevelsIs(setting), std::nullopt);
    if (auto t = handle.at(8)) t << "vlan " << ++made;
    Vesk::trace(handle, 9, [&] { return std::to_string(++made); });
  }
  EXPECT_EQ(made, 1);
  EXPECT_EQ(lines, std::vector<std::string>{"1000 IpTunnelMappingSm 8 TraceTest.cc: vlan 1"});
}

TEST_F(TraceTest, settingsAddUpReachLaterHandlesAndAreTakenWholeOrNotAtAll) {
  Vesk::TraceHandle mapping("IpTunnelMappingSm");
  ASSERT_EQ(Vesk::traceLevelsIs("IpTunnelMappingSm/8,9;Irb*/2-4;*/1"), std::nullopt);
  Vesk::TraceHandle irb("IrbStatusSm");
  auto levels = [](const Vesk::TraceHandle& handle) {
    std::string on;
    for (int level = 0; level < 10; ++level) {
      if (handle.isOn(level)) on += std::to_string(level);
    }
    return on;
  };
  EXPECT_EQ(levels(mapping), "189");
  EXPECT_EQ(levels(irb), "1234");
  for (const char* bad : {"x", "/8", "x/", "x/8;y", "x/8,,9", "x/32", "x/-1", "x/4-2", "x/8a"}) {
    auto error = Vesk::traceLevelsIs(bad);
    EXPECT_TRUE(error && error->find("trace setting") == 0) << bad;
  }
  EXPECT_EQ(levels(mapping), "189");
  ASSERT_EQ(Vesk::traceLevelsIs("Irb*/*"), std::nullopt);
  EXPECT_EQ(levels(mapping), "");
  EXPECT_TRUE(irb.isOn(0) && irb.isOn(31));
}

constexpr Vesk::LogDescriptor conflict{"CONFLICT", "range %s in VRF %s is 100%% bad%s", "", ""};

TEST_F(TraceTest, logLimiterLetsItsRateThroughPerPeriod) {
  Vesk::LogHandle one(conflict, 60, 1.0, 0, 0), burst(conflict, 10, 3.0, 0x3, 0x8);
  auto passed = [](Vesk::LogHandle& handle, std::uint32_t mask) {
    int count = 0;
    while (count < 10 && handle.okToLog(mask))
      ++count;
    return count;
  };
  std::string seen;
  Vesk::logSinkIs([&](const auto& message, const auto& args, const std::string& text) {
    seen = fmt::format("{}/{}/{}", message.name, args.size(), text);
  });
  Vesk::LogString text;
  text.strIs(1, "red");
  text.strIs(0, "239.0.0.0/25 %s");
  one.log(text);
  EXPECT_EQ(seen, "CONFLICT/2/range 239.0.0.0/25 %s in VRF red is 100% bad");
  Vesk::logSinkIs({});
  EXPECT_EQ(passed(one, 0), 1);
  for (int i = 1; i <= 6; ++i) {
    clock.advanceTo(1000 + 10 * i);
    EXPECT_EQ(passed(one, 0), i == 6 ? 1 : 0) << "after " << 10 * i << " s";
  }
  EXPECT_EQ(passed(burst, 0), 3);
  EXPECT_EQ(passed(burst, 4), 0) << "not a bit that tells messages apart";
  EXPECT_EQ(passed(burst, 1), 3);
  EXPECT_EQ(passed(burst, 8), 10) << "exempt";
  clock.advanceTo(5000);
  EXPECT_EQ(passed(burst, 0), 3) << "unused turns do not pile up";
  Vesk::LogHandle::resetAll();
  EXPECT_EQ(passed(burst, 0), 3);
}

TEST_F(TraceTest, ringKeepsTheLastRecordsOfEachLevelInOrder) {
  Fleetlog::TraceHandle pipeline("pipeline"), other("a module with a name of more than 24 bytes");
  Fleetlog::Sizes sizes = usual;
  sizes[8] = 1;
  sizes[9] = 0;
  ASSERT_TRUE(startRing("Corvane-%d.fl", sizes, 1U << 7));
  EXPECT_EQ(Fleetlog::currentFile(), dir / fmt::format("Corvane-{}.fl", getpid()));
  auto path = Fleetlog::currentFile();
  Fleetlog::record(other, 1, "rare");
  const std::string longText(1000, 'x');
  // Lengths of all remainders, so that wraps fall on every place.
  for (std::size_t i = 0; i < 5000; ++i) {
    clock.advanceTo(1000 + static_cast<double>(i));
    Fleetlog::record(pipeline, 8, "{} {}", i, std::string_view(longText).substr(0, i * 7 % 600));
    if (i % 611 == 0) {
      EXPECT_FALSE(Fleetlog::readRing(path).records.empty());
    }
  }
  Fleetlog::record(pipeline, 7, "quiet");
  Fleetlog::record(pipeline, 9, "no ring");
  other.levelsIs(0);
  Fleetlog::record(other, 1, "off");
  Fleetlog::TraceHandle late("late");
  Fleetlog::record(late, 1, longText);

  EXPECT_FALSE(Fleetlog::readRing(path).closed);
  Fleetlog::shutdown();
  Fleetlog::record(pipeline, 1, "after the end");
  auto file = Fleetlog::readRing(path);
  EXPECT_TRUE(file.closed);
  EXPECT_EQ(file.processId, static_cast<std::uint32_t>(getpid()));
  const auto& records = file.records;
  ASSERT_GE(records.size(), 4U);
  EXPECT_EQ(records.front().text, "rare");
  EXPECT_EQ(records.front().module, "a module with a name of ");
  EXPECT_EQ(records.back().module, "late");
  EXPECT_EQ(records.back().text, longText.substr(0, 512 - 24));
  for (std::size_t i = 1; i + 1 < records.size(); ++i) {
    auto n = 5000 - (records.size() - 1) + i;  // the last of the 5000, without a gap
    EXPECT_EQ(records[i].sequence, n + 2);
    EXPECT_EQ(records[i].time, 1000 + static_cast<double>(n));
    auto text = fmt::format("{} {}", n, longText.substr(0, n * 7 % 600)).substr(0, 512 - 24);
    EXPECT_EQ(records[i].text, text);
  }
}

TEST_F(TraceTest, aKilledWriterLeavesAReadableRing) {
  auto path = dir / "killed.fl";
  Fleetlog::TraceHandle handle("writer");
  for (int round = 0; round < 40; ++round) {
    std::filesystem::remove(path);
    pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that fails leaves no writer behind
      if (!startRing("killed.fl", {1, 1, 1, 1, 1, 1, 1, 2, 2, 2})) _exit(1);
      const std::string text(500, 'y');
      for (std::size_t i = 1;; ++i) {
        Fleetlog::record(handle, i % 10, std::string_view(text).substr(0, i % 480));
      }
    }
    while (!std::filesystem::exists(path))
      ASSERT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "the writer ended";
    // Looks at a writer that runs, until it has come far enough, and then one at a dead one.
    const std::uint64_t enough = 1 + 1000 * static_cast<std::uint64_t>(round);
    std::uint64_t last = 0;
    for (bool dead = false;; dead = last >= enough) {
      if (dead) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
      }
      auto file = Fleetlog::readRing(path);
      EXPECT_FALSE(file.closed);
      for (const auto& record : file.records) {
        ASSERT_EQ(record.level, record.sequence % 10);
        ASSERT_EQ(record.text, std::string(record.sequence % 480, 'y'));
      }
      if (dead) {
        ASSERT_FALSE(file.records.empty());
        EXPECT_GE(file.records.back().sequence, last) << "what was there to see is lost";
        break;
      }
      if (!file.records.empty()) last = file.records.back().sequence;
    }
  }
}

TEST_F(TraceTest, aRingThatCannotBeMadeNamesItsFile) {
  Fleetlog::directoryIs(dir / "absent");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(startRing("x.fl", usual));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("x.fl: No such file"), std::string::npos);
}

TEST_F(TraceTest, aRingGoesOnWhenItsFileIsSpoiled) {
  for (const std::uintmax_t left : {std::uintmax_t{0}, std::uintmax_t{5000}}) {
    ASSERT_TRUE(startRing("x.fl", usual));
    const auto fill = [] {
      for (int i = 0; i < 5000; ++i)
        Fleetlog::record(Fleetlog::TraceHandle("Mapping"), 8, "a record, number {}", i);
    };
    fill();
    const auto whole = std::filesystem::file_size(dir / "x.fl");
    if (left != 0) {  // zeros in the place of all lengths
      std::filesystem::resize_file(dir / "x.fl", left);
      std::filesystem::resize_file(dir / "x.fl", whole);
    } else {
      std::filesystem::resize_file(dir / "x.fl", 0);
    }
    fill();
    Fleetlog::shutdown();
  }
}

/// What others have laid in the way is not followed, and not written to.
TEST_F(TraceTest, aRingIsANewFile) {
  const auto victim = dir / "victim";
  std::ofstream(victim) << "precious";
  std::filesystem::create_symlink(victim, dir / "x.fl");
  std::filesystem::create_symlink(victim, dir / "x.fl.new");
  EXPECT_TRUE(startRing("x.fl", usual));
  EXPECT_EQ(std::filesystem::file_size(victim), 8U);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(dir / "x.fl")));
  if (geteuid() != 0) return;  // only root can give a directory away
  std::filesystem::create_directory(dir / "theirs");
  ASSERT_EQ(chown((dir / "theirs").c_str(), 12345, 12345), 0);
  Fleetlog::directoryIs(dir / "theirs");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(startRing("x.fl", usual));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("not permitted"), std::string::npos);
}

}  // namespace
