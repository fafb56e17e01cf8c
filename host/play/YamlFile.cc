#include "host/play/YamlFile.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>

#include "host/InputError.h"

namespace Host {
namespace {

/// Aliases make little text into much, and an alias of what it lies in makes it endless.
constexpr std::size_t maxDepth = 100;
constexpr std::size_t maxNodes = 1'000'000;
/// Thirty years: beyond some time a clock in seconds loses the small ones.
constexpr double maxSeconds = 1e9;

/// Counted from 1. An empty document has no place of its own and gets the file's first.
int placeOf(int mark) {
  return std::max(mark, 0) + 1;
}

/// Notes where a document starts and nothing of what is in it.
struct StartOfDocument final : YAML::EventHandler {
  using Mark = YAML::Mark;
  using Text = std::string;
  void OnDocumentStart(const Mark& at) override { mark = at; }
  void OnDocumentEnd() override {}
  void OnNull(const Mark&, YAML::anchor_t) override {}
  void OnAlias(const Mark&, YAML::anchor_t) override {}
  void OnScalar(const Mark&, const Text&, YAML::anchor_t, const Text&) override {}
  void OnSequenceStart(const Mark&, const Text&, YAML::anchor_t,
                       YAML::EmitterStyle::value) override {}
  void OnSequenceEnd() override {}
  void OnMapStart(const Mark&, const Text&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
  void OnMapEnd() override {}

  Mark mark;
};

template <class T>
bool reads(const std::string& text, T& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size();
}

void flowText(const YAML::Node& node, std::string& out) {
  if (node.Tag() == "!whole") out += "!whole ";
  if (node.IsMap()) {
    out += '{';
    for (auto it = node.begin(); it != node.end(); ++it) {
      if (it != node.begin()) out += ", ";
      flowText(it->first, out);
      out += ": ";
      flowText(it->second, out);
    }
    out += '}';
  } else if (node.IsSequence()) {
    out += '[';
    for (auto it = node.begin(); it != node.end(); ++it) {
      if (it != node.begin()) out += ", ";
      flowText(*it, out);
    }
    out += ']';
  } else if (node.IsScalar()) {
    out += node.Scalar().empty() ? "\"\"" : node.Scalar();
  } else {
    out += "null";
  }
}

}  // namespace

YamlFile::YamlFile(std::string name) : name_(std::move(name)) {
  std::ifstream file(name_, std::ios::binary);
  file.peek();  // a directory opens, but does not read
  if (!file.is_open() || file.bad()) throw InputError(name_, 0, 0, "cannot be read");
  std::ostringstream content;
  content << file.rdbuf();
  load(content.str());
}

YamlFile::YamlFile(std::string name, const std::string& content) : name_(std::move(name)) {
  load(content);
}

// The library's own list of all documents can become endless, from a comma at the start of a line.
void YamlFile::load(const std::string& content) {
  try {
    root_.reset(YAML::Load(content));
    std::istringstream stream(content);
    YAML::Parser parser(stream);
    StartOfDocument start;
    if (parser.HandleNextDocument(start) && parser.HandleNextDocument(start))
      throw InputError(name_, placeOf(start.mark.line), placeOf(start.mark.column),
                       "a second document in the file");
  } catch (const YAML::Exception& error) {
    throw InputError(name_, placeOf(error.mark.line), placeOf(error.mark.column), error.msg);
  }
  std::size_t count = 0;
  measure(root_, 0, count);
}

void YamlFile::measure(const YAML::Node& node, std::size_t depth, std::size_t& count) const {
  if (depth > maxDepth)
    fail(node, fmt::format("lies deeper than {} levels, or within an alias of itself", maxDepth));
  // "?" and "!" are what the library gives to a node without a tag.
  const std::string& tag = node.Tag();
  if (!tag.empty() && tag != "?" && tag != "!" && tag != "!whole")
    fail(node, fmt::format("unknown tag '{}'; there is !whole", tag));
  if (++count > maxNodes)
    fail(node, fmt::format("the file comes to more than {} values", maxNodes));
  for (const auto& item : node) {
    if (node.IsMap()) measure(item.first, depth + 1, count);
    measure(node.IsMap() ? item.second : item, depth + 1, count);
  }
}

int YamlFile::lineOf(const YAML::Node& node) {
  return placeOf(node.Mark().line);
}

void YamlFile::fail(const YAML::Node& at, const std::string& text) const {
  throw InputError(name_, lineOf(at), placeOf(at.Mark().column), text);
}

std::string YamlFile::text(const YAML::Node& node, const std::string& what) const {
  if (!node.IsScalar()) fail(node, what + " must be a text");
  return node.Scalar();
}

double YamlFile::seconds(const YAML::Node& node, const std::string& what) const {
  double value = 0;
  if (!node.IsScalar() || !reads(node.Scalar(), value) || !(value >= 0 && value <= maxSeconds))
    fail(node, fmt::format("{} must be a number of seconds, 0 to {:.0f}, not '{}'", what,
                           maxSeconds, said(node)));
  return value;
}

std::size_t YamlFile::number(const YAML::Node& node, const std::string& what) const {
  std::size_t value = 0;
  if (!node.IsScalar() || !reads(node.Scalar(), value))
    fail(node, fmt::format("{} must be a whole number, not '{}'", what, said(node)));
  return value;
}

void YamlFile::forEachPair(
    const YAML::Node& node, const std::string& what,
    const std::function<void(const std::string&, const YAML::Node&, const YAML::Node&)>& f) const {
  if (!node.IsMap()) fail(node, what + " must be a mapping");
  std::set<std::string> seen;
  for (const auto& pair : node) {
    const std::string key = text(pair.first, "a key");
    if (!seen.insert(key).second)
      fail(pair.first, fmt::format("'{}' stands twice in {}", key, what));
    f(key, pair.first, pair.second);
  }
}

void YamlFile::forEachItem(const YAML::Node& node, const std::string& what,
                           const std::function<void(const YAML::Node&)>& f) const {
  if (!node.IsSequence()) fail(node, what + " must be a list");
  for (const auto& item : node)
    f(item);
}

std::string YamlFile::said(const YAML::Node& node) {
  std::string out;
  flowText(node, out);
  return out;
}

}  // namespace Host
