// Multicast tunnels: what clients ask for, and what this agent gives them.
// Written by: the clients (request tables), this agent (tunnel table and status). Read by: the
// tunnel machines and clients. A request directory holds the request tables of all clients of one
// tunnel type; the local status is the use count of each remote endpoint. Caveat: the status and
// the tables keep their rows when this agent goes.
#pragma once

#include <string>

#include "records/Enums.h"
#include "records/Keys.h"
#include "records/ReferenceMap.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Multicast::Tunnel {

struct McastTunnelRequestTable {
  [[nodiscard]] static std::string mountPath(McastTunnelType tunnelType,
                                             McastTunnelClientType clientType) {
    return "multicast/tunnel/request/" + stringValue(tunnelType) + "/" + stringValue(clientType);
  }
};

class IrVxlanIpv4TunnelRequestTable : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4TunnelRequestTable)
  VESK_SHARED_ROWS(McastTunnelEndpoint, IrVxlanIpv4TunnelRequest, tunnelRequest, 4096)
  VESK_VALUE(McastTunnelClientType, clientType, McastTunnelClientType::client1)

  [[nodiscard]] static std::string mountPath(McastTunnelClientType clientType) {
    return McastTunnelRequestTable::mountPath(irVxlanIpv4(), clientType);
  }
};

class PimVxlanTunnelRequestTable : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::PimVxlanTunnelRequestTable)
  VESK_SHARED_ROWS(McastTunnelEndpoint, PimVxlanTunnelRequest, tunnelRequest, 4096)
  VESK_VALUE(McastTunnelClientType, clientType, McastTunnelClientType::client1)

  [[nodiscard]] static std::string mountPath(McastTunnelClientType clientType) {
    return McastTunnelRequestTable::mountPath(pimVxlan(), clientType);
  }
};

/// The tunnel that each requested endpoint got.
class McastTunnelStatus : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::McastTunnelStatus)
  VESK_SHARED_ROWS(McastTunnelEndpoint, McastTunnelSet, mcastTunnelSet, 128)

  [[nodiscard]] static std::string mountPath() { return "multicast/tunnel/status"; }
};

class IrVxlanIpv4TunnelTable : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4TunnelTable)
  VESK_SHARED_ROWS(McastTunnelId, IrVxlanIpv4TunnelTableEntry, encap, 4096)

  [[nodiscard]] static std::string mountPath() {
    return "multicast/tunnel/table/" + stringValue(irVxlanIpv4());
  }
  /// The id that the tunnel to this endpoint has or would have.
  [[nodiscard]] McastTunnelId tunnel(const Pavlin::IpAddr& vtep) const {
    return IrVxlanIpv4TunnelId::makeTunnel(vtep);
  }
};

class PimVxlanTunnelTable : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::PimVxlanTunnelTable)
  VESK_SHARED_ROWS(McastTunnelId, PimVxlanTunnelTableEntry, encap, 16)

  [[nodiscard]] static std::string mountPath() {
    return "multicast/tunnel/table/" + stringValue(pimVxlan());
  }
  /// The id of the tunnel of that kind; it stands for itself and needs no row.
  [[nodiscard]] McastTunnelId tunnel(PimVxlanTunnel::PimTunnelType kind) const {
    return PimVxlanTunnelId::makeTunnel(kind);
  }
};

class IrVxlanIpv4TunnelRequestDir : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4TunnelRequestDir)
  VESK_REFERENCES(McastTunnelClientType, IrVxlanIpv4TunnelRequestTable const, requestTable)

  /// Under the table's own client type.
  void requestTableIs(const Ombra::Ptr<IrVxlanIpv4TunnelRequestTable const>& table) {
    requestTableIs(table->clientType(), table);
  }
};

class PimVxlanTunnelRequestDir : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::PimVxlanTunnelRequestDir)
  VESK_REFERENCES(McastTunnelClientType, PimVxlanTunnelRequestTable const, requestTable)

  /// Under the table's own client type.
  void requestTableIs(const Ombra::Ptr<PimVxlanTunnelRequestTable const>& table) {
    requestTableIs(table->clientType(), table);
  }
};

/// The requested endpoints at one address; their number is the use count of its tunnel.
class IrVxlanIpv4VtepStatus : public Vesk::Keyed<Pavlin::IpAddr> {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4VtepStatus)
  VESK_KEY(vtep)
  VESK_SET(McastTunnelEndpoint, endpoint)
};

class IrVxlanIpv4TunnelLocalStatus : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4TunnelLocalStatus)
  VESK_INSTANCES(Pavlin::IpAddr, IrVxlanIpv4VtepStatus, vtepStatus)
  VESK_VALUE(bool, initialized)
};

}  // namespace Multicast::Tunnel
