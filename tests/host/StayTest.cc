// A running agent among other processes: it notices what they write, and they what it writes.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "tests/TemporaryDirectory.h"
#include "tests/host/Program.h"

namespace {

namespace fs = std::filesystem;

TEST(StayTest, OtherProcessesWriteWhatItReadsAndReadWhatItWrites) {
  const TemporaryDirectory directory;
  Program agent("play --keep " + directory.path() +
                " --stay " CORVANE_SCENARIO_DIR "/other-processes.yaml");
  ASSERT_NE(agent.lineWith("the agent stays"), "");
  const std::string rows = "multicast/ipv4/tunnel/forwarding/status";
  const std::string group = rows + ":vlanStatus[10].overlayToUnderlay[0.0.0.0,239.1.1.7]";
  Program watch("watch --dir " + directory.path() + " " + rows);
  ASSERT_NE(watch.lineWith("vlanStatus[10].overlayToUnderlay[0.0.0.0,0.0.0.0] ="), "");
  const auto write = [&](const std::string& address, const std::string& patch) {
    return run("write --dir " + directory.path() + " '" + address + "' '" + patch + "'");
  };

  // The bridging table has no file yet, the ARP table has one.
  EXPECT_EQ(write("bridging/status:fdbEntry[10,00:00:00:00:10:05]", "Ethernet1").status, 0);
  EXPECT_EQ(write("arp/status:arpEntry[1,10.1.10.5,Vlan10]", "00:00:00:00:10:05,Vlan10").status, 0);
  EXPECT_EQ(watch.lineWith("239.1.1.7"), group + " = 10.0.0.1,232.1.1.7,PimSsm\n");
  EXPECT_EQ(write("bridging/status:fdbEntry", "null").status, 0);
  EXPECT_EQ(watch.lineWith("239.1.1.7"), group + " removed\n");

  // Tables that the agent writes, with rows and without.
  for (const std::string& table : {rows, std::string("multicast/ipv6/tunnel/forwarding/status")}) {
    const Outcome refused = write(table + ":vlanStatus[10]", "null");
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.output.find(table + ".vlanStatus.table"), std::string::npos)
        << refused.output;
    EXPECT_NE(refused.output.find("process "), std::string::npos) << refused.output;
  }
  EXPECT_EQ(write("nowhere:x", "1").status, 2);
  EXPECT_EQ(write("arp/status:arpEntry[1,10.1.10.5]", "x").status, 2);

  // A foreign file in the place of a table that the agent follows: it goes on without.
  const std::string foreign = directory / "shm/bridging/status.fdbEntry.table";
  fs::rename(foreign, foreign + ".away");
  std::ofstream(foreign) << "not a table";
  EXPECT_NE(agent.lineWith("bridging/status: ").find(foreign), std::string::npos);
  fs::rename(foreign + ".away", foreign);
  EXPECT_EQ(write("bridging/status:fdbEntry[10,00:00:00:00:10:05]", "Ethernet1").status, 0);
  EXPECT_EQ(watch.lineWith("239.1.1.7"), group + " = 10.0.0.1,232.1.1.7,PimSsm\n");

  // The same file, cut short and then copied over: it is followed again.
  fs::copy_file(foreign, foreign + ".copy");
  fs::resize_file(foreign, 0);
  EXPECT_NE(agent.lineWith("bridging/status: ").find(foreign), std::string::npos);
  EXPECT_EQ(watch.lineWith("239.1.1.7"), group + " removed\n");
  fs::copy_file(foreign + ".copy", foreign, fs::copy_options::overwrite_existing);
  EXPECT_EQ(watch.lineWith("239.1.1.7"), group + " = 10.0.0.1,232.1.1.7,PimSsm\n");
  // A table of its own that is taken away is made anew, with its rows.
  const std::string own = directory / ("shm/" + rows + ".vlanStatus.overlayToUnderlay.table");
  fs::remove(own);
  EXPECT_NE(agent.lineWith("made anew").find(own), std::string::npos);
  const Outcome shown = run("show --dir " + directory.path() + " '" + group + "'");
  EXPECT_NE(shown.output.find("232.1.1.7"), std::string::npos) << shown.output;

  // Another one resumes over what was written, which is no part of its story.
  agent.signal(SIGKILL);
  agent.end();
  Program next("play --keep " + directory.path() +
               " --resume --stay " CORVANE_SCENARIO_DIR "/other-processes.yaml");
  ASSERT_NE(next.lineWith("the agent stays"), "");
  next.signal(SIGINT);
  const Outcome ended = next.end();
  EXPECT_EQ(ended.status, 0);
  EXPECT_NE(ended.output.find("1 passed, 0 failed"), std::string::npos) << ended.output;
  watch.signal(SIGINT);
  EXPECT_EQ(watch.end().status, 0);
}

}  // namespace
