#include "host/SharedAddresses.h"

#include <filesystem>

#include <fmt/format.h>

#include "host/InputError.h"

namespace Host {

std::vector<Address> sharedAddresses(const std::vector<std::string>& texts) {
  std::vector<Address> addresses;
  for (const std::string& text : texts) {
    try {
      addresses.push_back(Address::parse(text));
    } catch (const AddressError& error) {
      throw InputError(fmt::format("{}: {}", text, error.what()));
    }
    if (!addresses.back().shared)
      throw InputError(
          fmt::format("{}: only shared tables can be read from another process", text));
  }
  return addresses;
}

std::string tablesDirectory(const std::string& directory) {
  const std::string own = directory + "/shm";
  return std::filesystem::is_directory(own) ? own : directory;
}

}  // namespace Host
