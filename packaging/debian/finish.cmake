# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# What CPack does to the files before it packs them, as debhelper does.
cmake_minimum_required(VERSION 3.25)


set(epoch $ENV{SOURCE_DATE_EPOCH})
file(GLOB groups LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(group IN LISTS groups)
    file(GLOB documents ${group}/usr/share/man/man?/* ${group}/usr/share/doc/*/changelog)
    foreach(document IN LISTS documents)
        execute_process(COMMAND gzip -9 -n ${document} COMMAND_ERROR_IS_FATAL ANY)
    endforeach()

    file(GLOB programs ${group}/usr/bin/* ${group}/usr/sbin/* ${group}/usr/share/*/www/cgi-bin/*)
    foreach(program IN LISTS programs)
        execute_process(
            COMMAND ${CPACK_DEBIAN_STRIP} --strip-unneeded --remove-section=.comment
                --remove-section=.note ${program}
            COMMAND_ERROR_IS_FATAL ANY)
    endforeach()

    # What the compiler that built it knows of it for link-time optimization, another cannot read.
    file(GLOB_RECURSE libraries ${group}/usr/lib/*.a)
    foreach(library IN LISTS libraries)
        execute_process(
            COMMAND ${CPACK_DEBIAN_STRIP} --strip-debug --enable-deterministic-archives
                --remove-section=.comment --remove-section=.note
                --remove-section=.gnu.lto_* --remove-section=.gnu.debuglto_*
                --strip-symbol=__gnu_lto_v1 --strip-symbol=__gnu_lto_slim ${library}
            COMMAND_ERROR_IS_FATAL ANY)
    endforeach()

    # The same bytes whenever and wherever it is built.
    if(epoch)
        execute_process(COMMAND find ${group} -exec touch --no-dereference --date=@${epoch} {} +
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
