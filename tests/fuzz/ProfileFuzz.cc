// Any text as a mount profile: it reads, or the complaint names the file.
#include "runtime/StateDatabase.h"
#include "runtime/Toggle.h"
#include "tests/fuzz/FuzzFile.h"

namespace {

class Mounter final : public Halden::Mounter {
 public:
  void haldenMountsDone(Halden::MountStatus) override { isDone = true; }
  bool isDone = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Fuzz::FuzzFile file("Fuzz.yaml");
  file.contentIs(std::string(reinterpret_cast<const char*>(data), size));
  Halden::profileDirIs(file.directory());
  Mounter mounter;
  const auto manager = Ombra::make<Halden::EntityManager>();
  Fuzz::attempt<Orlane::ConfigError>(file, [&] {
    const auto group = manager->getMountGroup(&mounter);
    group->doMountAll("Fuzz");
    group->doClose(false, "", 0);
    if (!mounter.isDone) Fuzz::finding("nobody was told of the mounts");
    for (const auto& entry : Halden::loadProfile("Fuzz").entries)
      Halden::StateDatabase::instance().remove(entry.path);
  });
  return 0;
}
