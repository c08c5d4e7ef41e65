# The component runtime that plug-ins and hosts link as kx::component_runtime, and the bundles it loads.
#
# An installed CppMicroServices is taken when CMAKE_PREFIX_PATH leads to one (switch it off with
# -DKX_USE_FRAMEWORK=OFF); otherwise kxmicroservices, the small runtime in src/microservices, which offers
# the same interface under the same header names.

set(KX_COMPONENT_RUNTIME_NAME "embedded")
set(KX_DECLARATIVE_SERVICES_BUNDLE_PATH "")
set(KX_COMPONENT_RUNTIME_IS_EMBEDDED ON)

if(KX_USE_FRAMEWORK)
  find_package(CppMicroServices 3 QUIET)
  if(CppMicroServices_FOUND)
    find_package(usServiceComponent QUIET HINTS "${CppMicroServices_DIR}")
    find_library(KX_DECLARATIVE_SERVICES_BUNDLE
      NAMES DeclarativeServices
      HINTS "${CppMicroServices_DIR}/../../../lib" ${CppMicroServices_RUNTIME_LIBRARY_DIRS}
      DOC "The framework's declarative-services bundle")
    if(NOT TARGET usServiceComponent)
      message(WARNING "CppMicroServices ${CppMicroServices_VERSION} has no usServiceComponent; using the embedded runtime")
    elseif(NOT KX_DECLARATIVE_SERVICES_BUNDLE)
      message(WARNING "CppMicroServices ${CppMicroServices_VERSION} has no DeclarativeServices bundle; using the embedded runtime")
    else()
      set(KX_COMPONENT_RUNTIME_IS_EMBEDDED OFF)
      set(KX_COMPONENT_RUNTIME_NAME "CppMicroServices ${CppMicroServices_VERSION}")
      file(REAL_PATH "${KX_DECLARATIVE_SERVICES_BUNDLE}" KX_DECLARATIVE_SERVICES_BUNDLE_PATH)
    endif()
  endif()
endif()
if(KX_REQUIRE_FRAMEWORK AND KX_COMPONENT_RUNTIME_IS_EMBEDDED)
  message(FATAL_ERROR "no complete CppMicroServices 3 in CMAKE_PREFIX_PATH (\"${CMAKE_PREFIX_PATH}\")")
endif()
message(STATUS "Component runtime: ${KX_COMPONENT_RUNTIME_NAME}")

# <microservices/ComponentRuntime.h>: what a host has to know about the runtime that it was built with.
configure_file("${CMAKE_CURRENT_LIST_DIR}/ComponentRuntime.h.in"
  "${PROJECT_BINARY_DIR}/generated/component_runtime/microservices/ComponentRuntime.h" @ONLY)

# For PRIVATE use: the target is not part of the installed package.
add_library(kx_component_runtime INTERFACE)
add_library(kx::component_runtime ALIAS kx_component_runtime)
target_include_directories(kx_component_runtime INTERFACE "${PROJECT_BINARY_DIR}/generated/component_runtime")
if(KX_COMPONENT_RUNTIME_IS_EMBEDDED)
  target_link_libraries(kx_component_runtime INTERFACE kxmicroservices)
else()
  target_link_libraries(kx_component_runtime INTERFACE CppMicroServices usServiceComponent)
endif()

add_executable(kx_append_manifest EXCLUDE_FROM_ALL "${PROJECT_SOURCE_DIR}/tools/append_manifest.cpp")
target_link_libraries(kx_append_manifest PRIVATE PkgConfig::minizip kx_flags)
set_target_properties(kx_append_manifest PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tools")

# kx_add_bundle(<target> SYMBOLIC_NAME <name> MANIFEST <manifest.json> CLASS <class>...
#               COMPONENT <path> [SOURCES ...] [OBJECTS <object library>...] [LINK ...]
#               [OUTPUT_DIRECTORY <folder>])
#
# A bundle: the loadable library lib<target>.so that exports, for each implementation class,
# NewInstance_<class> and DeleteInstance_<class> (with every :: written as _), and
# _us_set_bundle_context_instance_<symbolic name>, and nothing else. Behind its last byte stands a ZIP
# archive that holds <symbolic name>/manifest.json, which is where the runtime reads the manifest.
# On Windows the library is lib<target>.dll.
#
# It is put into the subfolder COMPONENT of the providers' folder, in the build tree and in the install
# tree. A bundle with OUTPUT_DIRECTORY is put there in the build tree and is not installed.
function(kx_add_bundle target)
  cmake_parse_arguments(arg "" "SYMBOLIC_NAME;MANIFEST;COMPONENT;OUTPUT_DIRECTORY" "CLASS;SOURCES;OBJECTS;LINK" ${ARGN})
  foreach(needed SYMBOLIC_NAME MANIFEST CLASS)
    if(NOT arg_${needed})
      message(FATAL_ERROR "kx_add_bundle(${target}): ${needed} is missing")
    endif()
  endforeach()
  if(NOT arg_COMPONENT AND NOT arg_OUTPUT_DIRECTORY)
    message(FATAL_ERROR "kx_add_bundle(${target}): COMPONENT or OUTPUT_DIRECTORY is missing")
  endif()
  get_filename_component(manifest "${arg_MANIFEST}" ABSOLUTE)
  set(work "${CMAKE_CURRENT_BINARY_DIR}/${target}.bundle")

  add_library(${target} MODULE ${arg_SOURCES})
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src")
  target_compile_definitions(${target} PRIVATE US_BUNDLE_NAME=${arg_SYMBOLIC_NAME})
  target_link_libraries(${target} PRIVATE ${arg_OBJECTS} ${arg_LINK} kx::component_runtime kx_flags)
  if(NOT KX_SANITIZE AND NOT WIN32)
    # A symbol that no library provides is found by the linker, not when a host loads the bundle.
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()

  # On Windows what is marked for export is exported and nothing else.
  if(NOT WIN32)
    set(exports "_us_set_bundle_context_instance_${arg_SYMBOLIC_NAME};")
    foreach(class IN LISTS arg_CLASS)
      string(REPLACE "::" "_" symbol "${class}")
      string(APPEND exports " NewInstance_${symbol}; DeleteInstance_${symbol};")
    endforeach()
    file(CONFIGURE OUTPUT "${work}/exports.map" CONTENT "{ global: ${exports} local: *; };\n")
    target_link_options(${target} PRIVATE "LINKER:--version-script=${work}/exports.map")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${work}/exports.map")
  endif()

  # Linked anew when the manifest changes: what was appended to the old file is gone then.
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${manifest}")
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND kx_append_manifest "$<TARGET_FILE:${target}>" "${manifest}" ${arg_SYMBOLIC_NAME}
    COMMENT "Appending the manifest to $<TARGET_FILE_NAME:${target}>"
    VERBATIM)

  # The file is installed as it was built. Rewriting its run path or stripping it would cut the archive off.
  set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH_USE_LINK_PATH ON)
  if(arg_OUTPUT_DIRECTORY)
    set_target_properties(${target} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY "${arg_OUTPUT_DIRECTORY}" INSTALL_RPATH "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
  else()
    set(place "${KX_PROVIDER_SUBDIR}/${arg_COMPONENT}")
    file(RELATIVE_PATH up "/lib/${place}" "/lib")
    string(REGEX REPLACE "/$" "" up "${up}")
    set_target_properties(${target} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${place}" INSTALL_RPATH "$ORIGIN/${up}")
    install(PROGRAMS "$<TARGET_FILE:${target}>" DESTINATION "${KX_PROVIDER_INSTALL_DIR}/${arg_COMPONENT}")
  endif()
endfunction()
