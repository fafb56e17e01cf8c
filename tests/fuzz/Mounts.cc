// The list of mounts for the fuzz targets, which have no agent: what the profile mounts, and tables
// of each shape.
#include "agent/MountCatalog.h"
#include "records/BriskelInputs.h"
#include "records/IpTunnelForwardingStatus.h"
#include "records/ProactiveArp.h"
#include "runtime/StateDatabase.h"

namespace Corvane {
namespace {

template <class Record>
void table(std::vector<MountPath>& mounts, const std::string& path, const MountPath::Info& info) {
  MountPath& mount = mounts.emplace_back();
  mount.path = path;
  mount.type = Record::veskName;
  mount.info = info;
  mount.mounting = Mounting::startup;
}

std::vector<MountPath> listed() {
  std::vector<MountPath> mounts;
  for (const Halden::ProfileEntry& entry : Halden::loadProfile("Corvane").entries) {
    MountPath& mount = mounts.emplace_back();
    mount.path = entry.path;
    mount.type = entry.type;
    mount.mounting = Mounting::profile;
  }
  using Forwarding = Routing::Multicast::IpTunnelForwardingStatus;
  const VeskBriskel::MountInfo flat(VeskBriskel::VeskBriskelType::writer);
  table<Arp::Table::Status>(mounts, Arp::Table::Status::mountPath(), flat);
  table<Arp::ProactiveArp::ClientConfig>(mounts, Arp::ProactiveArp::ClientConfig::mountPath(),
                                         flat);
  table<Irb::Multicast::GatewayEsStatus>(mounts, Irb::Multicast::GatewayEsStatus::mountPath(),
                                         flat);
  table<Forwarding>(mounts, Forwarding::mountPath(Pavlin::ipv4()), VeskSkarel::MountInfo{});
  return mounts;
}

}  // namespace

const std::vector<MountPath>& mountCatalog() {
  static const std::vector<MountPath> catalog = listed();
  return catalog;
}

}  // namespace Corvane
