#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/Commands.h"
#include "host/InputError.h"
#include "host/print/EntityJson.h"
#include "runtime/Fleetlog.h"

namespace Host {
namespace {

/// A record is one line, whatever its text holds.
std::string onOneLine(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\n') {
      out += "\\n";
    } else {
      out += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
  }
  return out;
}

Fleetlog::RingFile ringOf(const std::string& file) {
  try {
    return Fleetlog::readRing(file);
  } catch (const Fleetlog::FileError& error) {
    throw InputError(error.what());
  }
}

}  // namespace

int traceCommand(const std::string& file, const std::vector<std::size_t>& levels,
                 Audience audience) {
  auto records = ringOf(file).records;
  std::erase_if(records, [&](const Fleetlog::Record& record) {
    return !levels.empty() && std::find(levels.begin(), levels.end(), record.level) == levels.end();
  });
  std::size_t width = 0;
  for (const auto& record : records)
    width = std::max(width, record.module.size());
  for (const auto& record : records) {
    if (audience == Audience::people) {
      fmt::print("{:.6f}  {}  {:<{}}  {}\n", record.time, record.level, record.module, width,
                 onOneLine(record.text));
      continue;
    }
    const Json document{{"time", record.time},
                        {"level", record.level},
                        {"module", record.module},
                        {"text", record.text}};
    fmt::print("{}\n", jsonText(document));
  }
  return 0;
}

}  // namespace Host
