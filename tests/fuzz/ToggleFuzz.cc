// Any text as a toggle file: its toggles read, or the complaint names the file.
#include "platform/Toggles.h"
#include "tests/fuzz/FuzzFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto& toggle = Multicast::Vpn::toggleOismGateway;
  static const Fuzz::FuzzFile file(toggle.file());
  file.contentIs(std::string(reinterpret_cast<const char*>(data), size));
  Orlane::toggleDirIs(file.directory());
  Orlane::forgetToggles();
  bool isValid = false;
  try {
    Orlane::validateToggleFiles(file.directory(), Multicast::Vpn::allToggles);
    isValid = true;
    static_cast<void>(toggle.enabled());
  } catch (const Orlane::ConfigError& error) {
    if (isValid) Fuzz::finding("a file was checked and is refused later");
    if (std::string(error.what()).find(file.path()) == std::string::npos)
      Fuzz::finding("an error without the path");
  }
  return 0;
}
