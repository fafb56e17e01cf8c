#include <cstddef>
#include <filesystem>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/Commands.h"
#include "host/InputError.h"
#include "host/SharedAddresses.h"
#include "host/play/Shown.h"
#include "runtime/Dir.h"
#include "runtime/RowFile.h"

namespace Host {
namespace {

namespace fs = std::filesystem;

std::string_view textOfBytes(const std::byte* bytes, std::size_t size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

/// A copy of a shared table as its files have it now; null if there are none.
Ombra::Ptr<Vesk::Entity> copied(const std::string& directory, const Address& address) {
  const Ombra::Ptr<Vesk::Entity> entity = address.rootType->make({});
  Vesk::identityIs(*entity, address.path);
  bool isThere = false;
  for (const auto& rows : VeskSharedMem::rowFilesOf(directory, address.path, *address.rootType)) {
    if (!fs::exists(rows.file)) continue;
    isThere = true;
    const auto reader = VeskSharedMem::readerOf(rows.file, rows.shape);
    const auto& shape = reader->shape();
    reader->forEach(
        [&](std::uint32_t, const std::byte* key, const std::byte* value, bool corrupt) {
          VeskSharedMem::applyRow(*entity, rows, textOfBytes(key, shape.keySize),
                                  textOfBytes(value, shape.valueSize), corrupt);
        },
        VeskSharedMem::TableReader::Check::checksum);
  }
  return isThere ? entity : nullptr;
}

Found within(const Ombra::Ptr<Vesk::Entity>& root, const Address& address) {
  Found found;
  Ombra::Ptr<Vesk::Entity> at = root;
  for (const AddressStep& step : address.steps) {
    found.holder = at;
    found.field = step.field;
    at = !step.leadsToEntity() || !at ? nullptr
         : step.key                   ? step.field->child(*at, *step.key)
                                      : step.field->child(*at);
  }
  found.entity = at;
  return found;
}

}  // namespace

int showCommand(const std::vector<std::string>& addresses, const std::string& directory,
                Audience audience) {
  const std::vector<Address> parsed = sharedAddresses(addresses);
  const std::string tables = tablesDirectory(directory);
  const Style style = Style::ofStandardOutput();
  Json document = Json::object();
  for (const Address& address : parsed) {
    Shown shown = showFound(within(copied(tables, address), address), address, style);
    if (audience == Audience::people)
      fmt::print("{}\n{}", style.in(Ink::strong, shown.address), shown.table);
    document[shown.address] = std::move(shown.value);
  }
  if (audience == Audience::programs) fmt::print("{}\n", jsonText(document, 2));
  return 0;
}

}  // namespace Host
