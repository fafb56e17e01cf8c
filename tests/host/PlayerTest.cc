// The program from outside: scenario texts in, report and exit status out.
// Most stories need no agent, so that what they find is the player's fault and nobody else's.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/TemporaryDirectory.h"
#include "tests/host/Program.h"

namespace {

namespace fs = std::filesystem;

class PlayerTest : public testing::Test {
 protected:
  std::string file(const std::string& content) {
    const bool hasTitle = content.find("title:") != std::string::npos;
    std::ofstream(directory_ / "story.yaml") << content << (hasTitle ? "" : "\ntitle: A story\n");
    return directory_ / "story.yaml";
  }
  Outcome play(const std::string& content, const std::string& options = "") {
    return run("play " + options + " " + file(content));
  }
  void passes(const std::string& content, const std::string& options = "") {
    const Outcome result = play(content, options);
    EXPECT_EQ(result.status, 0) << content << result.output;
    EXPECT_NE(result.output.find("1 passed, 0 failed\n"), std::string::npos) << result.output;
  }
  void fails(const std::string& content, const std::vector<std::string>& says) {
    const Outcome result = play(content);
    EXPECT_EQ(result.status, 1) << content << result.output;
    for (const std::string& text : says)
      EXPECT_NE(result.output.find(text), std::string::npos) << text << "\n" << result.output;
  }

