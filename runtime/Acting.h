// Who is at work: the machine in whose handler, task, construction or end the process is.
// For those who note who writes what; nothing of the logic asks.
#pragma once

namespace Vesk {

class Machine;
class RecordType;

/// A machine's turn, for its scope. Turns nest as calls do.
class Acting {
 public:
  explicit Acting(const Machine& machine) : outer_(innermost_), machine_(&machine) {
    innermost_ = this;
  }
  /// For a machine under construction, which cannot tell its type yet.
  explicit Acting(const RecordType& (*type)()) : outer_(innermost_), type_(type) {
    innermost_ = this;
  }
  Acting(const Acting&) = delete;
  Acting& operator=(const Acting&) = delete;
  ~Acting() { innermost_ = outer_; }

  /// The type of the machine at work, null outside of all turns.
  [[nodiscard]] static const RecordType* type();
  /// The process whose turns are open is gone.
  static void dropTurns() { innermost_ = nullptr; }

 private:
  static inline Acting* innermost_ = nullptr;
  Acting* outer_;
  const Machine* machine_ = nullptr;
  const RecordType& (*type_)() = nullptr;
};

}  // namespace Vesk
