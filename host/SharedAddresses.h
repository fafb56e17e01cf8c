// What the commands that look into shared tables from another process are given.
#pragma once

#include <string>
#include <vector>

#include "host/play/Address.h"
#include "runtime/SharedEntity.h"
#include "runtime/shm/TableReader.h"

namespace Host {

/// Throws InputError for an address that does not resolve or is not of a shared table.
[[nodiscard]] std::vector<Address> sharedAddresses(const std::vector<std::string>& texts);
/// Where the tables are: a scenario's kept directory has them in a folder of their own.
[[nodiscard]] std::string tablesDirectory(const std::string& directory);
/// A reader of one collection's file; throws TableError if it is no such file.
[[nodiscard]] std::unique_ptr<VeskSharedMem::TableReader> readerOf(
    const std::string& file, const VeskSharedMem::TableShape& expected);

}  // namespace Host
