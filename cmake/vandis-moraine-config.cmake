# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# The targets of the package: vandis-moraine::moraine, and vandis-moraine::reader if it was installed
# and liblzma is there. find_package(vandis-moraine COMPONENTS reader) insists on that.
include(${CMAKE_CURRENT_LIST_DIR}/vandis-moraine-targets.cmake)

set(vandis-moraine_reader_FOUND FALSE)
if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/vandis-moraine-reader-targets.cmake)
    find_package(LibLZMA QUIET)
    find_package(Threads QUIET)
    if(TARGET LibLZMA::LibLZMA AND TARGET Threads::Threads)
        include(${CMAKE_CURRENT_LIST_DIR}/vandis-moraine-reader-targets.cmake)
        set(vandis-moraine_reader_FOUND TRUE)
    endif()
endif()

foreach(component IN LISTS vandis-moraine_FIND_COMPONENTS)
    if(vandis-moraine_FIND_REQUIRED_${component} AND NOT vandis-moraine_${component}_FOUND)
        set(vandis-moraine_FOUND FALSE)
        set(vandis-moraine_NOT_FOUND_MESSAGE
            "The component ${component} is not installed, or liblzma is missing.")
    endif()
endforeach()
