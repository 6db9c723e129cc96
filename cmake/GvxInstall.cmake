# The installed package: libraries, the headers that plug-in authors and integrators compile against, the programs, the
# default configuration, and the files by which CMake and pkg-config find them.
include(CMakePackageConfigHelpers)

set(GVX_PLUGIN_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/gvx/plugins)

install(TARGETS gvx_base gvx_nss gvx_bp gvx_common EXPORT gvx_commonTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gvx
  FILE_SET tables DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gvx)
install(TARGETS gvx-plugin-check EXPORT gvx_commonTargets RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS gvxd gvxctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS gvx_plugin_file gvx_plugin_rtsp LIBRARY DESTINATION ${GVX_PLUGIN_INSTALL_DIR})

install(CODE "set(GVX_CONF_FROM ${PROJECT_SOURCE_DIR}/conf)
  get_filename_component(GVX_CONF_TO \"${CMAKE_INSTALL_SYSCONFDIR}/gvx\" ABSOLUTE BASE_DIR \"\${CMAKE_INSTALL_PREFIX}\")")
install(SCRIPT cmake/GvxInstallConfiguration.cmake)

install(EXPORT gvx_commonTargets NAMESPACE gvx:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/gvx_common)
configure_package_config_file(cmake/gvx_common-config.cmake.in ${CMAKE_BINARY_DIR}/gvx_common-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/gvx_common)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/gvx_common-config-version.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/gvx_common-config.cmake ${CMAKE_BINARY_DIR}/gvx_common-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/gvx_common)

# The prefix may be another at install time, so the file finds it from where it lies.
file(RELATIVE_PATH GVX_PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/gvx_common.pc.in ${CMAKE_BINARY_DIR}/gvx_common.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/gvx_common.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The pages, and the reference of the public headers when scripts/docs.sh has made it.
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/reference/html/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference OPTIONAL)
