#include "tunnel/McastTunnelRoot.h"

#include <array>

#include "runtime/SharedMem.h"

namespace Multicast::Tunnel {
namespace {

using VeskBriskel::MountInfo;
using VeskBriskel::VeskBriskelType;

constexpr std::array clientTypes{McastTunnelClientType::client1, McastTunnelClientType::client2};
constexpr std::array tunnelTypes{irVxlanIpv4(), pimVxlan()};

VeskSharedMem::EntityManager& shmem() {
  return *VeskSharedMem::EntityManager::getEntityManager();
}

/// Fetched by its path, as everything that is mounted.
template <class Table>
Ombra::Ptr<Table> mounted(const std::string& path, const MountInfo& info) {
  shmem().doMount(path, Table::veskName, info);
  return boost::dynamic_pointer_cast<Table>(shmem().getEntity(path));
}
template <class Table>
Ombra::Ptr<Table> mountedToWrite(const char* collection, std::uint32_t rows) {
  MountInfo info(VeskBriskelType::writer);
  info.collectionInfoIs({{collection, rows}});
  return mounted<Table>(Table::mountPath(), info);
}
template <class Table>
Ombra::Ptr<Table const> mountedToRead(McastTunnelClientType client) {
  const auto table =
      mounted<Table>(Table::mountPath(client), MountInfo(VeskBriskelType::readerTracked));
  if (table) table->clientTypeIs(client);  // told by the path alone
  return table;
}

/// What is no longer mounted keeps its rows.
void unmount(const std::string& path) {
  shmem().doUnmount(path);
  shmem().cleanup(path);
}

}  // namespace

void McastTunnelRoot::doBriskelMount() {
  const auto replicated = irVxlanIpv4TunnelRequestDirIs();
  const auto pim = pimVxlanTunnelRequestDirIs();
  tunnelStatusIs(mountedToWrite<McastTunnelStatus>("mcastTunnelSet", 128));
  irVxlanIpv4TunnelTableIs(mountedToWrite<IrVxlanIpv4TunnelTable>("encap", 4096));
  pimVxlanTunnelTableIs(mountedToWrite<PimVxlanTunnelTable>("encap", 16));
  for (const auto client : clientTypes) {
    replicated->requestTableIs(client, mountedToRead<IrVxlanIpv4TunnelRequestTable>(client));
    pim->requestTableIs(client, mountedToRead<PimVxlanTunnelRequestTable>(client));
  }
}

void McastTunnelRoot::doBriskelUnmount() {
  irVxlanIpv4TunnelRequestDirDel();
  pimVxlanTunnelRequestDirDel();
  irVxlanIpv4TunnelTableIs(nullptr);
  pimVxlanTunnelTableIs(nullptr);
  tunnelStatusIs(nullptr);
  for (const auto type : tunnelTypes) {
    for (const auto client : clientTypes)
      shmem().doUnmount(McastTunnelRequestTable::mountPath(type, client));
    unmount("multicast/tunnel/table/" + stringValue(type));
  }
  unmount(McastTunnelStatus::mountPath());
}

}  // namespace Multicast::Tunnel

VESK_REGISTER(Multicast::Tunnel::McastTunnelRoot)
