# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# `cpack` in a build folder makes the Debian packages for the processor that the folder builds for.
#
# CPack, not debhelper: a package holds what `cmake --install` puts in place, from any build
# folder, a cross build's included, and needs no root rights, no build dependencies of its own and no
# second description of what is installed where.
#
# Each package is a CPack group of components; what is not built has no package.
set(debian_packages vandis-moraine vandis-moraine-dev)
set(debian_components_vandis-moraine daemon systemd)
set(debian_components_vandis-moraine-dev development)
if(TARGET moraine_reader)
    list(APPEND debian_components_vandis-moraine-dev reader)
endif()
if(TARGET moraine_command)
    list(APPEND debian_packages moraine)
    set(debian_components_moraine command)
endif()
if(TARGET moraine_page)
    list(APPEND debian_packages moraine-page)
    set(debian_components_moraine-page page)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT "The vandis-moraine authors <vandis-moraine@example.org>"
    CACHE STRING "Who answers for the Debian package")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)
set(CPACK_DEBIAN_STRIP ${CMAKE_STRIP})

set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(control ${PROJECT_SOURCE_DIR}/packaging/debian)

set(CPACK_DEBIAN_VANDIS-MORAINE_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_VANDIS-MORAINE_PACKAGE_DEPENDS "systemd, xz-utils")
set(CPACK_DEBIAN_VANDIS-MORAINE_PACKAGE_CONTROL_EXTRA
    ${control}/conffiles ${control}/postinst ${control}/prerm ${control}/postrm)
set(CPACK_DEBIAN_VANDIS-MORAINE_DESCRIPTION "archive of the system log across reboots
Every 10 seconds the daemon takes one file that syslogd has rotated,
compresses it with xz and moves it into an archive on the permanent
partition (/perm), under a name made of the boot and the time in it.
The archive keeps itself under 1 GiB and within 999 boots, and survives
power cuts.

It comes with a syslogd of its own, syslogd-moraine.service, which takes
/dev/log over from the journal. That needs a BusyBox that was built with
FEATURE_ROTATE_LOGFILE, which Debian's is not, as /usr/local/sbin/syslogd.")

set(CPACK_DEBIAN_VANDIS-MORAINE-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_VANDIS-MORAINE-DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_VANDIS-MORAINE-DEV_DESCRIPTION "libraries of the archive of the system log
The static C++ libraries of the vandis-moraine daemon, with headers, CMake
package and pkg-config file: they answer questions about the archived log,
read it, and pack it for a download.")
if(TARGET moraine_reader)
    set(CPACK_DEBIAN_VANDIS-MORAINE-DEV_PACKAGE_DEPENDS liblzma-dev)
endif()

set(CPACK_DEBIAN_MORAINE_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_MORAINE_DESCRIPTION "shows, checks and packs an archived system log
The command moraine reads the log that the vandis-moraine daemon keeps,
on the device itself or in a download of it: by boot, time, program,
severity or text, from the oldest archived line to the live log.")

set(CPACK_DEBIAN_MORAINE-PAGE_PACKAGE_SECTION web)
set(CPACK_DEBIAN_MORAINE-PAGE_PACKAGE_DEPENDS "vandis-moraine (= ${PROJECT_VERSION}), adduser")
set(CPACK_DEBIAN_MORAINE-PAGE_PACKAGE_CONTROL_EXTRA
    ${control}/moraine-page/conffiles ${control}/moraine-page/postinst ${control}/moraine-page/prerm)
set(CPACK_DEBIAN_MORAINE-PAGE_DESCRIPTION "web page of an archived system log
Shows the log that the vandis-moraine daemon keeps to people who have a
browser: searching, filtering, following and downloading. It is reached
on the device itself unless an address and passwords are set.")

# Libraries: natively dpkg-shlibdeps knows. It does not know cross compilers' libraries as the
# packages of the device, so there they are required in the version that was linked.
set(debian_processors aarch64=arm64 x86_64=amd64)
list(FILTER debian_processors INCLUDE REGEX "^${CMAKE_SYSTEM_PROCESSOR}=")
list(TRANSFORM debian_processors REPLACE ".*=" "" OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
if(NOT CMAKE_CROSSCOMPILING)
    foreach(package IN ITEMS VANDIS-MORAINE MORAINE MORAINE-PAGE)
        set(CPACK_DEBIAN_${package}_PACKAGE_SHLIBDEPS ON)
    endforeach()
elseif(NOT MORAINE_STATIC)
    foreach(library IN ITEMS libc6 libgcc-s1 libstdc++6)
        execute_process(
            COMMAND dpkg-query --show --showformat \${Version}
                ${library}-${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}-cross
            OUTPUT_VARIABLE version ERROR_QUIET)
        string(REGEX REPLACE "-.*" "" version "${version}")
        list(APPEND linked "${library} (>= ${version})")
    endforeach()
    list(APPEND CPACK_DEBIAN_VANDIS-MORAINE_PACKAGE_DEPENDS ${linked})
    list(APPEND linked "liblzma5 (>= ${LIBLZMA_VERSION_STRING})")
    list(APPEND CPACK_DEBIAN_MORAINE_PACKAGE_DEPENDS ${linked})
    list(APPEND CPACK_DEBIAN_MORAINE-PAGE_PACKAGE_DEPENDS ${linked})
    foreach(package IN ITEMS VANDIS-MORAINE MORAINE MORAINE-PAGE)
        list(JOIN CPACK_DEBIAN_${package}_PACKAGE_DEPENDS ", " CPACK_DEBIAN_${package}_PACKAGE_DEPENDS)
    endforeach()
endif()

foreach(package IN LISTS debian_packages)
    string(TOUPPER ${package} group)
    set(CPACK_DEBIAN_${group}_PACKAGE_NAME ${package})
    install(FILES packaging/debian/copyright packaging/debian/changelog
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
            COMPONENT debian-${package} EXCLUDE_FROM_ALL)
    list(APPEND debian_components_${package} debian-${package})
    list(APPEND CPACK_COMPONENTS_ALL ${debian_components_${package}})
endforeach()
if(TARGET moraine_page)
    install(FILES packaging/debian/moraine-page/lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME moraine-page
            COMPONENT debian-moraine-page EXCLUDE_FROM_ALL)
endif()
install(FILES packaging/debian/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${PROJECT_NAME}
        COMPONENT debian-vandis-moraine EXCLUDE_FROM_ALL)
include(CPack)
foreach(package IN LISTS debian_packages)
    foreach(component IN LISTS debian_components_${package})
        cpack_add_component(${component} GROUP ${package})
    endforeach()
endforeach()
