// A YAML file with places: every complaint names file, line and column.
// Owns: the parsed document. Reads: the file, once. Throws: InputError, and nothing else.
#pragma once

#include <functional>
#include <string>

#include <yaml-cpp/yaml.h>

namespace Host {

class YamlFile {
 public:
  explicit YamlFile(std::string name);
  /// Reads a text in place of a file.
  YamlFile(std::string name, const std::string& content);

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const YAML::Node& root() const { return root_; }
  [[nodiscard]] static int lineOf(const YAML::Node& node);
  [[noreturn]] void fail(const YAML::Node& at, const std::string& text) const;

  /// The text of a scalar; `what` names it in the complaint about anything else.
  [[nodiscard]] std::string text(const YAML::Node& node, const std::string& what) const;
  [[nodiscard]] double seconds(const YAML::Node& node, const std::string& what) const;
  [[nodiscard]] std::size_t number(const YAML::Node& node, const std::string& what) const;
  /// Calls f(key, key node, value node) for each pair in order of writing; a key twice is an error.
  void forEachPair(
      const YAML::Node& node, const std::string& what,
      const std::function<void(const std::string&, const YAML::Node&, const YAML::Node&)>& f) const;
  void forEachItem(const YAML::Node& node, const std::string& what,
                   const std::function<void(const YAML::Node&)>& f) const;

  /// What the user wrote, on one line.
  [[nodiscard]] static std::string said(const YAML::Node& node);

 private:
  void load(const std::string& content);
  void measure(const YAML::Node& node, std::size_t depth, std::size_t& count) const;
  std::string name_;
  YAML::Node root_;
};

}  // namespace Host
