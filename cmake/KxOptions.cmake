# Build options and the flags that every target of the project is compiled with.

option(KX_BUILD_TESTS "Build the test suite" ${PROJECT_IS_TOP_LEVEL})
option(KX_BUILD_EXAMPLES "Build the examples" ${PROJECT_IS_TOP_LEVEL})
option(KX_BUILD_BENCHMARKS "Build the benchmarks (needs Google Benchmark)" OFF)
option(KX_BUILD_FUZZERS "Build the libFuzzer executables (clang only)" OFF)
option(KX_WERROR "Treat warnings as errors" OFF)
option(KX_COVERAGE "Instrument for coverage" OFF)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(kx_can_mount ON)
else()
  set(kx_can_mount OFF)
endif()
option(KX_BUILD_MOUNT "Build `kxvfs mount` (needs libfuse 3)" ${kx_can_mount})
option(KX_USE_FRAMEWORK "Use an installed CppMicroServices when find_package finds one" ON)
option(KX_REQUIRE_FRAMEWORK "Fail where no installed CppMicroServices is found" OFF)
set(KX_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them (for example address,undefined)")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

# The build tree has the layout of the install tree, so that the tool finds its providers in both.
if(WIN32)
  # Programs find their libraries beside themselves, and hosts the providers below bin/win64.
  set(KX_SYSTEM win32)
  set(CMAKE_INSTALL_BINDIR bin/win64)
  set(KX_LIBRARY_FOLDER bin/win64)
else()
  set(KX_SYSTEM posix)
  set(KX_LIBRARY_FOLDER "${CMAKE_INSTALL_LIBDIR}")
endif()
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_BINDIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${KX_LIBRARY_FOLDER}")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}")

# Folder, relative to the library folder, that holds the provider bundles; a bundle stands in a
# subfolder of it that is named after its component ("storage/zipprovider").
set(KX_PROVIDER_SUBDIR "vfs/provider")
set(KX_PROVIDER_INSTALL_DIR "${KX_LIBRARY_FOLDER}/${KX_PROVIDER_SUBDIR}")

set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN;$ORIGIN/../../../..")

find_program(KX_CCACHE ccache)
if(KX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER "${KX_CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${KX_CCACHE}")
endif()

add_library(kx_flags INTERFACE)
target_compile_features(kx_flags INTERFACE cxx_std_20)
target_compile_options(kx_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlapping copies in its own std::string operators (GCC bug 105651).
  target_compile_options(kx_flags INTERFACE -Wno-restrict)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(kx_flags INTERFACE -Wthread-safety)
endif()
if(WIN32)
  # Files are opened by wide names and may be of any size; no header of the system defines min and max.
  target_compile_definitions(kx_flags INTERFACE
    _FILE_OFFSET_BITS=64 _WIN32_WINNT=0x0A00 NOMINMAX STRICT UNICODE WIN32_LEAN_AND_MEAN __USE_MINGW_ANSI_STDIO=1)
endif()
if(CMAKE_UNITY_BUILD)
  # What stands in an anonymous namespace counts as that of a header when its source is included.
  target_compile_options(kx_flags INTERFACE -Wno-subobject-linkage)
endif()
if(KX_WERROR)
  target_compile_options(kx_flags INTERFACE -Werror)
endif()
if(KX_SANITIZE)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The checks that sanitizers put in hide from GCC what is initialised (its manual, -fsanitize).
    target_compile_options(kx_flags INTERFACE -Wno-maybe-uninitialized)
  endif()
  target_compile_options(kx_flags INTERFACE -fsanitize=${KX_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(kx_flags INTERFACE -fsanitize=${KX_SANITIZE})
  if(KX_SANITIZE MATCHES "undefined")
    target_compile_options(kx_flags INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()
if(KX_COVERAGE)
  # Threads that count at the same moment would lose counts.
  target_compile_options(kx_flags INTERFACE --coverage -fprofile-update=atomic -O0 -g)
  target_link_options(kx_flags INTERFACE --coverage)
endif()
