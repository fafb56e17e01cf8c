# One precompiled header for the library, the program and the benchmarks. The tests have their
# own, which adds the test framework.

set(CORVANE_PCH_HEADERS
    <algorithm> <array> <chrono> <compare> <cstddef> <cstdint> <deque> <functional> <initializer_list>
    <iterator> <limits> <list> <map> <memory> <numeric> <optional> <ostream> <set> <span> <sstream>
    <stdexcept> <string> <string_view> <tuple> <type_traits> <unordered_map> <unordered_set>
    <utility> <variant> <vector>
    <fmt/format.h> <nlohmann/json_fwd.hpp>
    <absl/container/btree_map.h> <absl/container/flat_hash_map.h> <absl/container/flat_hash_set.h>
    <absl/container/inlined_vector.h>)

if(CORVANE_PCH)
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/precompiled.cc" CONTENT "// Carries the precompiled header.\n")
  add_library(corvane_pch OBJECT "${PROJECT_BINARY_DIR}/precompiled.cc")
  target_link_libraries(corvane_pch PRIVATE corvane_common)
  target_precompile_headers(corvane_pch PRIVATE ${CORVANE_PCH_HEADERS})
endif()

# corvane_precompile(target [header...]): the shared header, or an own one with more in it.
function(corvane_precompile target)
  if(NOT CORVANE_PCH)
    return()
  endif()
  if(ARGN)
    target_precompile_headers(${target} PRIVATE ${CORVANE_PCH_HEADERS} ${ARGN})
  else()
    target_precompile_headers(${target} REUSE_FROM corvane_pch)
  endif()
  target_compile_options(${target} PRIVATE -Winvalid-pch)
endfunction()
