# Third-party libraries for Windows, under the names of KxDependencies.cmake.
#
# Debian has zlib for MinGW-w64. Of Boost, fmt, CLI11 and nlohmann-json the headers of the native packages serve, each
# through a folder that shows nothing but them: /usr/include as a whole would bring the C library of Linux. Boost.Log,
# a filter of Boost.Iostreams and minizip are compiled from the sources of Debian's source packages (KX_WINDOWS_SOURCES, see
# tools/windows/prepare.sh), GoogleTest from the one that its package installs.

set(KX_WINDOWS_SOURCES "" CACHE PATH "Folder with the sources of Boost.Log and minizip")
foreach(part boost/libs/log/src boost/libs/iostreams/src minizip/iowin32.c)
  if(NOT EXISTS "${KX_WINDOWS_SOURCES}/${part}")
    message(FATAL_ERROR "KX_WINDOWS_SOURCES (\"${KX_WINDOWS_SOURCES}\") has no ${part}; `make windows` provides it")
  endif()
endforeach()

# A library of that zlib1.dll would be found by Wine, which has one of its own, and be missing on a real machine.
set(ZLIB_USE_STATIC_LIBS ON)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)

# kx_native_headers(<folder> <path of headers>...): an include folder that holds links to these headers alone.
function(kx_native_headers folder)
  file(MAKE_DIRECTORY "${folder}")
  foreach(path IN LISTS ARGN)
    if(NOT EXISTS "${path}")
      message(FATAL_ERROR "${path} is missing; tools/packages.txt names the packages")
    endif()
    get_filename_component(name "${path}" NAME)
    file(CREATE_LINK "${path}" "${folder}/${name}" SYMBOLIC)
  endforeach()
endfunction()

set(kx_headers "${PROJECT_BINARY_DIR}/native_headers")
kx_native_headers("${kx_headers}/boost" /usr/include/boost)
kx_native_headers("${kx_headers}/others" /usr/include/fmt /usr/include/CLI /usr/include/nlohmann)
kx_native_headers("${kx_headers}/minizip" "${KX_WINDOWS_SOURCES}/minizip")

foreach(name headers boost iostreams date_time)
  add_library(Boost::${name} INTERFACE IMPORTED)
  target_include_directories(Boost::${name} SYSTEM INTERFACE "${kx_headers}/boost")
  target_compile_definitions(Boost::${name} INTERFACE BOOST_ALL_NO_LIB BOOST_USE_WINAPI_VERSION=0x0A00)
endforeach()
# Date_Time is used as far as it is headers, and so is Iostreams but for this filter.
add_library(kx_boost_zlib STATIC "${KX_WINDOWS_SOURCES}/boost/libs/iostreams/src/zlib.cpp")
target_compile_options(kx_boost_zlib PRIVATE -w)
target_link_libraries(kx_boost_zlib PUBLIC Boost::headers ZLIB::ZLIB)
target_link_libraries(Boost::iostreams INTERFACE kx_boost_zlib)
set(Boost_VERSION_MAJOR 1)
set(Boost_VERSION_MINOR 74)

foreach(name fmt::fmt CLI11::CLI11 nlohmann_json::nlohmann_json)
  add_library(${name} INTERFACE IMPORTED)
  target_include_directories(${name} SYSTEM INTERFACE "${kx_headers}/others")
endforeach()
target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY=1)

set(minizip "${KX_WINDOWS_SOURCES}/minizip")
add_library(kx_minizip STATIC
  "${minizip}/ioapi.c" "${minizip}/iowin32.c" "${minizip}/zip.c" "${minizip}/unzip.c")
target_include_directories(kx_minizip SYSTEM PUBLIC "${kx_headers}/minizip")
target_compile_options(kx_minizip PRIVATE -w)
set_target_properties(kx_minizip PROPERTIES UNITY_BUILD OFF)
target_link_libraries(kx_minizip PUBLIC ZLIB::ZLIB)
add_library(PkgConfig::minizip ALIAS kx_minizip)

include(KxBoostLogForWindows)

if(KX_BUILD_TESTS)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_SHARED_LIBS OFF)
  add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
endif()
