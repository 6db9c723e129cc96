# Debian packages, made by scripts/package.sh: a package for each component. What only a package installs stands in
# components of its own, which "cmake --install" passes over; the configuration is one of them: in a package it is
# conffiles, and the rule of GvxInstall.cmake that keeps edited files does not run.
set(GVX_PACKAGE_MAINTAINER "gvx maintainers <maintainers@gvx.invalid>" CACHE STRING "Who answers for the Debian packages")
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(made ${CMAKE_BINARY_DIR}/packaging)
set(packages gvxd libgvx-common libgvx-common-dev gvx-tools)

install(DIRECTORY conf/ DESTINATION /etc/gvx COMPONENT gvxd-files EXCLUDE_FROM_ALL)
install(FILES packaging/gvxd.default DESTINATION /etc/default RENAME gvxd COMPONENT gvxd-files EXCLUDE_FROM_ALL)
install(FILES packaging/gvxd.service DESTINATION lib/systemd/system COMPONENT gvxd-files EXCLUDE_FROM_ALL)
install(FILES packaging/gvxd.sysusers DESTINATION lib/sysusers.d RENAME gvxd.conf COMPONENT gvxd-files EXCLUDE_FROM_ALL)
install(FILES packaging/gvxd.tmpfiles DESTINATION lib/tmpfiles.d RENAME gvxd.conf COMPONENT gvxd-files EXCLUDE_FROM_ALL)
foreach(package IN LISTS packages)
  install(FILES packaging/copyright packaging/changelog DESTINATION share/doc/${package}
    COMPONENT ${package}-files EXCLUDE_FROM_ALL)
endforeach()

file(GLOB_RECURSE conffiles RELATIVE ${PROJECT_SOURCE_DIR}/conf CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/conf/*)
list(TRANSFORM conffiles PREPEND /etc/gvx/)
list(JOIN conffiles "\n" conffiles)
file(WRITE ${made}/conffiles "${conffiles}\n/etc/default/gvxd\n")
foreach(script postinst prerm postrm)
  configure_file(${packaging}/gvxd.${script} ${made}/${script} COPYONLY)
endforeach()
set(shlibs "")
foreach(library gvx_base gvx_nss gvx_bp gvx_common)
  string(APPEND shlibs "lib${library} ${PROJECT_VERSION_MAJOR} libgvx-common (= ${PROJECT_VERSION})\n")
endforeach()
file(WRITE ${made}/shlibs "${shlibs}")
file(WRITE ${made}/triggers "activate-noawait ldconfig\n")
# In the place of one that CPack would make to call ldconfig by itself, which the trigger does.
file(WRITE ${made}/nothing/postinst "#!/bin/sh\nset -e\n")
file(COPY_FILE ${made}/nothing/postinst ${made}/nothing/postrm)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME gvx)
set(CPACK_PACKAGE_VENDOR gvx)
set(CPACK_PACKAGE_CONTACT "${GVX_PACKAGE_MAINTAINER}")
set(CPACK_SET_DESTDIR ON)  # the configuration has an absolute place
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/GvxPackageFiles.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(ours "libgvx-common (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_GVXD_DESCRIPTION "video-surveillance access gateway
gvxd stands between a central platform and cameras or recorders: it serves the
platform's commands strictly in order for each device and turns device media
into RTP. The package brings the plug-ins for RTSP cameras and for files.")
set(CPACK_DEBIAN_GVXD_PACKAGE_SECTION net)
set(CPACK_DEBIAN_GVXD_PACKAGE_DEPENDS "${ours}, systemd")
set(CPACK_DEBIAN_GVXD_PACKAGE_RECOMMENDS "ffmpeg, gvx-tools")
set(CPACK_DEBIAN_GVXD_PACKAGE_CONTROL_EXTRA ${made}/conffiles ${made}/postinst ${made}/prerm ${made}/postrm)
set(CPACK_DEBIAN_LIBGVX-COMMON_DESCRIPTION "core of the video-surveillance access gateway
The shared libraries that gvxd, its plug-ins and gvxctl use: command reactors,
links and messages, the media path, and the adapter classes for plug-ins.")
set(CPACK_DEBIAN_LIBGVX-COMMON_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBGVX-COMMON_PACKAGE_CONTROL_EXTRA ${made}/shlibs ${made}/triggers
  ${made}/nothing/postinst ${made}/nothing/postrm)
set(CPACK_DEBIAN_LIBGVX-COMMON-DEV_DESCRIPTION "what plug-ins of the access gateway are built with
Headers, CMake and pkg-config files, gvx-new-plugin, which makes the folder of
a new plug-in, and gvx-plugin-check, which drives one without a gateway.")
set(CPACK_DEBIAN_LIBGVX-COMMON-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBGVX-COMMON-DEV_PACKAGE_DEPENDS "${ours}, libace-dev, libjsoncpp-dev, python3")
set(CPACK_DEBIAN_GVX-TOOLS_DESCRIPTION "the platform's side of the access gateway's links
gvxctl adds devices, starts and receives streams and prints what a gateway
says; with it comes a dissector of the links for Wireshark.")
set(CPACK_DEBIAN_GVX-TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_GVX-TOOLS_PACKAGE_DEPENDS "${ours}")
set(CPACK_DEBIAN_GVX-TOOLS_PACKAGE_SUGGESTS "ffmpeg, wireshark")

set(CPACK_COMPONENTS_ALL "")
foreach(package IN LISTS packages)
  list(APPEND CPACK_COMPONENTS_ALL ${package} ${package}-files)
  string(TOUPPER ${package} upper)
  set(CPACK_COMPONENT_${upper}_GROUP ${package})
  set(CPACK_COMPONENT_${upper}-FILES_GROUP ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
endforeach()
include(CPack)
