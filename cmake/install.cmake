# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# What `cmake --install` puts in place, in components: `daemon` (with its settings and man page),
# `sysv` or `systemd` (what starts it), and `development` (the library as a CMake and a pkg-config
# package). `--component NAME` installs one of them, the one of the other init included.
include(CMakePackageConfigHelpers)

# Instead of the init scripts and not beside them: started by both, syslogd would run twice.
option(MORAINE_SYSTEMD "Install systemd units instead of the scripts for BusyBox init" OFF)
if(MORAINE_SYSTEMD)
    set(sysv_only_by_name EXCLUDE_FROM_ALL)
else()
    set(systemd_only_by_name EXCLUDE_FROM_ALL)
endif()

# The prefix /usr (of a device, or of a folder that becomes one) has its /etc beside it, another
# prefix has it below; the prefix is known only when it is installed.
foreach(component IN ITEMS daemon sysv systemd)
    install(CODE "set(source_dir [[${PROJECT_SOURCE_DIR}]])"
            COMPONENT ${component} ${${component}_only_by_name})
    install(CODE [[
        string(REGEX REPLACE "/usr/?$" "" root "${CMAKE_INSTALL_PREFIX}")
        set(executable OWNER_READ OWNER_WRITE OWNER_EXECUTE
            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    ]] COMPONENT ${component} ${${component}_only_by_name})
endforeach()

install(TARGETS vandis-moraine RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(FILES docs/vandis-moraine.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)
install(CODE [[
    file(INSTALL ${source_dir}/init/default/syslogd-moraine ${source_dir}/init/default/vandis-moraine
         DESTINATION ${root}/etc/default)
]] COMPONENT daemon)

# Whatever starts the daemon runs these two.
install(PROGRAMS init/quarantine init/xz DESTINATION lib/vandis-moraine COMPONENT daemon)

install(PROGRAMS init/supervise DESTINATION lib/vandis-moraine
        COMPONENT sysv ${sysv_only_by_name})
install(FILES init/functions DESTINATION lib/vandis-moraine
        COMPONENT sysv ${sysv_only_by_name})
install(CODE [[
    file(INSTALL ${source_dir}/init/S01syslogd-moraine ${source_dir}/init/S90vandis-moraine
         DESTINATION ${root}/etc/init.d PERMISSIONS ${executable})
]] COMPONENT sysv ${sysv_only_by_name})

# The daemon calls the script of syslogd by its path, under systemd too.
install(DIRECTORY packaging/systemd/ DESTINATION lib/systemd/system
        COMPONENT systemd ${systemd_only_by_name} FILES_MATCHING PATTERN *.service
        PATTERN moraine-page* EXCLUDE)
install(CODE [[
    foreach(name IN ITEMS S01syslogd-moraine S90vandis-moraine)
        file(INSTALL ${source_dir}/packaging/systemd/init-script DESTINATION ${root}/etc/init.d
             RENAME ${name} PERMISSIONS ${executable})
    endforeach()
]] COMPONENT systemd ${systemd_only_by_name})

# All headers stand below one folder, so that a program includes <vandis-moraine/rotate/rotate.h>.
# Installed, they include each other by that folder, too: no header of another library can be meant.
foreach(header IN ITEMS
        daemon/moraine.h futils/futils.h logfileutils/log_file_utils.h logging/logging.h
        rotate/rotate.h util/elapsed_time.h util/encode.h util/format.h util/obscure.h
        util/parse.h util/util.h)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${header})
    file(READ ${header} text)
    string(REPLACE "#include \"" "#include \"vandis-moraine/" text "${text}")
    set(installed ${PROJECT_BINARY_DIR}/include/vandis-moraine/${header})
    file(CONFIGURE OUTPUT ${installed} CONTENT "${text}" @ONLY)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${installed} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vandis-moraine/${folder}
            COMPONENT development)
endforeach()

# Code written inside this project includes "rotate/rotate.h". It compiles against the package, too;
# that form is looked up behind all other headers.
target_compile_options(moraine INTERFACE
    "$<INSTALL_INTERFACE:SHELL:-idirafter \"$<INSTALL_PREFIX>/${CMAKE_INSTALL_INCLUDEDIR}/vandis-moraine\">")
install(TARGETS moraine EXPORT vandis-moraine
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vandis-moraine)
install(EXPORT vandis-moraine NAMESPACE vandis-moraine:: FILE vandis-moraine-targets.cmake
        DESTINATION ${package_dir} COMPONENT development)
install(FILES cmake/vandis-moraine-config.cmake DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(vandis-moraine-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vandis-moraine-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

# Relative to the file's own place, so that the package may be moved.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vandis-moraine.pc.in vandis-moraine.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vandis-moraine.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The reading library has a component of its own, because it needs liblzma.
if(MORAINE_COMMAND)
    foreach(header IN ITEMS boots cursor expression format line log names time)
        install(FILES reader/${header}.h DESTINATION
                ${CMAKE_INSTALL_INCLUDEDIR}/vandis-moraine/reader COMPONENT reader)
    endforeach()
    target_compile_options(moraine_reader INTERFACE
        "$<INSTALL_INTERFACE:SHELL:-idirafter \"$<INSTALL_PREFIX>/${CMAKE_INSTALL_INCLUDEDIR}/vandis-moraine\">")
    install(TARGETS moraine_reader EXPORT vandis-moraine-reader
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT reader
            INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT vandis-moraine-reader NAMESPACE vandis-moraine::
            FILE vandis-moraine-reader-targets.cmake
            DESTINATION ${package_dir} COMPONENT reader)
    configure_file(cmake/vandis-moraine-reader.pc.in vandis-moraine-reader.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/vandis-moraine-reader.pc
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT reader)
endif()