  TemporaryDirectory directory_;
};

TEST_F(PlayerTest, RefusesWhatDoesNotReadBeforeAnythingRuns) {
  struct Case {
    const char* content;
    const char* says;
  };
  const Case cases[] = {
      {"steps: [{wait: 1}]", ":1:10: unknown step 'wait'"},
      {"stebs: []", ":1:1: unknown key 'stebs'"},
      {"steps:\n  - run: idle\n    crash:\n", ":3:5: a step is one thing"},
      {"steps:\n  - write: {no/such/path: {}}\n", ":2:13: path 'no/such/path' is not known"},
      {"steps:\n  - write:\n      bridging/vlan/status:\n        vlanStatuss: {}\n",
       ":4:9: Bridging::VlanStatusDir has no attribute 'vlanStatuss'"},
      {"steps: [{write: {'bridging/vlan/status:vlanStatus': {4095: {}}}}]",
       "Bridging::VlanId::value < 1 or > 4094 not allowed"},
      {"steps: [{write: {'mlag/status:failover': yes}}]", ":1:42: 'yes' does not read as bool"},
      {"steps: [{write: {'multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToFloodGroup': {10: "
       "'1,none,3'}}}]",
       "too many parts"},
      {"steps: [{write: {'multicast/tunnel/group/config:intfConfig[Vxlan1].intfId': Vxlan2}}]",
       "own key cannot be written"},
      {"steps: [{write: {'multicast/tunnel/group/config:intfConfig': {Vxlan1: {intfId: Vxlan2}}}}]",
       "is not the key of this entry"},
      {"steps: [{expect: {'multicast/ipv4/fib/vrfEnabledStatus:vrf': red}}]",
       "takes a mapping or a list"},
      {"steps: [{corrupt: 'mlag/vxlan/status:vtepTypeAddr[1]'}]",
       "only an entry of a map of a shared table"},
      {"steps: [{corruptions: [{table: mlag/status}]}]", "no shared table stands at 'mlag/status'"},
      {"steps: [{advance: -1}]", "must be a number of seconds"},
      {"steps: [{start: }, {start: }]", ":1:21: the agent runs already"},
      {"toggles: {NoSuchToggle: true}\nsteps: []", ":1:11: no toggle is called 'NoSuchToggle'"},
      {"steps: [{expect: {a: 1}", "end of"},
      {"title: nothing", "needs steps"},
      {"title: ''\nsteps: []", "needs a title"},
      {"steps: [{crash: }]", "no agent runs"},
      {"steps: [{advance: 1e308}]", "0 to 1000000000, not '1e308'"},
      {"steps: [{write: {'mlag/status:failover': !int true}}]", "unknown tag '!int'"},
      {"steps: [{write: {'mlag/status:mlagState': third}}]", "primary"},
      {"environment: {FLEETLOGDIR: ../..}\nsteps: []", "below the scenario's own trace directory"},
  };
  for (const Case& one : cases) {
    const Outcome result = play(one.content);
    EXPECT_EQ(result.status, 2) << one.content << "\n" << result.output;
    EXPECT_NE(result.output.find("story.yaml:"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find(one.says), std::string::npos) << one.content << "\n"
                                                               << result.output;
  }
  // A good file before a bad one does not run either.
  const std::string good = directory_ / "good.yaml";
  std::ofstream(good) << "title: good\nsteps: [{run: idle}]";
  const Outcome both = run("play " + good + " " + file("steps: [{jump: }]"));
  EXPECT_EQ(both.status, 2);
  EXPECT_EQ(both.output.find("good.yaml"), std::string::npos) << both.output;
}

TEST_F(PlayerTest, PatchesMergeAndAreNotedInTheOrderWritten) {
  passes(R"(
steps:
  - write:
      multicast/tunnel/group/config:intfConfig[Vxlan1]:
        mcastOverlayV4: true
        vlanToFloodGroup: {10: "1,232.9.9.9", 11: {floodGroup: 232.9.9.10}}
        vlanToMulticastGroup: {10: {tunnelConfigEntry: {defaultUnderlayGroup: 232.1.1.1}}, 11: !whole {}}
      multicastIntfs/application/routing/red: {multicastIntf: {Vlan10: true}}
      multicast/ipv4/fib/vrfEnabledStatus:vrf: [red, blue]
  - record: [multicast/tunnel/group/config, multicastIntfs/application, multicast/ipv4/tunnel/forwarding/status, multicast/ipv4/fib/vrfEnabledStatus]
  - write:
      multicast/ipv4/tunnel/forwarding/status:
        vlanStatus: {10: {overlayToUnderlay: {"0.0.0.0,239.1.1.1": "10.0.0.1,232.1.1.1,0", "0.0.0.0,239.1.1.2": {underlayGroup: 232.1.1.5}}}}
      multicast/tunnel/group/config:intfConfig[Vxlan1]:
        vlanToFloodGroup: {11: {floodGroup: ~}}
        mcastOverlayV4: ~
        vlanToMulticastGroup: {10: {tunnelConfigEntry: !whole {defaultUnderlayGroup: 232.1.1.1}}, 11: ~}
      multicastIntfs/application/routing/red: ~
      multicast/ipv4/fib/vrfEnabledStatus:vrf: {blue: ~, green: true}
  - changes:
      - multicast/ipv4/tunnel/forwarding/status:vlanStatus[10] added
      - multicast/ipv4/tunnel/forwarding/status:vlanStatus[10].overlayToUnderlay[0.0.0.0,239.1.1.1] = 10.0.0.1,232.1.1.1,PimSsm
      - multicast/ipv4/tunnel/forwarding/status:vlanStatus[10].overlayToUnderlay[0.0.0.0,239.1.1.2] = none,232.1.1.5,0
      - multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToFloodGroup[11] = mcastUnderlay,none
      - multicast/tunnel/group/config:intfConfig[Vxlan1].mcastOverlayV4 = false
      - multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToMulticastGroup[10].tunnelConfigEntry removed
      - multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToMulticastGroup[10].tunnelConfigEntry added
      - multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToMulticastGroup[10].tunnelConfigEntry.defaultUnderlayGroup = 232.1.1.1
      - multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToMulticastGroup[11] removed
      - multicastIntfs/application/routing/red removed
      - multicast/ipv4/fib/vrfEnabledStatus:vrf[blue] removed
      - multicast/ipv4/fib/vrfEnabledStatus:vrf[green] added
  - expect:
      multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToFloodGroup[10].floodGroup: 232.9.9.9
      multicast/tunnel/group/config:intfConfig[Vxlan9].vlanToFloodGroup[10].floodGroup: ~
      multicast/tunnel/group/config:intfConfig[Vxlan1].mcastOverlayV4: ~
      multicast/ipv4/fib/vrfEnabledStatus:vrf: [green, red]
  - equal:
      multicast/ipv4/tunnel/forwarding/status: {vlanStatus: {10: {overlayToUnderlay: {"0.0.0.0,239.1.1.1": "10.0.0.1,232.1.1.1,PimSsm", "0.0.0.0,239.1.1.2": "none,232.1.1.5,PimSsm"}}}}
      multicastIntfs/application/routing: {}
)");
}

TEST_F(PlayerTest, NotesOnlyWhatLiesBelowTheRecordedAddresses) {
  passes(R"(
steps:
  - record: ["multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToFloodGroup[10]", "mlag/status:failover"]
  - write: {multicast/tunnel/group/config: {intfConfig: {Vxlan1: {vlanToFloodGroup: {9: "1,232.9.9.9", 10: "1,232.9.9.9"}}, Vxlan2: {}}}, mlag/status: {mlagState: 1}}
  - changes: ["multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToFloodGroup[10] = 1,232.9.9.9"]
  - record: [mlag/status]
    note: adds an address and forgets nothing that is recorded
  - write: {mlag/status: {mlagState: 3, failover: true}, "multicast/tunnel/group/config:intfConfig[Vxlan1]": ~}
  - changes: {any: ["multicast/tunnel/group/config:intfConfig[Vxlan1].vlanToFloodGroup[10] removed", "mlag/status:failover = true", "mlag/status:mlagState = primary"]}
  - write: {mlag/status: {mlagState: 4, failover: true}}
    note: equal values are no change
  - write: {mlag/status: {mlagState: 3}}
  - changes: {some: ["mlag/status:mlagState = 3"]}
  - changes: []
)");
}

TEST_F(PlayerTest, CountsEffectiveWritesForEachAddressByItself) {
  passes(R"(
steps:
  - write: {multicast/ipv4/fib/vrfEnabledStatus:vrf: [red, blue], mlag/status:failover: true}
  - writes: {"multicast/ipv4/fib/vrfEnabledStatus:vrf[red]": 1, mlag/status: 1}
  - write: {multicast/ipv4/fib/vrfEnabledStatus:vrf: {red: true, blue: ~}}
  - writes: {multicast/ipv4/fib/vrfEnabledStatus: 3, "multicast/ipv4/fib/vrfEnabledStatus:vrf[red]": 0}
  - write: {multicast/ipv4/fib/vrfEnabledStatus:vrf: {red: ~}}
  - record: [mlag/proto]
  - writes: {multicast/ipv4/fib/vrfEnabledStatus: 0}
)");
}

TEST_F(PlayerTest, DamageThatNobodyExpectedFailsTheStory) {
  fails(R"(
steps:
  - write: {"bridging/status:fdbEntry": {"10,00:11:22:33:44:55": Ethernet1}}
  - corrupt: bridging/status:fdbEntry[10,00:11:22:33:44:55]
  - expect: {"bridging/status:fdbEntry[10,00:11:22:33:44:55]": ""}
)",
        {"closing question 'leftovers' failed", "bridging/status"});
}

TEST_F(PlayerTest, SaysWhereAnExpectationFails) {
  fails("steps:\n  - run: idle\n  - expect: {'mlag/status': {failover: true}}\n",
        {"step 2 (", "story.yaml:3) expect failed", "mlag/status:failover", "expected  true",
         "found     false", "0 passed, 1 failed"});
  fails(
      "steps:\n  - write: {'mlag/status': {failover: true, mlagState: 3}}\n  - equal: "
      "{'mlag/status': {failover: true}}\n",
      {"mlag/status:mlagState", "expected  nothing", "primary"});
  fails(
      "steps:\n  - record: [mlag/status]\n  - write: {'mlag/status:failover': true}\n  - changes: "
      "[]\n",
      {"mlag/status:failover = true"});
  fails("steps:\n  - logs: [{name: NO_SUCH_MESSAGE}]\n", {"NO_SUCH_MESSAGE"});
}

TEST_F(PlayerTest, JudgesHowTheProcessEnds) {
  // No tunnel of ingress replication leads to an IPv6 endpoint.
  const std::string start =
      "steps:\n  - write: {'multicast/ipv4/agent/status:multicastRouting': true, "
      "'interface/status/eth/vxlan:vtiStatus[Vxlan1]': {operStatus: up}}\n  - start:\n";
  const std::string fatal =
      "  - write: {'multicast/tunnel/request/irVxlanIpv4/client1:tunnelRequest': "
      "{'0,fd00::9': {}}}\n";
  fails(start + fatal, {"ended by signal 6", "in step 3 (line 4)", "Only IPv4 is supported"});
  fails("aborts: another text\n" + start + fatal, {"aborted with another text"});
  fails("aborts: Only IPv4 is supported\n" + start + fatal + "  - run: idle\n",
        {"before the last one"});
  fails("aborts: anything\nsteps:\n  - run: idle\n", {"did not end the process"});
}

TEST_F(PlayerTest, ATableGrowsUpToItsLimit) {
  std::string rows;
  for (int i = 1; i <= 200; ++i)
    rows += (i == 1 ? "" : ", ") + ("\"0,10.0.0." + std::to_string(i) + "\": 1");
  const std::string table = "multicast/tunnel/status", set = table + ":mcastTunnelSet";
  const std::string write = "steps:\n  - write: {'" + set + "': {" + rows + "}}\n";
  passes(write);
  passes(write + "  - corruptions: [{table: " + table + ", text: \"table " + table +
             ".mcastTunnelSet has its limit of 150 rows: row [0,10.0.0.151] is not written, and "
             "waits\"}]\n",
         "--limit " + table + "=150");
  EXPECT_EQ(run("play --limit " + table + "=many " + (directory_ / "story.yaml")).status, 2);
}

TEST_F(PlayerTest, PrintsDocumentsForPrograms) {
  const Outcome result = play(
      "title: Two rows\nsteps:\n  - write: {'mlag/status': {failover: true, mlagState: 3}}\n"
      "    note: a note\n  - show: [mlag/status, 'mlag/status:failover']\n",
      "--json");
  ASSERT_EQ(result.status, 0) << result.output;
  std::vector<nlohmann::json> documents;
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);)
    documents.push_back(nlohmann::json::parse(line));
  ASSERT_GE(documents.size(), 3U);
  EXPECT_EQ(documents[0]["note"], "a note");
  EXPECT_EQ(documents[1]["kind"], "show");
  const auto& values = documents[1]["values"];
  EXPECT_EQ(values["mlag/status"]["mlagState"], "primary");
  EXPECT_EQ(values["mlag/status:failover"], true);
  EXPECT_EQ(documents.back(), (nlohmann::json{{"passed", 1}, {"failed", 0}}));
  documents.pop_back();
  EXPECT_EQ(documents.back()["ok"], true);
  EXPECT_EQ(documents.back()["title"], "Two rows");
}

