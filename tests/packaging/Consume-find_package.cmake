# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/Common.cmake)
set(tree ${work}/${linkage}-consumer)
file(REMOVE_RECURSE ${tree})
extract_programs(${tree}/programs)
run(ignored ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${tree} -G ${generator}
    -D CMAKE_CXX_COMPILER=${compiler} -D CMAKE_PREFIX_PATH=${work}/${linkage} -D PROGRAMS=${tree}/programs)
run(ignored ${CMAKE_COMMAND} --build ${tree})
check_programs(${tree})
run(output ${tree}/version)
if(NOT output STREQUAL "${version}\n")
    message(FATAL_ERROR "The library calls itself ${output} instead of ${version}")
endif()
