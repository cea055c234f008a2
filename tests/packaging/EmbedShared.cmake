# SPDX-License-Identifier: MIT
# A program that embeds the shared library builds its modules along, next to wherever the project puts the library and
# under their own names.
include(${CMAKE_CURRENT_LIST_DIR}/Common.cmake)
set(tree ${work}/embedding-shared)
extract_programs(${tree}/programs)
run(ignored ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/embedding -B ${tree} -G Ninja
    -D CMAKE_CXX_COMPILER=${compiler} ${parts} -D BUILD_SHARED_LIBS=ON -D CMAKE_BUILD_TYPE=Debug
    -D CMAKE_DEBUG_POSTFIX=d -D CMAKE_LIBRARY_OUTPUT_DIRECTORY_DEBUG=${tree}/libraries
    -D QMX_ROOT=${root} -D PROGRAMS=${tree}/programs)
run(commands ninja -C ${tree} -t commands divide)
foreach(file libQMXCoreAudiod.so ${modules})
    if(NOT commands MATCHES " -o libraries/${file}")
        message(SEND_ERROR "A program that embeds the library does not build libraries/${file}")
    endif()
endforeach()
