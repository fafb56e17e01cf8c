# Third-party libraries, all from the distribution.

find_package(Threads REQUIRED)
find_package(fmt CONFIG REQUIRED)
find_package(yaml-cpp CONFIG REQUIRED)
find_package(nlohmann_json CONFIG REQUIRED)
find_package(CLI11 CONFIG REQUIRED)
find_package(absl CONFIG REQUIRED)
find_package(Boost CONFIG REQUIRED)

target_link_libraries(corvane_common INTERFACE
    Threads::Threads
    ${CMAKE_DL_LIBS}
    fmt::fmt
    yaml-cpp
    nlohmann_json::nlohmann_json
    CLI11::CLI11
    Boost::headers
    absl::btree
    absl::flat_hash_map
    absl::flat_hash_set
    absl::node_hash_map
    absl::node_hash_set
    absl::hash
    absl::inlined_vector
    absl::fixed_array
    absl::span
    absl::strings
    absl::status
    absl::statusor
    absl::synchronization
    absl::time)
