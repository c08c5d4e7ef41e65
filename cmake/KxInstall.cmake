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
