# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/Common.cmake)
set(tree ${work}/embedding)
extract_example(${tree}/example.cpp)
run(ignored ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/embedding -B ${tree} -G ${generator}
    -D CMAKE_CXX_COMPILER=${compiler} ${parts} -D QMX_ROOT=${root} -D EXAMPLE=${tree}/example.cpp)
run(ignored ${CMAKE_COMMAND} --build ${tree})
check_example(${tree}/example)
install_as(static ${tree})
