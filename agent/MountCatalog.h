// Every path under which this agent meets the rest of the system: the one list of them. An entry
// says what lies at the path and in which store, when and under which condition this agent mounts
// it, who keeps it then, and what becomes of it when the logic stops.
// Owns: the list, which never changes; profiles/Corvane.yaml is its state-database part as a data
// file. Read by: the agent, which mounts and unmounts by it; the inspection commands; the scenario
// player. Caveat: stage paths stand here before the supervisor's cell mapping.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "records/Enums.h"
#include "runtime/SharedMem.h"
#include "runtime/values/Addresses.h"

namespace Multicast::Vpn {
class Agent;
}

namespace Corvane {

enum class Store { stateDb, briskel, skarel };
enum class Access { read, write };

/// When and how this agent mounts a path.
enum class Mounting {
  never,     ///< here for those who play the agents that write it
  profile,   ///< when the process begins, with the whole profile, whatever its condition
  deferred,  ///< when the process begins, in the group of deferred mounts
  startup,   ///< whenever the logic starts
  group,     ///< whenever the logic starts, in a group of its own
  root,      ///< by the root of the tunnel service, whenever the logic starts
};

/// What must hold for this agent to mount a table, or to take what the profile has mounted.
enum class Condition { always, gateway, gatewayOrMpls, standby };
/// The toggles of which one must be on ("A or B"), and other demands; empty: always.
[[nodiscard]] std::string_view conditionText(Condition condition);
/// Asks for no toggle that the condition does not need.
[[nodiscard]] bool holds(Condition condition, bool isStandby);

/// When a mounted entity is handed to its keeper.
enum class Moment { mountsComplete, standby, startup };
/// What becomes of a mount when the logic stops. Cleaned: the rows go first.
enum class AtShutdown { stays, unmounted, cleaned };

struct MountPath {
  using Keep = void (*)(Multicast::Vpn::Agent&, const MountPath&, const Ombra::Ptr<Vesk::Entity>&);
  /// How a table is mounted; of the state database the profile says all.
  using Info = std::variant<std::monostate, VeskBriskel::MountInfo, VeskSkarel::MountInfo>;

  std::string path;
  std::string type;  ///< name of the record type
  Access access = Access::read;
  Info info;
  Mounting mounting = Mounting::never;
  Condition condition = Condition::always;
  Moment kept = Moment::mountsComplete;
  AtShutdown atShutdown = AtShutdown::stays;
  Pavlin::AddressFamily af = Pavlin::AddressFamily::none;  ///< whose it is, none: the agent's
  Irb::Multicast::Domain domain = Irb::Multicast::Domain::localDomain;
  /// Hands the entity to its keeper; null only of what is not mounted.
  Keep keep = nullptr;

  [[nodiscard]] Store store() const { return static_cast<Store>(info.index()); }
  /// By the agent itself.
  [[nodiscard]] bool isMounted() const {
    return mounting != Mounting::never && mounting != Mounting::root;
  }
  /// Null only if the record's module is not part of the program.
  [[nodiscard]] const Vesk::RecordType* recordType() const { return Vesk::RecordType::find(type); }
};

/// In order of mounting, both families expanded.
[[nodiscard]] const std::vector<MountPath>& mountCatalog();
/// Null if there is none.
[[nodiscard]] const MountPath* findMountPath(std::string_view path);
/// The type of a path of the catalogue, or of one below a directory of applications; "" when
/// unknown.
[[nodiscard]] std::string typeNameOfPath(std::string_view path);

}  // namespace Corvane
