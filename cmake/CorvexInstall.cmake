# `cmake --install` puts the engine where C++ programs find it: find_package(corvex CONFIG), then
# link corvex::engine. The extensions are not in it; a wheel installs their component by its name.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/corvex)
set_target_properties(corvex_engine PROPERTIES EXPORT_NAME engine)
install(
  TARGETS corvex_engine
  EXPORT corvex
  ARCHIVE COMPONENT library)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/src/corvex/engine
  DESTINATION include/corvex
  COMPONENT library
  FILES_MATCHING
  PATTERN "*.hpp")
install(
  EXPORT corvex
  NAMESPACE corvex::
  FILE corvex-targets.cmake
  DESTINATION ${folder}
  COMPONENT library)
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/corvex-config.cmake @ONLY
     CONTENT [[include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/corvex-targets.cmake)
]])
# Before 1.0 each minor version may change the interface.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/corvex-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(
  FILES ${CMAKE_CURRENT_BINARY_DIR}/corvex-config.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/corvex-config-version.cmake
  DESTINATION ${folder}
  COMPONENT library)
