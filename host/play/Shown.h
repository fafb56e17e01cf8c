// What a `show` prints, as a table and as JSON.
// Reads: the tables and the agent's records, by address. Writes: nothing.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "host/play/World.h"
#include "host/print/EntityJson.h"
#include "host/print/Style.h"

namespace Host {

/// One thing that a `show` prints.
struct Shown {
  std::string address;
  std::string table;
  Json value;
};

/// What an address shows.
[[nodiscard]] Shown show(const World& world, const Address& address, const Style& style);
/// What an entity, or one attribute of it, shows.
[[nodiscard]] Shown showFound(const Found& found, const Address& address, const Style& style);

}  // namespace Host
