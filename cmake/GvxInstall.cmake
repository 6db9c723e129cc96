# What is installed: libraries, the headers that plug-in authors and integrators compile against, the programs, the
# default configuration, and the files by which CMake and pkg-config find them. Each rule names its component, which is
# the Debian package that it goes to (GvxPackages.cmake).
include(CMakePackageConfigHelpers)

set(GVX_PLUGIN_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/gvx/plugins)

install(TARGETS gvx_base gvx_nss gvx_bp gvx_common EXPORT gvx_commonTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libgvx-common NAMELINK_COMPONENT libgvx-common-dev
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gvx COMPONENT libgvx-common-dev
  FILE_SET tables DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gvx COMPONENT libgvx-common-dev)
install(TARGETS gvx-plugin-check EXPORT gvx_commonTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT libgvx-common-dev)
install(TARGETS gvxd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT gvxd)
install(TARGETS gvxctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT gvx-tools)
install(TARGETS gvx_plugin_file gvx_plugin_rtsp LIBRARY DESTINATION ${GVX_PLUGIN_INSTALL_DIR} COMPONENT gvxd)

install(CODE "set(GVX_CONF_FROM ${PROJECT_SOURCE_DIR}/conf)
  get_filename_component(GVX_CONF_TO \"${CMAKE_INSTALL_SYSCONFDIR}/gvx\" ABSOLUTE BASE_DIR \"\${CMAKE_INSTALL_PREFIX}\")"
  COMPONENT configuration)
install(SCRIPT cmake/GvxInstallConfiguration.cmake COMPONENT configuration)

install(EXPORT gvx_commonTargets NAMESPACE gvx:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/gvx_common
  COMPONENT libgvx-common-dev)
configure_package_config_file(cmake/gvx_common-config.cmake.in ${CMAKE_BINARY_DIR}/gvx_common-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/gvx_common)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/gvx_common-config-version.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/gvx_common-config.cmake ${CMAKE_BINARY_DIR}/gvx_common-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/gvx_common COMPONENT libgvx-common-dev)

# The prefix may be another at install time, so the file finds it from where it lies.
file(RELATIVE_PATH GVX_PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/gvx_common.pc.in ${CMAKE_BINARY_DIR}/gvx_common.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/gvx_common.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT libgvx-common-dev)

# The pages, and the reference of the public headers when scripts/docs.sh has made it.
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT gvxd FILES_MATCHING PATTERN "*.md")
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT gvxd)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/reference/html/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference
  COMPONENT libgvx-common-dev OPTIONAL)

# Manual pages and shell completion, from what the programs themselves print; the settings' pages from the same table.
if(NOT GVX_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  set(man_folder ${CMAKE_BINARY_DIR}/man)
  set(man_pages ${man_folder}/gvxd.8.gz ${man_folder}/gvxctl.1.gz ${man_folder}/zvs_gvx.conf.5.gz)
  add_custom_command(
    OUTPUT ${man_pages} ${man_folder}/gvxctl
    COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/scripts/lib/man_pages.py
            $<TARGET_FILE:gvxd> $<TARGET_FILE:gvxctl> ${PROJECT_SOURCE_DIR}/conf/zvs_gvx.conf ${man_folder}
    DEPENDS gvxd gvxctl ${PROJECT_SOURCE_DIR}/scripts/lib/man_pages.py ${PROJECT_SOURCE_DIR}/conf/zvs_gvx.conf
    VERBATIM)
  add_custom_target(gvx_man ALL DEPENDS ${man_pages} ${man_folder}/gvxctl)
  install(FILES ${man_folder}/gvxd.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT gvxd OPTIONAL)
  install(FILES ${man_folder}/zvs_gvx.conf.5.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT gvxd OPTIONAL)
  install(FILES ${man_folder}/gvxctl.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT gvx-tools OPTIONAL)
  install(FILES ${man_folder}/gvxctl DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    COMPONENT gvx-tools OPTIONAL)
endif()
