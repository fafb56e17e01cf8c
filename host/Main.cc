#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/Commands.h"
#include "host/InputError.h"
#include "runtime/Assert.h"
#include "runtime/Fleetlog.h"
#include "runtime/Toggle.h"
#include "runtime/shm/TableLayout.h"

namespace {

constexpr int statusUnusable = 2;

struct Arguments {
  Host::PlayOptions play;
  std::vector<std::string> files;
  std::string keep;
  std::uint64_t seed = 0;
  std::size_t crashAt = 0;
  std::string recordName;
  std::vector<std::string> addresses;
  std::string directory = ".";
  std::string address;
  std::string patch;
  std::string ring;
  std::vector<std::size_t> levels;
  double seconds = 0;
  std::vector<std::string> limits;
  std::string wiring;
  bool json = false;
  Host::GraphForm form = Host::GraphForm::dot;
};

/// The library reads "-1", and what is too great, as the greatest number of all.
std::string isCount(const std::string& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size()
             ? ""
             : fmt::format("must be a whole number from 0 on, not '{}'", text);
}

int run(int argc, char** argv) {
  CLI::App app{"Overlay multicast agent: plays scenarios, prints tables, lists records.",
               "corvane"};
  app.require_subcommand(1);
  Arguments arguments;

  auto* play = app.add_subcommand("play", "Play scenario files in order");
  play->add_flag("--json", arguments.json, "One JSON document a step");
  auto* keep = play->add_option("--keep", arguments.keep,
                                "Keep tables, toggle files and trace ring in this directory");
  play->add_flag("--resume", arguments.play.resume,
                 "Start over what a former run published in the kept directory")
      ->needs(keep);
  auto* stay =
      play->add_flag("--stay", arguments.play.stay,
                     "Live on after the last step, in real time, and follow the tables that other "
                     "processes write; Ctrl-C ends it");
  play->add_option("--trace", arguments.play.traceLevels,
                   "Traces on standard error: NAME/LEVELS;NAME/LEVELS, as in IpTunnel*/8,9");
  auto* seed =
      play->add_option("--seed", arguments.seed,
                       "Shuffle ready tasks of equal priority and the order of subscribers")
          ->check(isCount);
  auto* crash = play->add_option("--crash-at", arguments.crashAt,
                                 "Crash the agent in its N-th write to an output, 0: in each in "
                                 "turn, and ask whether the outputs end up the same")
                    ->excludes(stay)
                    ->check(isCount);
  play->add_option("--limit", arguments.limits,
                   "PATH=ROWS: how many rows each file of a shared table may get, instead of 16 "
                   "times the stated size; may be given several times")
      ->allow_extra_args(false);
  play->add_flag(
      "--flood-lists", arguments.play.floodLists,
      "Ask for tunnels to the static flood lists of VXLAN interfaces as well, as client2 "
      "of the tunnel service");
  auto* wiring = play->add_option("--wiring", arguments.wiring,
                                  "Add to this file which machine reads and writes what; see "
                                  "'graph'");
  play->add_option("--explain", arguments.play.explain,
                   "At the end of each file, why something is as it is: VLAN,GROUP for an overlay "
                   "group, or 'tunnel ENDPOINT', 'port INTF,VLAN', 'vni VNI'");
  play->add_option("FILE", arguments.files, "Scenario files")->required();

  auto* records =
      app.add_subcommand("records", "List record types, attributes, mount paths and capacities");
  records->add_flag("--json", arguments.json, "One JSON document");
  records->add_option("NAME", arguments.recordName, "Record type or mount path");

  auto* graph = app.add_subcommand(
      "graph", "Print which machine reads and writes what, as DOT text for graphviz");
  const std::map<std::string, Host::GraphForm> forms{{"dot", Host::GraphForm::dot},
                                                     {"json", Host::GraphForm::json},
                                                     {"markdown", Host::GraphForm::markdown},
                                                     {"source", Host::GraphForm::source}};
  graph
      ->add_option("--form", arguments.form,
                   "dot: for graphviz; json; markdown: a table of the mounts; source: as "
                   "host/Wiring.inc")
      ->transform(CLI::CheckedTransformer(forms));
  graph->add_option("FILE", arguments.wiring,
                    "What 'play --wiring' has noted, instead of what the program carries");

  auto* show = app.add_subcommand("show", "Print shared tables of a running or ended agent");
  show->add_flag("--json", arguments.json, "One JSON document");
  show->add_option("--dir", arguments.directory, "Directory of the tables");
  show->add_option("ADDRESS", arguments.addresses, "Paths or attributes")->required();

  auto* watch = app.add_subcommand("watch", "Follow shared tables of a running or ended agent");
  watch->add_flag("--json", arguments.json, "One JSON document a line");
  watch->add_option("--dir", arguments.directory, "Directory of the tables");
  auto* seconds = watch->add_option("--seconds", arguments.seconds, "End after so many seconds")
                      ->check(CLI::Range(0.0, 1e9));
  watch->add_option("ADDRESS", arguments.addresses, "Paths or attributes")->required();

  auto* write = app.add_subcommand("write", "Write to a shared table as another agent would");
  write->add_option("--dir", arguments.directory, "Directory of the tables");
  write->add_option("ADDRESS", arguments.address, "A path, or what stands below one")->required();
  write->add_option("PATCH", arguments.patch, "As in a scenario's write; null deletes")->required();

  auto* trace = app.add_subcommand("trace", "Print the trace ring of a running or ended agent");
  trace->add_flag("--json", arguments.json, "One JSON document a line");
  trace->add_option("--level", arguments.levels, "Only this level; may be given several times")
      ->check(CLI::Range(std::size_t{0}, Fleetlog::levelCount - 1))
      ->allow_extra_args(false);
  trace->add_option("FILE", arguments.ring, "Trace ring")->required();

  // What stands first is a command, and a word that is none is a slip of the pen.
  if (argc > 1 && argv[1][0] != '-') {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({}))
      names.push_back(command->get_name());
    if (std::find(names.begin(), names.end(), argv[1]) == names.end())
      throw Host::InputError(
          fmt::format("no command is called '{}'; there are {}", argv[1], fmt::join(names, ", ")));
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : statusUnusable;
  }
  const auto audience = arguments.json ? Host::Audience::programs : Host::Audience::people;
  arguments.play.audience = audience;
  if (keep->count() != 0) arguments.play.keep = arguments.keep;
  if (seed->count() != 0) arguments.play.seed = arguments.seed;
  if (crash->count() != 0) arguments.play.crashAt = arguments.crashAt;
  if (wiring->count() != 0) arguments.play.wiring = arguments.wiring;
  for (const std::string& limit : arguments.limits)
    arguments.play.rowLimits.push_back(Host::rowLimitOf(limit));
  if (play->parsed()) return Host::playCommand(arguments.files, arguments.play);
  if (records->parsed()) return Host::recordsCommand(arguments.recordName, audience);
  if (graph->parsed()) return Host::graphCommand(arguments.wiring, arguments.form);
  if (write->parsed())
    return Host::writeCommand(arguments.address, arguments.patch, arguments.directory);
  if (trace->parsed()) return Host::traceCommand(arguments.ring, arguments.levels, audience);
  if (watch->parsed()) {
    const auto duration = seconds->count() == 0 ? std::nullopt : std::optional(arguments.seconds);
    return Host::watchCommand(arguments.addresses, arguments.directory, duration, audience);
  }
  return Host::showCommand(arguments.addresses, arguments.directory, audience);
}

int unusable(const std::string& message, int status = statusUnusable) {
  std::fflush(stdout);
  fmt::print(stderr, "{}\n", message);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int status = run(argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
      return unusable("standard output: cannot be written");
    return status;
  } catch (const Host::InputError& error) {
    return unusable(error.message(), error.status);
  } catch (const Orlane::ConfigError& error) {
    return unusable(error.what());
  } catch (const VeskSharedMem::TableError& error) {
    return unusable(error.what());
  } catch (const std::system_error& error) {
    return unusable(error.what());
  }
}
