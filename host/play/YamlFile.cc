#include "host/play/YamlFile.h"

#include <charconv>
#include <cmath>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/InputError.h"

namespace Host {
namespace {

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
  load([&] { return YAML::LoadAllFromFile(name_); });
}

YamlFile::YamlFile(std::string name, const std::string& content) : name_(std::move(name)) {
  load([&] { return YAML::LoadAll(content); });
}

void YamlFile::load(const std::function<std::vector<YAML::Node>()>& documents) {
  try {
    const auto all = documents();
    if (all.size() > 1) throw InputError(name_, lineOf(all[1]), 1, "a second document in the file");
    if (!all.empty()) root_.reset(all.front());
  } catch (const YAML::BadFile&) {
    throw InputError(name_, 0, 0, "cannot be read");
  } catch (const YAML::Exception& error) {
    throw InputError(name_, error.mark.line + 1, error.mark.column + 1, error.msg);
  }
}

void YamlFile::fail(const YAML::Node& at, const std::string& text) const {
  throw InputError(name_, lineOf(at), at.Mark().column + 1, text);
}

std::string YamlFile::text(const YAML::Node& node, const std::string& what) const {
  if (!node.IsScalar()) fail(node, what + " must be a text");
  return node.Scalar();
}

double YamlFile::seconds(const YAML::Node& node, const std::string& what) const {
  double value = 0;
  if (!node.IsScalar() || !reads(node.Scalar(), value) || !std::isfinite(value) || value < 0)
    fail(node, fmt::format("{} must be a number of seconds, not '{}'", what, said(node)));
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
