# The measurements: of the whole agent, and of the runtime beside other libraries.

find_package(benchmark CONFIG REQUIRED)

set(peer_sources ${bench_sources})
list(FILTER peer_sources INCLUDE REGEX "/bench/peers/")
list(REMOVE_ITEM bench_sources ${peer_sources})

add_executable(corvane_bench ${bench_sources})
target_link_libraries(corvane_bench PRIVATE corvane_lib corvane_oracles benchmark::benchmark_main)
corvane_precompile(corvane_bench)

find_package(PkgConfig REQUIRED)
find_package(SQLite3 REQUIRED)
pkg_check_modules(LMDB REQUIRED IMPORTED_TARGET lmdb)
pkg_check_modules(SIGCXX REQUIRED IMPORTED_TARGET sigc++-2.0)

add_executable(corvane_peers ${peer_sources})
target_link_libraries(corvane_peers PRIVATE
    corvane_lib benchmark::benchmark PkgConfig::LMDB PkgConfig::SIGCXX SQLite::SQLite3)
corvane_precompile(corvane_peers)
