#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/Commands.h"
#include "host/InputError.h"
#include "host/Interrupt.h"
#include "host/TableFollower.h"

namespace Host {
namespace {

using Clock = std::chrono::steady_clock;

/// A writer that is killed may wake nobody: how long its last change may go unnoticed.
constexpr std::chrono::milliseconds lookInterval{250};

void printText(const RowChange& change) {
  switch (change.kind) {
    case RowChange::Kind::value:
      fmt::print("{} = {}\n", change.address, change.text);
      return;
    case RowChange::Kind::added:
      fmt::print("{} added\n", change.address);
      return;
    case RowChange::Kind::removed:
      fmt::print("{} removed\n", change.address);
      return;
  }
}

void printJson(const RowChange& change) {
  Json document{{"address", change.address}};
  switch (change.kind) {
    case RowChange::Kind::value:
      document["value"] = change.value;
      break;
    case RowChange::Kind::added:
      document["added"] = true;
      break;
    case RowChange::Kind::removed:
      document["removed"] = true;
      break;
  }
  fmt::print("{}\n", jsonText(document));
}

}  // namespace

int watchCommand(const std::vector<std::string>& addresses, const std::string& directory,
                 std::optional<double> seconds, Audience audience) {
  auto parsed = sharedAddresses(addresses);
  const std::string tables = tablesDirectory(directory);
  endOnInterrupt();
  TableFollower follower(tables, std::move(parsed), [audience](const RowChange& change) {
    audience == Audience::people ? printText(change) : printJson(change);
    std::fflush(stdout);
  });
  const auto start = Clock::now();
  const auto timeLeft = [&] {
    if (!seconds) return lookInterval;
    const std::chrono::duration<double> left =
        std::chrono::duration<double>(*seconds) - (Clock::now() - start);
    return std::chrono::ceil<std::chrono::milliseconds>(
        std::max(left, std::chrono::duration<double>::zero()));
  };
  const auto isOver = [&] { return isInterrupted() || timeLeft().count() == 0; };
  follower.findFiles();
  while (!isOver()) {
    follower.tellChanges(false);
    follower.wait(std::min(lookInterval, timeLeft()));
  }
  follower.findFiles();
  follower.tellChanges(true);
  return 0;
}

}  // namespace Host
