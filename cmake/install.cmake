# `cmake --install`: the library with its SONAME links, the headers under
# include/tarvo/, tarvo.pc for pkg-config and the Tarvo CMake package
# (find_package(Tarvo) gives Tarvo::Tarvo).
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Tarvo)
install(TARGETS Tarvo EXPORT TarvoTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tarvo
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT TarvoTargets NAMESPACE Tarvo:: DESTINATION ${package_dir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TarvoConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TarvoConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarvoConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TarvoConfig.cmake
  ${PROJECT_BINARY_DIR}/TarvoConfigVersion.cmake
  DESTINATION ${package_dir})

# tarvo.pc finds its prefix from where it lies, so the tree can be moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TARVO_PC_TO_PREFIX /${pkgconfig_dir} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/tarvo.pc.in ${PROJECT_BINARY_DIR}/tarvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarvo.pc DESTINATION ${pkgconfig_dir})
