// The agent's trace ring as the environment sets it: its file's name, its sizes, or none at all.
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/Fleetlog.h"
#include "tests/history/AgentWorld.h"

namespace {

struct RingCase {
  const char* title;
  bool disabled, ownDirectory;
  const char *sizes, *warning;
};

TEST(TraceRingTest, followsTheEnvironment) {
  const auto directory =
      std::filesystem::temp_directory_path() / ("corvane-ring-" + std::to_string(getpid()));
  const std::string withPid = "Corvane-" + std::to_string(getpid()) + ".fl";
  for (const RingCase& c : {RingCase{"disabled", true, false, nullptr, ""},
                            RingCase{"process id in the name", false, false, nullptr, ""},
                            RingCase{"a directory of its own", false, true, "5 6", ""},
                            RingCase{"too many sizes", false, false, "1 2 3 4 5 6 7 8 9 10 11",
                                     "'11' and what follows are ignored"}}) {
    SCOPED_TRACE(c.title);
    std::filesystem::create_directories(directory);
    Fleetlog::directoryIs(directory.string());
    History::AgentWorld world;
    const auto set = [](const char* name, const char* value) {
      value == nullptr ? unsetenv(name) : setenv(name, value, 1);
    };
    set("FLEETLOG_DISABLE", c.disabled ? "1" : nullptr);
    set("FLEETLOGDIR", c.ownDirectory ? directory.c_str() : nullptr);
    set("PIMFLSIZE", c.sizes);
    testing::internal::CaptureStderr();
    world.start();
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.empty(), *c.warning == 0) << said;
    EXPECT_NE(said.find(c.warning), std::string::npos) << said;
    EXPECT_EQ(std::filesystem::exists(directory / withPid), !c.disabled && !c.ownDirectory);
    EXPECT_EQ(std::filesystem::exists(directory / "Corvane.fl"), !c.disabled && c.ownDirectory);
    Fleetlog::shutdown();
    for (const char* name : {"FLEETLOG_DISABLE", "FLEETLOGDIR", "PIMFLSIZE"})
      unsetenv(name);
    std::filesystem::remove_all(directory);
  }
}

}  // namespace
