# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Finds liblzma: the archive if the programs are linked statically. Without it, the command and the
# reading library are left out, so that the daemon still builds where nothing else is there.
if(MORAINE_STATIC)
    set(CMAKE_FIND_LIBRARY_SUFFIXES_before ${CMAKE_FIND_LIBRARY_SUFFIXES})
    set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
endif()
find_package(LibLZMA QUIET)
if(MORAINE_STATIC)
    set(CMAKE_FIND_LIBRARY_SUFFIXES ${CMAKE_FIND_LIBRARY_SUFFIXES_before})
endif()
find_package(Threads REQUIRED)

if(NOT TARGET LibLZMA::LibLZMA)
    message(NOTICE "-- liblzma was not found: the command `moraine` and the reading library are not "
        "built. On Debian, install liblzma-dev. -DMORAINE_COMMAND=OFF silences this.")
    set(MORAINE_COMMAND OFF)
endif()
