#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/Commands.h"
#include "host/InputError.h"
#include "host/Wiring.h"
#include "host/print/EntityJson.h"

namespace Host {
namespace {

std::string contentOf(const std::string& file) {
  std::ifstream in(file);
  std::ostringstream content;
  if (!(content << in.rdbuf()))
    throw InputError(fmt::format("{}: cannot be read, or is empty", file));
  return content.str();
}

/// The lines of `play --wiring`, each fact once; they refer to `text`.
std::set<WiringFact> factsOf(const std::string& file, std::string_view text) {
  std::set<WiringFact> facts;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::size_t first = line.find(' '), last = line.rfind(' ');
    const std::string_view wire =
        first < last ? line.substr(first + 1, last - first - 1) : std::string_view();
    if (wire != wireText(Wire::reads) && wire != wireText(Wire::writes))
      throw InputError(
          fmt::format("{}: line {}: not 'MACHINE reads|writes END': {}", file, number, line));
    facts.insert({line.substr(0, first), wire == wireText(Wire::reads) ? Wire::reads : Wire::writes,
                  line.substr(last + 1)});
  }
  return facts;
}

}  // namespace

int graphCommand(const std::string& file, GraphForm form) {
  std::string text;
  std::vector<WiringFact> facts(wiring().begin(), wiring().end());
  if (!file.empty()) {
    text = contentOf(file);
    const std::set<WiringFact> noted = factsOf(file, text);
    facts.assign(noted.begin(), noted.end());
  }
  switch (form) {
    case GraphForm::dot:
      fmt::print("{}", dotOf(facts));
      break;
    case GraphForm::json: {
      Json list = Json::array();
      for (const WiringFact& fact : facts)
        list.push_back({{"machine", fact.machine},
                        {"wire", wireText(fact.wire)},
                        {fact.isMount() ? "path" : "type", fact.end}});
      fmt::print("{}\n", jsonText(list, 2));
      break;
    }
    case GraphForm::markdown:
      fmt::print("{}", markdownOf(facts));
      break;
    case GraphForm::source:
      for (const WiringFact& fact : facts)
        fmt::print("{{\"{}\", {}, \"{}\"}},\n", fact.machine, wireText(fact.wire), fact.end);
      break;
  }
  return 0;
}

}  // namespace Host
