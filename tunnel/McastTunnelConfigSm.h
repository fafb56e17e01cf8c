// A client of the ingress-replication service that takes its wishes from configuration: each
// address in a VXLAN interface's static flood list becomes one request.
// Owns: a machine per VXLAN interface. Reads: the flood lists. Writes: one request table, alone.
// Runs: in reactors only, one address at a time. Caveat: an address that several interfaces list
// stays requested until the last of them lets go of it. This agent makes none; a host that wants
// flood lists served does, by the factory.
#pragma once

#include "records/Tunnels.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Multicast::Tunnel {

class McastTunnelConfigSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Tunnel::McastTunnelConfigSm)
  struct Inputs {
    Ombra::Ptr<Vxlan::VxlanConfigDir const> vxlanConfigDir;
    Ombra::Ptr<IrVxlanIpv4TunnelRequestTable> tunnelRequestTable;
    bool operator==(const Inputs&) const = default;
  };
  explicit McastTunnelConfigSm(Inputs inputs);
  const Inputs in;

  /// The flood list of one interface.
  class VxlanConfigSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Tunnel::McastTunnelConfigSm::VxlanConfigSm)
    struct Inputs {
      McastTunnelConfigSm* parent;
      Ombra::Ptr<Vxlan::VxlanConfig const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VxlanConfigSm(Inputs inputs) : in(std::move(inputs)) { review(); }
    const Inputs in;

    /// The interface is no longer in the directory: what it alone has listed goes.
    void handleDel();
    void review() override;

   private:
    void handleFloodVtepList(Pavlin::IpAddr vtep);
    Vesk::Watch floodVtepList_ =
        watch<&VxlanConfigSm::handleFloodVtepList>(in.row, Vxlan::VxlanConfig::floodVtepListAttr);
  };

  VESK_INSTANCES(Pavlin::IntfId, VxlanConfigSm, vxlanConfig)

  /// An interface lists the endpoint's address.
  [[nodiscard]] bool findEndpoint(const McastTunnelEndpoint& endpoint) const;

 private:
  void handleInitialized();
  void deleteUnlisted(const McastTunnelEndpoint& endpoint);

  Vesk::Follow vxlanConfigs_ =
      follow(in.vxlanConfigDir, Vxlan::VxlanConfigDir::vxlanConfigAttr, vxlanConfigAttr);
};

[[nodiscard]] Ombra::Ptr<McastTunnelConfigSm> mcastTunnelConfigSmFactory(
    const Ombra::Ptr<Vxlan::VxlanConfigDir const>& vxlanConfigDir,
    const Ombra::Ptr<IrVxlanIpv4TunnelRequestTable>& tunnelRequestTable);

}  // namespace Multicast::Tunnel
