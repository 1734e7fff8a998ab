# What `cmake --install` puts in place: the daemon with its init scripts, and the library as a CMake
# and a pkg-config package.
include(CMakePackageConfigHelpers)

install(TARGETS vandis-moraine RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)

# The prefix /usr (of a device, or of a folder that becomes one) has its /etc beside it, another
# prefix has it below; the prefix is known only when it is installed.
install(CODE "set(source_dir [[${PROJECT_SOURCE_DIR}]])" COMPONENT daemon)
install(CODE [[
    string(REGEX REPLACE "/usr/?$" "" etc "${CMAKE_INSTALL_PREFIX}")
    file(INSTALL ${source_dir}/init/S01syslogd-moraine ${source_dir}/init/S90vandis-moraine
         DESTINATION ${etc}/etc/init.d USE_SOURCE_PERMISSIONS)
    file(INSTALL ${source_dir}/init/default/syslogd-moraine ${source_dir}/init/default/vandis-moraine
         DESTINATION ${etc}/etc/default)
]] COMPONENT daemon)

# All headers stand below one folder, so that a program includes <vandis-moraine/rotate/rotate.h>
# and no header of another library can be meant.
foreach(header IN ITEMS
        daemon/moraine.h futils/futils.h logfileutils/log_file_utils.h logging/logging.h
        rotate/rotate.h util/elapsed_time.h util/encode.h util/format.h util/parse.h util/util.h)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vandis-moraine/${folder}
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
install(EXPORT vandis-moraine NAMESPACE vandis-moraine:: FILE vandis-moraine-config.cmake
        DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(vandis-moraine-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vandis-moraine-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

# Relative to the file's own place, so that the package may be moved.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vandis-moraine.pc.in vandis-moraine.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vandis-moraine.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
