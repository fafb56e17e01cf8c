# Fuzz targets: one program, fuzz_<Name>, for each tests/fuzz/<Name>Fuzz.cc. They need clang.
# Only the sources that read bytes from outside are in them, linked as objects and not as the shared
# library, so that one program holds all of the instrumentation.

if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "the fuzz targets need clang, found ${CMAKE_CXX_COMPILER_ID}")
endif()

set(fuzz_flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
    -fno-omit-frame-pointer)

# Declarations only, and expensive to compile: the least that keeps the sanitizers sound.
corvane_sources(fuzz_record_sources records)
list(FILTER fuzz_record_sources EXCLUDE REGEX "/Egress\\.cc$")
add_library(corvane_fuzz_records OBJECT EXCLUDE_FROM_ALL ${fuzz_record_sources})
target_link_libraries(corvane_fuzz_records PUBLIC corvane_common)
target_compile_options(corvane_fuzz_records PRIVATE -O0 -g0 -fsanitize=fuzzer-no-link,address)

corvane_sources(fuzz_sources runtime)
# What traces needs a newer clang.
list(FILTER fuzz_sources EXCLUDE REGEX "/Trace\\.cc$")
foreach(name Address Content ExplainStep Scenario YamlFile)
  list(APPEND fuzz_sources "${PROJECT_SOURCE_DIR}/host/play/${name}.cc")
endforeach()
# The agent's own list of mounts needs the agent.
list(APPEND fuzz_sources
    "${PROJECT_SOURCE_DIR}/agent/MountLookup.cc" "${PROJECT_SOURCE_DIR}/tests/fuzz/Mounts.cc")
add_library(corvane_fuzz_objects OBJECT EXCLUDE_FROM_ALL ${fuzz_sources})
target_link_libraries(corvane_fuzz_objects PUBLIC corvane_common)
target_compile_options(corvane_fuzz_objects PUBLIC ${fuzz_flags})

add_custom_target(corvane_fuzz)
file(GLOB fuzz_target_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/fuzz/*Fuzz.cc")
foreach(source IN LISTS fuzz_target_sources)
  cmake_path(GET source STEM name)
  string(REGEX REPLACE "Fuzz$" "" name "${name}")
  add_executable(fuzz_${name} EXCLUDE_FROM_ALL "${source}")
  target_link_libraries(fuzz_${name} PRIVATE corvane_fuzz_objects corvane_fuzz_records)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer,address,undefined)
  add_dependencies(corvane_fuzz fuzz_${name})
endforeach()
