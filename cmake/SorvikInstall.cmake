# What `cmake --install` puts in place: the library with its version and
# soname, the host headers under include/sorvik/host, the two programs, the
# Wireshark dissector, a CMake package giving the targets Sorvik::Sorvik and
# Sorvik::Host, and a pkg-config file, sorvik.pc.
include(CMakePackageConfigHelpers)

install(TARGETS Sorvik EXPORT SorvikTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
file(GLOB SORVIK_HOST_HEADERS ${PROJECT_SOURCE_DIR}/host/*.h)
install(FILES ${SORVIK_HOST_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sorvik/host)
install(TARGETS sorvik-cli sorvik-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${SORVIK_DISSECTOR} DESTINATION ${CMAKE_INSTALL_DATADIR}/sorvik/wireshark)

set(SORVIK_SONAME_FILE
  ${CMAKE_SHARED_LIBRARY_PREFIX}Sorvik${CMAKE_SHARED_LIBRARY_SUFFIX}.${PROJECT_VERSION_MAJOR})

set(SORVIK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Sorvik)
install(EXPORT SorvikTargets NAMESPACE Sorvik:: DESTINATION ${SORVIK_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/SorvikConfig.cmake.in
  ${PROJECT_BINARY_DIR}/SorvikConfig.cmake INSTALL_DESTINATION ${SORVIK_CMAKE_DIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/SorvikConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/SorvikConfig.cmake ${PROJECT_BINARY_DIR}/SorvikConfigVersion.cmake
  DESTINATION ${SORVIK_CMAKE_DIR})

# sorvik.pc finds the prefix from its own place; absolute directories, where
# they were asked for, are written as they are.
set(SORVIK_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${SORVIK_PC_DIR}")
  set(SORVIK_PC_PREFIX ..)
else()
  file(RELATIVE_PATH SORVIK_PC_PREFIX /${SORVIK_PC_DIR} /)
  string(REGEX REPLACE "/$" "" SORVIK_PC_PREFIX "${SORVIK_PC_PREFIX}")
endif()
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(SORVIK_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(SORVIK_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/sorvik.pc.in ${PROJECT_BINARY_DIR}/sorvik.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sorvik.pc DESTINATION ${SORVIK_PC_DIR})
