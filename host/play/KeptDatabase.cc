#include "host/play/KeptDatabase.h"

#include <algorithm>

#include "host/play/Outputs.h"
#include "runtime/Dir.h"
#include "runtime/StateDatabase.h"

namespace Host {
namespace {

bool isKept(const Corvane::MountPath& mount) {
  return isOutput(mount) && mount.store() == Corvane::Store::stateDb &&
         mount.recordType() != &Vesk::Dir::veskType();
}

bool hasFixedKeys(const VeskSharedMem::RowFile& file) {
  return std::all_of(file.chain.begin(), file.chain.end(),
                     [](const auto* field) { return field->keyType->byteSize() != 0; });
}

}  // namespace

KeptDatabase::KeptDatabase(const std::filesystem::path& directory) {
  for (const auto& mount : Corvane::mountCatalog()) {
    if (!isKept(mount)) continue;
    auto files = VeskSharedMem::rowFilesOf(directory.string(), mount.path, *mount.recordType());
    if (!std::all_of(files.begin(), files.end(), hasFixedKeys)) continue;
    const auto entity = Halden::StateDatabase::instance().create(mount.path, mount.type);
    auto& writer = writers_.emplace_back(mount.path, files_.emplace_back(std::move(files)));
    writer.load(*entity);
    writer.begin(entity);
  }
}

}  // namespace Host
