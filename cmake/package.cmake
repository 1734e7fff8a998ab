# `cpack` in a build folder makes the Debian package for the processor that the folder builds for.
#
# CPack, not debhelper: the package holds what `cmake --install` puts in place, from any build
# folder, a cross build's included, and needs no root rights, no build dependencies of its own and no
# second description of what is installed where.
install(FILES packaging/debian/copyright packaging/debian/changelog
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${PROJECT_NAME} COMPONENT debian EXCLUDE_FROM_ALL)
install(FILES packaging/debian/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${PROJECT_NAME}
        COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT "The vandis-moraine authors <vandis-moraine@example.org>"
    CACHE STRING "Who answers for the Debian package")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)
set(CPACK_DEBIAN_STRIP ${CMAKE_STRIP})

set(CPACK_COMPONENTS_ALL daemon systemd debian)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "systemd, xz-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA conffiles postinst prerm postrm)
list(TRANSFORM CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA PREPEND ${PROJECT_SOURCE_DIR}/packaging/debian/)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "archive of the system log across reboots")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "\
Every 10 seconds the daemon takes one file that syslogd has rotated,
compresses it with xz and moves it into an archive on the permanent
partition (/perm), under a name that tells the boot and the time in it.
The archive keeps itself under 1 GiB and within 999 boots, and survives
power cuts.

It comes with a syslogd of its own, syslogd-moraine.service, which takes
/dev/log over from the journal. That needs a BusyBox that was built with
FEATURE_ROTATE_LOGFILE, which Debian's is not, as /usr/local/sbin/syslogd.")

# Libraries: natively dpkg-shlibdeps knows. It does not know cross compilers' libraries as the
# packages of the device, so there they are required in the version that was linked.
set(debian_processors aarch64=arm64 x86_64=amd64)
list(FILTER debian_processors INCLUDE REGEX "^${CMAKE_SYSTEM_PROCESSOR}=")
list(TRANSFORM debian_processors REPLACE ".*=" "" OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
if(NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
elseif(NOT MORAINE_STATIC)
    foreach(library IN ITEMS libc6 libgcc-s1 libstdc++6)
        execute_process(
            COMMAND dpkg-query --show --showformat \${Version}
                ${library}-${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}-cross
            OUTPUT_VARIABLE version ERROR_QUIET)
        string(REGEX REPLACE "-.*" "" version "${version}")
        string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", ${library} (>= ${version})")
    endforeach()
endif()
include(CPack)
