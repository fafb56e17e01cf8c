#include "host/play/ExplainStep.h"

#include "agent/Explain.h"
#include "host/InputError.h"
#include "host/play/Shown.h"
#include "runtime/Assert.h"

namespace Host {

using Multicast::Vpn::Explanation;

Routing::Multicast::OverlayVlanGroup explainedGroup(const std::string& text) {
  try {
    return Vesk::valueOf<Routing::Multicast::OverlayVlanGroup>(text);
  } catch (const Vesk::ParseError& error) {
    throw InputError(fmt::format("explain '{}': {}", text, error.what()));
  } catch (const Ombra::RangeException& error) {
    throw InputError(fmt::format("explain '{}': {}", text, error.what()));
  }
}

Shown shownExplanation(const Routing::Multicast::OverlayVlanGroup& group,
                       const std::vector<Explanation>& chain) {
  Shown shown{fmt::format("explain {}", Vesk::textOf(group)), {}, Json::array()};
  for (const Explanation& link : chain) {
    const char* const mark = link.kind == Explanation::Kind::heading ? "      "
                             : link.kind == Explanation::Kind::given ? "        yes  "
                                                                     : "        no   ";
    const char* const kind = link.kind == Explanation::Kind::heading ? "heading"
                             : link.kind == Explanation::Kind::given ? "given"
                                                                     : "missing";
    shown.table += fmt::format("{}{}\n", mark, link.text);
    shown.value.push_back({{kind, link.text}});
  }
  if (chain.empty()) shown.table = "      no agent runs\n";
  return shown;
}

std::vector<Failure> unsaid(const Shown& answer, const std::vector<std::string>& says) {
  std::size_t place = 0;
  for (const std::string& words : says) {
    const std::size_t found = answer.table.find(words, place);
    if (found == std::string::npos)
      return {{.address = answer.address,
               .expected = fmt::format("it says '{}'", words),
               .found = answer.table}};
    place = found + words.size();
  }
  return {};
}

}  // namespace Host
