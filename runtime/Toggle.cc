#include "runtime/Toggle.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Orlane {
namespace {

using Json = nlohmann::json;

std::filesystem::path& toggleDir() {
  static auto& dir = *new std::filesystem::path;
  return dir;
}

// A list or object may nest deeper than a line can show.
std::string said(const Json& value) {
  return value.is_structured() ? fmt::format("({})", value.type_name()) : value.dump();
}

// The empty object stands for a file that is not there.
Json readFile(const std::filesystem::path& path) {
  std::error_code error;
  auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) return Json::object();
  std::ifstream stream(path);
  if (error || !std::filesystem::is_regular_file(status) || !stream) {
    throw ConfigError(fmt::format("toggle file {}: cannot be read", path.string()));
  }
  try {
    auto content = Json::parse(stream);
    if (content.is_object()) return content;
  } catch (const Json::exception& fault) {
    std::string_view text = fault.what();
    throw ConfigError(fmt::format("toggle file {}: {}", path.string(),
                                  text.substr(std::min(text.find("] ") + 2, text.size()))));
  }
  throw ConfigError(fmt::format("toggle file {}: not a JSON object", path.string()));
}

bool stateOf(const std::filesystem::path& path, const std::string& name, const Json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_integer()) return (value.get<std::int64_t>() & 1) != 0;
  throw ConfigError(fmt::format("toggle file {}: key {}: value {} is neither a bool nor an integer",
                                path.string(), name, said(value)));
}

}  // namespace

void toggleDirIs(const std::filesystem::path& dir) {
  toggleDir() = dir;
}

bool getToggleState(const std::string& name, const std::string& file, bool defaultState) {
  if (toggleDir().empty()) return defaultState;
  auto path = toggleDir() / file;
  auto content = readFile(path);
  auto found = content.find(name);
  return found == content.end() ? defaultState : stateOf(path, name, *found);
}

void Toggle::read() const {
  enabled_ = getToggleState(name_, file_, default_);
  readIn_ = generation_;
}

void validateToggleFiles(const std::filesystem::path& dir, std::span<const Toggle* const> known) {
  std::set<std::string> files;
  for (const auto* toggle : known)
    files.insert(toggle->file());
  for (const auto& file : files) {
    auto path = dir / file;
    auto content = readFile(path);
    for (const auto& [name, value] : content.items()) {
      static_cast<void>(stateOf(path, name, value));
      const auto isMeant = [&file, &name = name](const Toggle* toggle) {
        return toggle->name() == name && toggle->file() == file;
      };
      if (std::ranges::none_of(known, isMeant)) {
        throw ConfigError(fmt::format("toggle file {}: key {}: value {}: no toggle has this name",
                                      path.string(), name, said(value)));
      }
    }
  }
}

void forgetToggles() {
  ++Toggle::generation_;
}

}  // namespace Orlane
