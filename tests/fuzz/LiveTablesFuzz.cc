// The tables of a living agent: one that it follows while another process writes it, and one that
// it writes, while somebody scribbles into the files of both, cuts them short, copies over them and
// takes them away. The agent's side goes on, and once the files are sound it has what they have.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fuzzer/FuzzedDataProvider.h>

#include "runtime/Corruption.h"
#include "runtime/Record.h"
#include "runtime/RowFile.h"
#include "runtime/SharedMem.h"
#include "runtime/shm/TableWriter.h"
#include "runtime/values/Vlan.h"
#include "tests/fuzz/FuzzFile.h"

namespace livetables {

// Small, so that a whole life of them is soon lived; nested, so that rows hang on others.
class Vlan : public Vesk::Keyed<Bridging::VlanId> {
  VESK_LOCAL_RECORD(livetables::Vlan)
  VESK_KEY(vlan)
  VESK_VALUE(bool, ready)
  VESK_SHARED_MAP(std::uint16_t, Bridging::VlanId, group, 16)
};
class Table : public Vesk::Entity {
  VESK_LOCAL_RECORD(livetables::Table)
  VESK_VALUE(std::uint32_t, version)
  VESK_INSTANCES(Bridging::VlanId, Vlan, vlan)
};

}  // namespace livetables

namespace {

namespace fs = std::filesystem;
using namespace VeskSharedMem;
using Fuzz::finding;
using livetables::Table;

constexpr const char* typeName = "livetables::Table";

/// Everything in it as text.
std::string textOf(const Table& table) {
  std::string text = fmt::format("version {}\n", table.version());
  for (const auto& [id, vlan] : table.vlanIterator()) {
    std::vector<std::string> lines;
    for (const auto& [group, to] : vlan->groupIterator())
      lines.push_back(fmt::format("  {} {}", group, to.value()));
    std::sort(lines.begin(), lines.end());
    text += fmt::format("{} {}\n{}\n", id.value(), vlan->ready(), fmt::join(lines, "\n"));
  }
  return text;
}

/// What another agent does to its table, or this one to its own.
void change(Table& table, FuzzedDataProvider& input) {
  const Bridging::VlanId vlan(input.ConsumeIntegralInRange(1U, 6U));
  const auto group = input.ConsumeIntegralInRange<std::uint16_t>(0, 20);
  if (input.ConsumeBool()) {
    const auto holder = table.vlanIs(vlan);
    holder->readyIs(group % 2 == 0);
    holder->groupIs(group, Bridging::VlanId(input.ConsumeIntegralInRange(1U, 9U)));
  } else if (const auto holder = table.vlan(vlan); holder && group != 0) {
    holder->groupDel(group);
  } else {
    table.vlanDel(vlan);
    table.versionIs(group);
  }
}

/// One of the things that happen to a file. True if something else may stand there for good: bytes
/// that look sound, or a file that is not the agent's.
bool meddle(const std::string& file, const fs::path& aside, FuzzedDataProvider& input) {
  std::error_code ignored;
  const auto size = fs::exists(file) ? fs::file_size(file, ignored) : 0;
  switch (input.ConsumeIntegralInRange(0, 5)) {
    case 0:
      fs::remove(file, ignored);
      return false;
    case 1:
      if (size != 0)
        fs::resize_file(file, input.ConsumeIntegralInRange<std::uintmax_t>(0, size), ignored);
      return false;
    case 2:
      std::ofstream(file, std::ios::binary) << input.ConsumeRandomLengthString(300);
      return true;
    case 3:  // an older state of it, which is a sound table
      fs::copy_file(file, aside / "copy", fs::copy_options::overwrite_existing, ignored);
      return false;
    case 4:
      fs::copy_file(aside / "copy", file, fs::copy_options::overwrite_existing, ignored);
      return true;
    default:
      if (size < 4096) return false;
      std::fstream bytes(file, std::ios::binary | std::ios::in | std::ios::out);
      bytes.seekp(static_cast<std::streamoff>(
          input.ConsumeIntegralInRange<std::uintmax_t>(0, size - 8) & ~std::uintmax_t{3}));
      bytes << input.ConsumeRandomLengthString(8);
      return true;
  }
}

/// What the agent's event loop does until nothing comes any more: rows, files, and the watches on
/// directories that are looked at anew after each news of a file.
void turn(EntityManager& manager) {
  for (int i = 0; i < 4; ++i) {
    manager.waitForChanges(std::chrono::milliseconds(0));
    manager.takeUpChanges([] { return false; });
    manager.wakeReaders();
  }
}

Ombra::Ptr<Table> mounted(EntityManager& manager, const std::string& path, bool isWriter) {
  using VeskBriskel::VeskBriskelType;
  VeskBriskel::MountInfo info(isWriter ? VeskBriskelType::writer : VeskBriskelType::readerTracked);
  info.collectionInfoIs({{"vlan", 16}, false});
  return boost::dynamic_pointer_cast<Table>(manager.doMount(path, typeName, info));
}

/// The process that writes the input: one manager a process is enough for the program, so this one
/// writes the files as such.
class Neighbour {
 public:
  explicit Neighbour(const std::string& directory) {
    for (auto& rows : rowFilesOf(directory, "in", Table::veskType(), {{"vlan", 16}}))
      files_.push_back(std::move(rows));
    for (const auto& rows : files_)
      writers_.push_back(TableWriter::open(rows.file, rows.shape));
  }
  void write(FuzzedDataProvider& input) {
    const std::size_t file = input.ConsumeIntegralInRange<std::size_t>(0, files_.size() - 1);
    TableWriter& writer = *writers_[file];
    std::string key = input.ConsumeRandomLengthString(files_[file].shape.keySize);
    std::string value = input.ConsumeRandomLengthString(files_[file].shape.valueSize);
    // Mostly what reads as a vlan.
    if (input.ConsumeBool() && key.size() >= 2) key[0] = key[1] = 1;
    key.resize(files_[file].shape.keySize);
    value.resize(files_[file].shape.valueSize);
    input.ConsumeBool() ? static_cast<void>(writer.put(key.data(), value.data()))
                        : static_cast<void>(writer.erase(key.data()));
    writer.wakeReaders();
  }
  [[nodiscard]] const std::string& someFile(FuzzedDataProvider& input) const {
    return files_[input.ConsumeIntegralInRange<std::size_t>(0, files_.size() - 1)].file;
  }
  [[nodiscard]] const std::vector<RowFile>& files() const { return files_; }

