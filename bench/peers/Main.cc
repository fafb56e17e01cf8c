// Measures our runtime beside what would stand in its place: tables, notification, maps, traces.
// Usage: corvane_peers --json FILE [--quick] [--topic WORD] [--place DIRECTORY]
#include <cstdio>
#include <fstream>
#include <linux/magic.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <boost/version.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sigc++/sigc++.h>

#include "bench/peers/Processes.h"
#include "bench/peers/Recorder.h"
#include "bench/peers/Rows.h"
#include "bench/peers/Store.h"

namespace Peers {

std::vector<StoreKind> storeKinds() {
  return {sharedTable(), sharedAttribute(), lmdb(1), lmdb(256), interprocessMap(), sqlite()};
}

namespace {

std::vector<Topic> allTopics(const Options& options) {
  std::vector<Topic> topics = tableSpeed(options);
  topics.push_back(tableKills(options));
  topics.push_back(tableFollowing(options));
  topics.push_back(notification(options));
  for (Topic& topic : maps(options))
    topics.push_back(std::move(topic));
  topics.push_back(tracing(options));
  return topics;
}

nlohmann::json versions() {
  return {
      {"compiler", fmt::format("g++ {}", __VERSION__)},
      {"Boost", BOOST_LIB_VERSION},
      {"LMDB", fmt::format("{}.{}.{}", MDB_VERSION_MAJOR, MDB_VERSION_MINOR, MDB_VERSION_PATCH)},
      {"SQLite", SQLITE_VERSION},
      {"sigc++",
       fmt::format("{}.{}.{}", SIGCXX_MAJOR_VERSION, SIGCXX_MINOR_VERSION, SIGCXX_MICRO_VERSION)}};
}

std::string fileSystemOf(const std::filesystem::path& path) {
  struct statfs status {};
  const bool isInMemory = statfs(path.c_str(), &status) == 0 && status.f_type == TMPFS_MAGIC;
  return isInMemory ? "tmpfs" : "a disk's file system";
}

int run(int argc, char** argv) {
  CLI::App app("Measures the runtime beside other libraries");
  Options options;
  std::string jsonFile;
  std::string word;
  std::string place =
      access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path().string();
  app.add_flag("--quick", options.quick, "Small sizes and few repeats, to see that it runs");
  app.add_option("--json", jsonFile, "File for the figures")->required();
  app.add_option("--topic", word, "Only topics whose name holds this word");
  app.add_option("--place", place, "Directory for the files of all stores")
      ->check(CLI::ExistingDirectory);
  CLI11_PARSE(app, argc, argv);

  const ScratchDirectory scratch(std::filesystem::path(place) / fmt::format("peers-{}", getpid()));
  options.place = scratch.str();
  nlohmann::json report{{"quick", options.quick},
                        {"fileSystem", fileSystemOf(options.place)},
                        {"payloadBytes", payloadBytes},
                        {"versions", versions()},
                        {"topics", nlohmann::json::array()}};
  for (const Topic& topic : allTopics(options))
    if (topic.name.find(word) != std::string::npos) report["topics"].push_back(measured(topic));

  std::ofstream out(jsonFile);
  out << report.dump(1) << "\n";
  out.close();
  if (!out) throw std::runtime_error(jsonFile + ": cannot be written");
  return 0;
}

}  // namespace
}  // namespace Peers

int main(int argc, char** argv) {
  try {
    return Peers::run(argc, argv);
  } catch (const std::exception& error) {
    fmt::print(stderr, "corvane_peers: {}\n", error.what());
    return 1;
  }
}
