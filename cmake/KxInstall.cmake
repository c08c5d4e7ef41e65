# The CMake package KxStorage: what a host's developer finds with find_package(KxStorage).

set(KX_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/KxStorage")

install(EXPORT KxStorageTargets NAMESPACE KxStorage:: DESTINATION "${KX_PACKAGE_DIR}")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/KxStorageConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/package/KxStorageConfig.cmake"
  INSTALL_DESTINATION "${KX_PACKAGE_DIR}"
  PATH_VARS KX_PROVIDER_INSTALL_DIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/KxStorageConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/package/KxStorageConfig.cmake"
  "${PROJECT_BINARY_DIR}/package/KxStorageConfigVersion.cmake"
  DESTINATION "${KX_PACKAGE_DIR}")

if(WIN32)
  # The run-time libraries of the compiler, which a Windows machine lacks.
  foreach(name libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${name}"
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT IS_ABSOLUTE "${path}")
      message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no ${name}")
    endif()
    install(FILES "${path}" DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endforeach()
endif()
