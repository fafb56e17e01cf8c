// Any text as a scenario: it reads, or the complaint has a place in it.
#include "host/InputError.h"
#include "host/play/Scenario.h"
#include "tests/fuzz/FuzzFile.h"

namespace {

const Fuzz::FuzzFile& file() {
  static const Fuzz::FuzzFile theFile("scenario.yaml");
  return theFile;
}

void expectOneSpelling(const Host::Address& address) {
  const std::string text = address.text();
  const std::string again = Host::Address::parse(text).text();
  if (again != text) Fuzz::finding(text + " reads back as " + again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  file().contentIs(std::string(reinterpret_cast<const char*>(data), size));
  try {
    const Host::Scenario scenario = Host::readScenario(file().path());
    for (const Host::Step& step : scenario.steps) {
      for (const auto& statement : step.statements)
        expectOneSpelling(statement.address);
      for (const Host::Address& address : step.addresses)
        expectOneSpelling(address);
    }
  } catch (const Host::InputError& error) {
    if (error.file != file().path() || error.line < 1 || error.column < 1)
      Fuzz::finding("no place: " + error.message());
  }
  return 0;
}
