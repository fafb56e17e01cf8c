// What the commands that look into shared tables from another process are given.
#pragma once

#include <string>
#include <vector>

#include "host/play/Address.h"

namespace Host {

/// Throws InputError for an address that does not resolve or is not of a shared table.
[[nodiscard]] std::vector<Address> sharedAddresses(const std::vector<std::string>& texts);
/// Where the tables are: a scenario's kept directory has them in a folder of their own. Throws
/// InputError, with status 3, if that directory has no tables and is not meant to have any: nothing
/// is to be seen there, and nothing to be made.
[[nodiscard]] std::string tablesDirectory(const std::string& directory);

}  // namespace Host