 private:
  std::vector<RowFile> files_;
  std::vector<std::unique_ptr<TableWriter>> writers_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Fuzz::FuzzFile place("tables");
  FuzzedDataProvider input(data, size);
  corruptionSinkIs([](auto&&...) {});
  const fs::path aside = place.directory();
  fs::remove_all(place.path());
  EntityManager::directoryIs(place.path());
  auto neighbour = std::make_unique<Neighbour>(place.path());
  auto& manager = *EntityManager::getEntityManager();
  const auto in = mounted(manager, "in", false);
  const auto out = mounted(manager, "out", true);
  const auto outputs = rowFilesOf(place.path(), "out", Table::veskType());
  bool mayLie = false;
  for (int steps = 0; steps < 60 && input.remaining_bytes() > 0; ++steps) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
      case 0:
        neighbour->write(input);
        break;
      case 1:
        change(*out, input);
        break;
      case 2:
        meddle(neighbour->someFile(input), aside, input);
        break;
      case 3:
        mayLie =
            meddle(outputs[input.ConsumeIntegralInRange<std::size_t>(0, outputs.size() - 1)].file,
                   aside, input) ||
            mayLie;
        break;
      default:
        turn(manager);
    }
  }
  // The neighbour is started anew over nothing, as its operator would.
  const auto inputs = neighbour->files();
  neighbour.reset();
  for (const auto& rows : inputs)
    fs::remove(rows.file);
  turn(manager);
  if (in->vlanCount() != 0) finding("rows of files that are gone");
  if (!mayLie) {
    turn(manager);
    const std::string mine = textOf(*out);
    EntityManager::forgetProcess();
    const auto again = mounted(*EntityManager::getEntityManager(), "out", true);
    if (textOf(*again) != mine) finding("an output that was mended has other rows");
  }
  EntityManager::forgetProcess();
  return 0;
}
