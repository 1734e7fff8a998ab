# What CPack does to the files before it packs them, as debhelper does.
cmake_minimum_required(VERSION 3.25)

# Sets `result` to the path of what the package has as /usr/`file`.
function(packed_file result file)
    file(GLOB found ${CPACK_TEMPORARY_DIRECTORY}/*/usr/${file})
    if(NOT found)
        message(FATAL_ERROR "The package has no /usr/${file}")
    endif()
    set(${result} ${found} PARENT_SCOPE)
endfunction()

foreach(document IN ITEMS share/man/man8/vandis-moraine.8 share/doc/vandis-moraine/changelog)
    packed_file(path ${document})
    execute_process(COMMAND gzip -9 -n ${path} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

packed_file(path sbin/vandis-moraine)
execute_process(
    COMMAND ${CPACK_DEBIAN_STRIP} --strip-unneeded --remove-section=.comment --remove-section=.note
        ${path}
    COMMAND_ERROR_IS_FATAL ANY)
