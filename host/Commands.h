// The commands of the program, each with its options and what it returns as exit status.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/play/ChildRun.h"

namespace Host {

/// "PATH=ROWS". Throws InputError.
[[nodiscard]] RowLimit rowLimitOf(const std::string& text);
/// 0 if all pass, 1 if any fails, 2 if one cannot be run. All files are read and checked before the
/// first one runs.
[[nodiscard]] int playCommand(const std::vector<std::string>& files, const PlayOptions& options);
/// Lists record types, attributes, mount paths and capacities; of one record or path if a name is
/// given.
[[nodiscard]] int recordsCommand(const std::string& name, Audience audience);
/// As what the wiring is printed: for graphviz, for programs, as a table of mounts,
/// or as host/Wiring.inc.
enum class GraphForm { dot, json, markdown, source };
/// Prints which machines read and write what: what the program knows of itself, or what
/// `play --wiring` has noted in a file.
[[nodiscard]] int graphCommand(const std::string& file, GraphForm form);
/// Prints shared tables from the files of a running or ended agent, without touching them.
[[nodiscard]] int showCommand(const std::vector<std::string>& addresses,
                              const std::string& directory, Audience audience);
/// Prints the rows of shared tables and then each change as it happens, until an interrupt or for
/// so many seconds.
[[nodiscard]] int watchCommand(const std::vector<std::string>& addresses,
                               const std::string& directory, std::optional<double> seconds,
                               Audience audience);
/// Writes to a shared table as another agent would: claims it, writes, and leaves.
[[nodiscard]] int writeCommand(const std::string& address, const std::string& value,
                               const std::string& directory);
/// Prints a trace ring, of some levels or of all if none is given.
[[nodiscard]] int traceCommand(const std::string& file, const std::vector<std::size_t>& levels,
                               Audience audience);

}  // namespace Host
