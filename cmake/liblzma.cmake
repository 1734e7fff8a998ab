# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Finds liblzma. A system may have the shared library alone: then the command and the log page are
# linked dynamically, even if the daemon is not. Without any, they and the reading library are left
# out, so that the daemon still builds where nothing else is there, unless they were asked for.
if(MORAINE_STATIC)
    set(suffixes ${CMAKE_FIND_LIBRARY_SUFFIXES})
    set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
    find_package(LibLZMA QUIET)
    set(CMAKE_FIND_LIBRARY_SUFFIXES ${suffixes})
endif()
find_package(LibLZMA QUIET)
find_package(Threads REQUIRED)

set(MORAINE_STATIC_COMMAND ${MORAINE_STATIC})
if(MORAINE_STATIC AND LIBLZMA_LIBRARIES AND NOT LIBLZMA_LIBRARIES MATCHES "\\.a$")
    message(NOTICE "-- liblzma.a was not found: `moraine` and the log page use shared libraries.")
    set(MORAINE_STATIC_COMMAND OFF)
endif()

if(NOT TARGET LibLZMA::LibLZMA)
    if(NOT MORAINE_COMMAND STREQUAL AUTO)
        message(FATAL_ERROR "liblzma was not found. On Debian, install liblzma-dev.")
    endif()
    message(NOTICE "-- liblzma was not found: the command `moraine`, the log page and the reading "
        "library are not built. On Debian, install liblzma-dev. -DMORAINE_COMMAND=OFF silences this.")
    set(MORAINE_COMMAND OFF)
endif()
