# What `cmake --install` puts in place: the library with its version and
# soname, the host headers under include/sorvik/host, the two programs, the
# Wireshark dissector, and a CMake package giving the target Sorvik::Sorvik.
include(CMakePackageConfigHelpers)

install(TARGETS Sorvik EXPORT SorvikTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
file(GLOB SORVIK_HOST_HEADERS ${PROJECT_SOURCE_DIR}/host/*.h)
install(FILES ${SORVIK_HOST_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sorvik/host)
install(TARGETS sorvik-cli sorvik-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${SORVIK_DISSECTOR} DESTINATION ${CMAKE_INSTALL_DATADIR}/sorvik/wireshark)

set(SORVIK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Sorvik)
install(EXPORT SorvikTargets NAMESPACE Sorvik:: DESTINATION ${SORVIK_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/SorvikConfig.cmake.in
  ${PROJECT_BINARY_DIR}/SorvikConfig.cmake INSTALL_DESTINATION ${SORVIK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/SorvikConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/SorvikConfig.cmake ${PROJECT_BINARY_DIR}/SorvikConfigVersion.cmake
  DESTINATION ${SORVIK_CMAKE_DIR})
