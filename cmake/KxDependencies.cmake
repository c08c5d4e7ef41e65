# Third-party libraries, all from the distribution's packages (docs/dependencies.md says why each).

find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
set(Boost_USE_STATIC_LIBS OFF)
find_package(Boost 1.74 REQUIRED COMPONENTS iostreams date_time log)
find_package(PkgConfig REQUIRED)
pkg_check_modules(minizip REQUIRED IMPORTED_TARGET minizip)
find_package(fmt REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json 3.9 REQUIRED)
if(KX_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
