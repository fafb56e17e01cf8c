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

}  // namespace Host
