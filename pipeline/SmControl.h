// How a pipeline runs: given to its constructor by value.
#pragma once

#include <string>

#include "runtime/Fleetlog.h"
#include "runtime/Task.h"

namespace Lynthe {

struct SmControl {
  /// Null: every scan runs to its end inside the call that started it.
  Sylva::TaskScheduler* taskScheduler = nullptr;
  Fleetlog::TraceHandle* traceHandle = nullptr;
  std::string name;  ///< empty: the pipeline's own
  Sylva::TaskPriority taskPriority = 3;

  void flHandleIs(Fleetlog::TraceHandle* handle) { traceHandle = handle; }
  bool operator==(const SmControl&) const = default;
};

}  // namespace Lynthe
