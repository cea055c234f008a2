# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/Common.cmake)
set(tree ${work}/embedding)
extract_programs(${tree}/programs)
run(ignored ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/embedding -B ${tree} -G ${generator}
    -D CMAKE_CXX_COMPILER=${compiler} ${parts} -D QMX_ROOT=${root} -D PROGRAMS=${tree}/programs)
run(ignored ${CMAKE_COMMAND} --build ${tree})
check_programs(${tree})
install_as(static ${tree})
