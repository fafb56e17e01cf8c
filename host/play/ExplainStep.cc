#include "host/play/ExplainStep.h"

#include <algorithm>
#include <array>

#include "host/InputError.h"
#include "host/play/Shown.h"
#include "runtime/Assert.h"

namespace Host {

using Multicast::Vpn::Explanation;

namespace {

template <class Key>
Multicast::Vpn::Question read(const std::string& text) {
  try {
    return Vesk::valueOf<Key>(text);
  } catch (const Vesk::ParseError& error) {
    throw InputError(fmt::format("explain '{}': {}", text, error.what()));
  } catch (const Ombra::RangeException& error) {
    throw InputError(fmt::format("explain '{}': {}", text, error.what()));
  }
}

/// Nearly every endpoint has the qualifier 0.
Multicast::Vpn::Question readEndpoint(const std::string& text) {
  const bool isPlain = text.find(',') == std::string::npos;
  return read<Multicast::Tunnel::McastTunnelEndpoint>(isPlain ? "0," + text : text);
}

using Reader = Multicast::Vpn::Question (*)(const std::string& text);
/// In the order of the alternatives of a question.
constexpr std::array<std::pair<const char*, Reader>, 4> readers{
    {{"group", &read<Routing::Multicast::OverlayVlanGroup>},
     {"tunnel", &readEndpoint},
     {"port", &read<Multicast::L2PortVlan>},
     {"vni", &read<Vxlan::VniExtOrNone>}}};

}  // namespace

bool isAskedAbout(const std::string& kind) {
  return std::any_of(readers.begin(), readers.end(),
                     [&](const auto& reader) { return kind == reader.first; });
}

Multicast::Vpn::Question questionOf(const std::string& kind, const std::string& text) {
  for (const auto& [name, reader] : readers)
    if (kind == name) return reader(text);
  throw InputError(
      fmt::format("explain '{} {}': a group, tunnel, port or vni may be asked about", kind, text));
}

Multicast::Vpn::Question questionOf(const std::string& words) {
  const std::size_t blank = words.find(' ');
  return blank == std::string::npos ? questionOf("group", words)
                                    : questionOf(words.substr(0, blank), words.substr(blank + 1));
}

std::string questionText(const Multicast::Vpn::Question& question) {
  const std::string text = std::visit([](const auto& key) { return Vesk::textOf(key); }, question);
  return question.index() == 0 ? text : fmt::format("{} {}", readers[question.index()].first, text);
}

Shown shownExplanation(const Multicast::Vpn::Question& question,
                       const std::vector<Explanation>& chain) {
  Shown shown{fmt::format("explain {}", questionText(question)), {}, Json::array()};
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
