// What the machines that gate the agent's logic may ask of the agent: to start it, to stop it, and
// to hold it back while this supervisor is standby. Owns, reads and writes nothing; Agent is the
// one implementation. Caveat: the calls run inside the reactor that makes them.
#pragma once

namespace Multicast::Vpn {

class AgentControl {
 public:
  /// Builds the machines; takes them down. A shutdown with nothing built is harmless.
  virtual void startup() = 0;
  virtual void shutdown() = 0;
  /// The agent is held back.
  [[nodiscard]] virtual bool isStandby() const = 0;
  /// Notes it; handleStandbyMode then makes it felt.
  virtual void isStandbyIs(bool standby) = 0;
  virtual void handleStandbyMode() = 0;

 protected:
  ~AgentControl() = default;
};

}  // namespace Multicast::Vpn
