# Language level, flags, options and paths that all targets share.

option(BUILD_TESTING "Build the tests" ON)
option(CORVANE_BENCH "Build the benchmarks" ON)
option(CORVANE_FUZZ "Build the fuzz targets, which needs clang" OFF)
option(CORVANE_PCH "Use precompiled headers" ON)
option(CORVANE_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
option(CORVANE_WERROR "Treat warnings as errors" ON)
set(CORVANE_PROFILE_DIR "${PROJECT_SOURCE_DIR}/profiles" CACHE PATH
    "Where the program looks for mount profiles; set it to the installed folder when packaging")
set(CORVANE_SCENARIO_DIR "${PROJECT_SOURCE_DIR}/scenarios" CACHE PATH
    "Where the program and the tests look for scenarios")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Assertions stay on in every build, so NDEBUG is never defined.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1")
set(CMAKE_CXX_FLAGS_RELEASE "-O2")

# Library and programs sit side by side in the build folder and run from there.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
# One run path for both places: with two of them the shorter one is filled up with empty parts, and
# an empty part is the current directory.
file(RELATIVE_PATH CORVANE_LIBRARIES_FROM_PROGRAMS
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/${CORVANE_LIBRARIES_FROM_PROGRAMS}")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

add_library(corvane_common INTERFACE)
target_include_directories(corvane_common INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_definitions(corvane_common INTERFACE
    $<$<NOT:$<CONFIG:RelWithDebInfo,Release>>:_GLIBCXX_ASSERTIONS>)

# Paths of this tree are told only to the sources that use them: the compiler's cache then serves
# any other tree with the same sources.
set_source_files_properties(runtime/StateDatabase.cc tests/runtime/StateTest.cc
    TARGET_DIRECTORY corvane_common
    PROPERTIES COMPILE_DEFINITIONS "CORVANE_PROFILE_DIR=\"${CORVANE_PROFILE_DIR}\"")
set_source_files_properties(
    tests/fault/KilledPlayerTest.cc tests/host/BadInputTest.cc tests/host/StayTest.cc
    TARGET_DIRECTORY corvane_common
    PROPERTIES COMPILE_DEFINITIONS "CORVANE_SCENARIO_DIR=\"${CORVANE_SCENARIO_DIR}\"")

# One code model for the library and the programs lets them share a precompiled header.
target_compile_options(corvane_common INTERFACE -fPIC)

target_compile_options(corvane_common INTERFACE
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi
    -Wimplicit-fallthrough -Wcast-align -Wvla -Wundef
    # Designated initializers leave members at their defaults on purpose.
    -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(corvane_common INTERFACE
      -Wshadow=local -Wsuggest-override -Wduplicated-cond -Wlogical-op
      # Misfires on std::string concatenation in g++ 12.
      -Wno-restrict)
endif()
if(CORVANE_WERROR)
  target_compile_options(corvane_common INTERFACE -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Flow-dependent warnings that depend on what the optimizer inlines: shown, never fatal.
    target_compile_options(corvane_common INTERFACE
        -Wno-error=maybe-uninitialized -Wno-error=array-bounds -Wno-error=stringop-overflow
        -Wno-error=stringop-overread -Wno-error=dangling-pointer -Wno-error=use-after-free
        -Wno-error=free-nonheap-object)
  endif()
endif()

if(CORVANE_SANITIZE)
  target_compile_options(corvane_common INTERFACE
      -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(corvane_common INTERFACE -fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumentation confuses these.
    target_compile_options(corvane_common INTERFACE
        -Wno-maybe-uninitialized -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
endif()

find_program(CORVANE_CCACHE ccache)
if(CORVANE_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      "${PROJECT_SOURCE_DIR}/cmake/compile" "${CORVANE_CCACHE}" "${PROJECT_SOURCE_DIR}")
  target_compile_options(corvane_common INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(corvane_common INTERFACE -fpch-preprocess)
  endif()
endif()
