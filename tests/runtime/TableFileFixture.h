// What the tests of the shared table file have in common.
// Owns: a directory per test, removed at its end, and rows whose bytes can be verified.
// Reads and writes: that directory only; contentsOf reads a table by scan and by key at once.
// Caveat: a forked child must not return into the test framework, hence forkChild.
#pragma once

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/shm/TableReader.h"
#include "runtime/shm/TableWriter.h"
#include "tests/ErrorOf.h"
#include "tests/TemporaryDirectory.h"

namespace VeskSharedMem {

// Sizes that are no multiples of a word, so that key and value share one.
inline constexpr TableShape kShape{10, 30, 24, 0x1122334455667788};

// Row id -> version. A row whose bytes do not belong together shows up under version kTorn.
using Contents = std::map<uint32_t, uint32_t>;
inline constexpr uint32_t kTorn = UINT32_MAX;

struct Key : std::array<unsigned char, 10> {
  explicit Key(uint32_t id) {
    fill(static_cast<unsigned char>(id * 7));
    std::memcpy(data(), &id, 4);
  }
  static uint32_t idOf(const void* bytes) {
    uint32_t id = 0;
    std::memcpy(&id, bytes, 4);
    return id;
  }
};

struct Value : std::array<unsigned char, 30> {
  Value() { fill(0); }
  Value(uint32_t id, uint32_t version) {
    std::memcpy(data(), &version, 4);
    for (size_t i = 4; i < size(); ++i) {
      at(i) = static_cast<unsigned char>((version + id * 31) >> (i % 4 * 8));
    }
  }
};

inline uint32_t versionOf(const void* key, const void* value) {
  uint32_t version = 0;
  std::memcpy(&version, value, 4);
  const uint32_t id = Key::idOf(key);
  const bool isWhole = std::memcmp(Key(id).data(), key, sizeof(Key)) == 0 &&
                       std::memcmp(Value(id, version).data(), value, sizeof(Value)) == 0;
  return isWhole ? version : kTorn;
}

inline TableWriter::Put put(TableWriter& writer, uint32_t id, uint32_t version) {
  return writer.put(Key(id).data(), Value(id, version).data());
}

// Scan and lookups must agree; where they do not, the row is as bad as torn.
template <class Table>
Contents contentsOf(Table& table, uint32_t ids) {
  Contents scanned;
  const auto note = [&scanned](const std::byte* key, const std::byte* value, bool corrupt) {
    const uint32_t id = Key::idOf(key);
    const bool isNew = scanned.emplace(id, corrupt ? kTorn : versionOf(key, value)).second;
    if (!isNew) scanned[id] = kTorn;
  };
  if constexpr (std::is_same_v<Table, TableReader>) {
    table.forEach([&note](uint32_t, const std::byte* key, const std::byte* value, bool corrupt) {
      note(key, value, corrupt);
    });
  } else {
    table.forEach(note);
  }
  for (uint32_t id = 0; id < ids; ++id) {
    Value value;
    const RowState state = table.find(Key(id).data(), value.data());
    const auto known = scanned.find(id);
    const bool agrees =
        known == scanned.end()
            ? state == RowState::missing
            : state == RowState::live && versionOf(Key(id).data(), value.data()) == known->second;
    if (!agrees) scanned[id] = kTorn;
  }
  return scanned;
}

template <class Function>
std::string errorOf(Function f) {
  return ::errorOf<TableError>(f);
}

template <class Function>
pid_t forkChild(Function f) {
  const pid_t child = fork();
  if (child != 0) return child;
  f();
  _exit(0);
}

inline int exitStatus(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::string contentOfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void patch(const std::string& path, uint64_t offset, const std::string& bytes) {
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

class TableFileTest : public testing::Test {
 protected:
  const TemporaryDirectory own_;
  const std::string directory_ = own_.path();
  const std::string path_ = own_ / "table";
};

}  // namespace VeskSharedMem