TEST_F(PlayerTest, KeptTablesCanBeShownFromAnotherProcess) {
  const std::string kept = directory_ / "kept", table = "multicast/ipv4/tunnel/forwarding/status";
  const std::string row = "'" + table + ":vlanStatus[10].overlayToUnderlay[0.0.0.0,239.1.1.1]'";
  passes("steps: [{write: {" + row + ": '10.0.0.1,232.1.1.1,0'}}]", "--keep " + kept);
  for (const auto& [what, text] :
       {std::pair{table, "232.1.1.1"}, {"--json " + row, "\"underlayGroup\": \"232.1.1.1\""}}) {
    const Outcome shown = run("show --dir " + kept + " " + what);
    EXPECT_EQ(shown.status, 0) << shown.output;
    EXPECT_NE(shown.output.find(text), std::string::npos) << shown.output;
  }
  EXPECT_EQ(run("show --dir " + kept + " mlag/status").status, 2);
}

TEST_F(PlayerTest, ListsRecordsAndKnowsItsCommands) {
  const Outcome one = run("records Irb::Multicast::McastIrbStatus");
  EXPECT_EQ(one.status, 0);
  for (const char* text : {"multicast/ipv4/irb/status/client3", "vlanToSbd", "4000"})
    EXPECT_NE(one.output.find(text), std::string::npos) << text << "\n" << one.output;
  const Outcome all = run("records --json");
  ASSERT_EQ(all.status, 0);
  EXPECT_GT(nlohmann::json::parse(all.output).size(), 50U);
  EXPECT_EQ(run("records No::Such::Record").status, 2);
  EXPECT_EQ(run("--help").status, 0);
  EXPECT_NE(run("dance").output.find("no command is called 'dance'; there are play"),
            std::string::npos);
  EXPECT_EQ(run("play").status, 2);
  EXPECT_EQ(run("play --resume " + file("steps: []")).status, 2) << "over tables that are not kept";
  for (const char* options : {"--trace nonsense ", "--trace Nope/8 ", "--seed -1 "})
    EXPECT_EQ(run("play " + (options + file("steps: []"))).status, 2) << options;
}

TEST_F(PlayerTest, ServesStaticFloodListsIfItIsAskedTo) {
  const std::string story =
      "steps:\n  - write:\n      multicast/ipv4/agent/status:multicastRouting: true\n"
      "      interface/status/eth/vxlan:vtiStatus[Vxlan1]: {operStatus: up}\n"
      "      vxlan/config:vxlanConfig[Vxlan1].floodVtepList: {10.0.0.9: true}\n"
      "  - start:\n  - equal: {'multicast/tunnel/table/irVxlanIpv4:encap': ";
  passes(story + "{'72057594205700105': {}}}\n", "--flood-lists");
  passes(story + "{}}\n");
}

}  // namespace
