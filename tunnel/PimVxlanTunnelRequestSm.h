// Binds endpoints to PIM VXLAN tunnels, of which there is one of each kind; they need no row.
// Owns: a machine per request table. Reads: the requests. Writes: the status rows of endpoints.
// Runs: in reactors only, inside the change of one request. Caveat: its review at a start takes
// away the row of every endpoint that no PIM request holds, of whatever tunnel type.
#pragma once

#include "records/Tunnels.h"
#include "runtime/Record.h"

namespace Multicast::Tunnel {

class PimVxlanTunnelRequestSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Tunnel::PimVxlanTunnelRequestSm)
  struct Inputs {
    Ombra::Ptr<PimVxlanTunnelRequestDir const> requestDir;
    Ombra::Ptr<PimVxlanTunnelTable const> tunnelTable;
    Ombra::Ptr<McastTunnelStatus> tunnelStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit PimVxlanTunnelRequestSm(Inputs inputs);
  const Inputs in;

  /// The requests of one client.
  class RequestSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Tunnel::PimVxlanTunnelRequestSm::RequestSm)
    struct Inputs {
      PimVxlanTunnelRequestSm* parent;
      Ombra::Ptr<PimVxlanTunnelRequestTable const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit RequestSm(Inputs inputs) : in(std::move(inputs)) { review(); }
    const Inputs in;

    void review() override;

   private:
    void handleTunnelRequest(McastTunnelEndpoint endpoint);
    Vesk::Watch tunnelRequest_ = watch<&RequestSm::handleTunnelRequest>(
        in.row, PimVxlanTunnelRequestTable::tunnelRequestAttr);
  };

  VESK_INSTANCES(McastTunnelClientType, RequestSm, requestSm)

  /// A client asks for the endpoint.
  [[nodiscard]] bool findEndpoint(const McastTunnelEndpoint& endpoint) const;

 private:
  void handleInitialized();
  void addEndpoint(const McastTunnelEndpoint& endpoint,
                   PimVxlanTunnel::PimTunnelType pimTunnelType);
  void cleanupEndpoint(const McastTunnelEndpoint& endpoint);

  Vesk::Follow requestTables_ =
      follow(in.requestDir, PimVxlanTunnelRequestDir::requestTableAttr, requestSmAttr);
};

}  // namespace Multicast::Tunnel
