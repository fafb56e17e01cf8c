// The interfaces that one application wants multicast on, in its directory: an entity per VRF,
// which comes with its first interface and goes with its last one.
// Owns nothing. Reads and writes: the directory. Runs: in the caller's reactors.
#pragma once

#include <string>
#include <utility>

#include "records/MulticastIntfs.h"
#include "runtime/Dir.h"

namespace Irb::Multicast {

class ApplicationIntfs {
 public:
  using Intfs = Routing::Multicast::MulticastIntfsForApplications;
  explicit ApplicationIntfs(Ombra::Ptr<Vesk::Dir> directory) : directory_(std::move(directory)) {}

  /// Null if the VRF has none.
  [[nodiscard]] Ombra::Ptr<Intfs> ofVrf(const std::string& vrfName) const {
    return boost::dynamic_pointer_cast<Intfs>(directory_->entityPtr(vrfName));
  }
  [[nodiscard]] bool has(const std::string& vrfName, Pavlin::IntfId intf) const {
    const auto intfs = ofVrf(vrfName);
    return intfs && intfs->multicastIntfHas(intf);
  }
  void add(const std::string& vrfName, Pavlin::IntfId intf) {
    directory_->createEntity(Intfs::veskName, vrfName);
    if (const auto intfs = ofVrf(vrfName)) intfs->multicastIntfIs(intf, true);
  }
  void remove(const std::string& vrfName, Pavlin::IntfId intf) {
    if (const auto intfs = ofVrf(vrfName)) intfs->multicastIntfDel(intf);
  }
  /// True if the VRF's entity had no interface, and has gone.
  bool dropIfEmpty(const std::string& vrfName) {
    const auto intfs = ofVrf(vrfName);
    if (!intfs || intfs->multicastIntfCount() != 0) return false;
    directory_->deleteEntity(vrfName);
    return true;
  }

 private:
  Ombra::Ptr<Vesk::Dir> directory_;
};

}  // namespace Irb::Multicast
