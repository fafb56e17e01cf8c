#include "host/SharedAddresses.h"

#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "host/InputError.h"

namespace Host {
namespace {

namespace fs = std::filesystem;

/// The program's status where there is nothing to look at.
constexpr int nothingThere = 3;
/// Directories of a table's path.
constexpr int deepest = 12;

}  // namespace

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
  if (!fs::is_directory(directory))
    throw InputError(fmt::format("{}: no such directory", directory), nothingThere);
  const std::string own = directory + "/shm";
  if (fs::is_directory(own)) return own;
  if (fs::path(directory).lexically_normal().filename() == "shm") return directory;
  std::error_code error;
  for (fs::recursive_directory_iterator it(directory, error), end; !error && it != end;
       it.increment(error)) {
    if (it->path().extension() == ".table") return directory;
    // A wrong directory may be big.
    if (it.depth() == deepest) it.disable_recursion_pending();
  }
  throw InputError(fmt::format("{}: no tables here, and no directory shm", directory),
                   nothingThere);
}

}  // namespace Host
