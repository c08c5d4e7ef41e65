# One call per library, test, example and fuzzer.

include(GoogleTest)

# kx_add_library(<target> SOURCES ... [PUBLIC ...] [PRIVATE ...])
#
# A shared platform library lib<target>.so, includable from src/. Its sources are compiled with
# KX_BUILDING_<TARGET> defined, which turns its export macro into an export. Public headers are
# every *.h of the folder of the call; they are installed under include/kx with their path below src/.
function(kx_add_library target)
  cmake_parse_arguments(arg "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${target} SHARED ${arg_SOURCES})
  add_library(kx::${target} ALIAS ${target})
  string(TOUPPER ${target} upper)
  target_compile_definitions(${target} PRIVATE KX_BUILDING_${upper})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kx>")
  target_link_libraries(${target} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE} "$<BUILD_INTERFACE:kx_flags>")
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  install(TARGETS ${target} EXPORT KxStorageTargets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH place "${PROJECT_SOURCE_DIR}/src" "${CMAKE_CURRENT_SOURCE_DIR}")
  install(DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}/"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kx/${place}"
    FILES_MATCHING PATTERN "*.h" PATTERN "src" EXCLUDE)
endfunction()

# kx_add_test(<target> SOURCES ... [POSIX_SOURCES ...] [LINK ...] [ENVIRONMENT ...] [TIMEOUT <s>] [LABELS ...]
#             [WINDOWS_SHARDS <n>])
#
# A GoogleTest executable whose tests ctest runs one by one, each in its own process. POSIX_SOURCES are left out on
# Windows; the call says why.
# With WHOLE, ctest runs the executable once (for suites whose set-up is dear). On Windows it always does, since starting
# a process under Wine takes longer than most tests; executables that run for minutes are split into WINDOWS_SHARDS.
function(kx_add_test target)
  cmake_parse_arguments(arg "WHOLE" "TIMEOUT;WINDOWS_SHARDS" "SOURCES;POSIX_SOURCES;LINK;ENVIRONMENT;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  if(WIN32)
    list(APPEND arg_LINK kx_left_out)
  else()
    list(APPEND arg_SOURCES ${arg_POSIX_SOURCES})
  endif()
  add_executable(${target} ${arg_SOURCES})
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
  target_compile_definitions(${target} PRIVATE KX_SOURCE_DIR="${PROJECT_SOURCE_DIR}" KX_BINARY_DIR="${PROJECT_BINARY_DIR}")
  target_link_libraries(${target} PRIVATE ${arg_LINK} GTest::gmock GTest::gtest_main "$<BUILD_INTERFACE:kx_flags>")
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  set(environment "KX_SHARED_CORPUS=${PROJECT_SOURCE_DIR}/../shared/corpus" ${arg_ENVIRONMENT})
  if(WIN32)
    if(NOT arg_WINDOWS_SHARDS)
      set(arg_WINDOWS_SHARDS 1)
    endif()
    # What takes longest, as far as its time limit and its parts tell, is begun first.
    math(EXPR cost "${arg_TIMEOUT} / 100 + ${arg_WINDOWS_SHARDS}")
    foreach(shard RANGE 1 ${arg_WINDOWS_SHARDS})
      math(EXPR index "${shard} - 1")
      add_test(NAME ${target}.${shard}_of_${arg_WINDOWS_SHARDS} COMMAND ${target})
      set_tests_properties(${target}.${shard}_of_${arg_WINDOWS_SHARDS} PROPERTIES
        TIMEOUT 1500 COST ${cost} LABELS "${arg_LABELS}"
        ENVIRONMENT "${environment};GTEST_BRIEF=1;GTEST_TOTAL_SHARDS=${arg_WINDOWS_SHARDS};GTEST_SHARD_INDEX=${index}")
    endforeach()
  elseif(arg_WHOLE)
    add_test(NAME ${target} COMMAND ${target})
    set_tests_properties(${target} PROPERTIES
      TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${environment}" LABELS "${arg_LABELS}")
  else()
    gtest_discover_tests(${target} TEST_PREFIX "${target}." DISCOVERY_TIMEOUT 120 NO_PRETTY_VALUES)
    # Properties that are lists get lost on the way through gtest_discover_tests; ctest reads this file after it.
    set(properties "${CMAKE_CURRENT_BINARY_DIR}/${target}_properties.cmake")
    file(GENERATE OUTPUT "${properties}" CONTENT
      "if(${target}_TESTS)
  set_tests_properties(\${${target}_TESTS} PROPERTIES
    TIMEOUT ${arg_TIMEOUT} ENVIRONMENT [==[${environment}]==] LABELS [==[${arg_LABELS}]==])
endif()
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${properties}")
  endif()
endfunction()

# kx_add_example(<target> SOURCES ... [LINK ...])
function(kx_add_example target)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${target} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE ${arg_LINK} "$<BUILD_INTERFACE:kx_flags>")
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/examples")
endfunction()

# kx_add_fuzzer(<name> SOURCES ... [LINK ...])
#
# <name>_replay runs the target over the files of fuzz/corpus/<name> (an ordinary test);
# with KX_BUILD_FUZZERS also fuzz_<name>, the libFuzzer executable.
function(kx_add_fuzzer name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  if(KX_BUILD_TESTS)
    add_executable(${name}_replay ${arg_SOURCES} "${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp")
    target_include_directories(${name}_replay PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name}_replay PRIVATE ${arg_LINK} "$<BUILD_INTERFACE:kx_flags>")
    set_target_properties(${name}_replay PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/fuzz")
    add_test(NAME fuzz.${name}.replays_its_corpus
      COMMAND ${name}_replay "${PROJECT_SOURCE_DIR}/fuzz/corpus/${name}")
    set_tests_properties(fuzz.${name}.replays_its_corpus PROPERTIES TIMEOUT 120 LABELS fuzz)
  endif()
  if(KX_BUILD_FUZZERS)
    add_executable(fuzz_${name} ${arg_SOURCES})
    target_include_directories(fuzz_${name} PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(fuzz_${name} PRIVATE ${arg_LINK} "$<BUILD_INTERFACE:kx_flags>")
    target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    set_target_properties(fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/fuzz")
  endif()
endfunction()
