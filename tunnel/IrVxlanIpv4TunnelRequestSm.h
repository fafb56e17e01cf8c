// Ingress-replication VXLAN tunnels over IPv4 (RFC 8365): an endpoint that a client asks for gets
// the tunnel of its address, and an address that an endpoint uses has its encapsulation row.
// IrVxlanIpv4TunnelRequestSm, the frame: owns the use count of each address and the two machines.
// IrVxlanIpv4::RequestSm: owns a machine per request table. Reads: the requests. Writes: the status
// rows of endpoints, the use counts. IrVxlanIpv4::TunnelSm: reads the use counts, writes the
// encapsulation rows. Runs: in reactors only, inside the change of one request.
// Caveat: the encapsulation row of an address comes before its first endpoint's row and goes after
// the last one. A tunnel's number is a function of its address: nothing is allocated.
#pragma once

#include "records/Tunnels.h"
#include "runtime/Record.h"

namespace Multicast::Tunnel::IrVxlanIpv4 {

class TunnelSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4::TunnelSm)
  struct Inputs {
    Ombra::Ptr<IrVxlanIpv4TunnelLocalStatus const> localStatus;
    Ombra::Ptr<IrVxlanIpv4TunnelTable> tunnelTable;
    bool operator==(const Inputs&) const = default;
  };
  explicit TunnelSm(Inputs inputs) : in(std::move(inputs)) { handleVtepStatus(); }
  const Inputs in;

  void review() override { handleLocalStatusInit(); }

 private:
  /// It must see every address come: none may be there yet.
  void handleVtepStatus();
  void handleVtep(Pavlin::IpAddr vtep);
  /// The requests have been played in: what a predecessor has left is judged by them.
  void handleLocalStatusInit();

  Vesk::Watch vtepStatus_ =
      watch<&TunnelSm::handleVtep>(in.localStatus, IrVxlanIpv4TunnelLocalStatus::vtepStatusAttr);
  Vesk::Watch initialized_ = watch<&TunnelSm::handleLocalStatusInit>(
      in.localStatus, IrVxlanIpv4TunnelLocalStatus::initializedAttr);
};

class RequestSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4::RequestSm)
  struct Inputs {
    Ombra::Ptr<IrVxlanIpv4TunnelRequestDir const> requestDir;
    Ombra::Ptr<IrVxlanIpv4TunnelLocalStatus> localStatus;
    Ombra::Ptr<IrVxlanIpv4TunnelTable const> tunnelTable;
    Ombra::Ptr<McastTunnelStatus> tunnelStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit RequestSm(Inputs inputs);
  const Inputs in;

  /// The requests of one client.
  class RequestTableSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4::RequestSm::RequestTableSm)
    struct Inputs {
      RequestSm* parent;
      Ombra::Ptr<IrVxlanIpv4TunnelRequestTable const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit RequestTableSm(Inputs inputs) : in(std::move(inputs)) { review(); }
    const Inputs in;

    void review() override;

   private:
    void handleTunnelRequest(McastTunnelEndpoint endpoint);
    Vesk::Watch tunnelRequest_ = watch<&RequestTableSm::handleTunnelRequest>(
        in.row, IrVxlanIpv4TunnelRequestTable::tunnelRequestAttr);
  };

  VESK_INSTANCES(McastTunnelClientType, RequestTableSm, requestTable)

  /// A client asks for the endpoint.
  [[nodiscard]] bool findEndpoint(const McastTunnelEndpoint& endpoint) const;

 private:
  void handleInitialized();
  void handleRequestTable(McastTunnelClientType clientType);
  void addEndpoint(const McastTunnelEndpoint& endpoint);
  void cleanupEndpoint(const McastTunnelEndpoint& endpoint);

  Vesk::Follow requestTables_ = follow<&RequestSm::handleRequestTable>(
      in.requestDir, IrVxlanIpv4TunnelRequestDir::requestTableAttr, requestTableAttr);
};

}  // namespace Multicast::Tunnel::IrVxlanIpv4

namespace Multicast::Tunnel {

class IrVxlanIpv4TunnelRequestSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Tunnel::IrVxlanIpv4TunnelRequestSm)
  struct Inputs {
    Ombra::Ptr<IrVxlanIpv4TunnelRequestDir const> requestDir;
    Ombra::Ptr<IrVxlanIpv4TunnelTable> tunnelTable;
    Ombra::Ptr<McastTunnelStatus> tunnelStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IrVxlanIpv4TunnelRequestSm(Inputs inputs) : in(std::move(inputs)) {
    handleInitialized();
  }
  const Inputs in;

  VESK_INSTANCE(IrVxlanIpv4TunnelLocalStatus, localStatus)
  VESK_INSTANCE(IrVxlanIpv4::TunnelSm, tunnelSm)
  VESK_INSTANCE(IrVxlanIpv4::RequestSm, requestSm)

 private:
  void handleInitialized();
};

[[nodiscard]] Ombra::Ptr<IrVxlanIpv4TunnelRequestSm> irVxlanIpv4TunnelRequestSmFactory(
    const Ombra::Ptr<IrVxlanIpv4TunnelRequestDir const>& requestDir,
    const Ombra::Ptr<IrVxlanIpv4TunnelTable>& tunnelTable,
    const Ombra::Ptr<McastTunnelStatus>& tunnelStatus);

}  // namespace Multicast::Tunnel
