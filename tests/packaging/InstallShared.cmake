# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/Common.cmake)
install_as(shared ${build})
file(GLOB_RECURSE library ${work}/shared/libQMXCoreAudio.so)
cmake_path(GET library PARENT_PATH folder)
string(REGEX MATCH "^[0-9]+\\.[0-9]+" interface ${version})
foreach(file libQMXCoreAudio.so.${interface} ${modules})
    if(NOT EXISTS ${folder}/${file})
        message(SEND_ERROR "${folder}/${file} is not installed")
    endif()
endforeach()
file(GLOB beside LIST_DIRECTORIES true RELATIVE ${work}/shared/include ${work}/shared/include/*)
if(NOT beside STREQUAL "QMXCoreAudio")
    message(SEND_ERROR "Installed as headers: ${beside}")
endif()

# the documents are there with all that README.md links or names
set(documents ${work}/shared/share/doc/qmxcoreaudio)
file(READ ${documents}/README.md readme)
string(REGEX MATCHALL "docs/[^)]+" pictures "${readme}")
foreach(file LICENSE CHANGELOG.md examples/split.cpp examples/support/Failure.h ${pictures})
    if(NOT EXISTS ${documents}/${file})
        message(SEND_ERROR "${documents}/${file} is not installed")
    endif()
endforeach()

# the installed examples are a project of their own
set(tree ${work}/examples)
file(REMOVE_RECURSE ${tree})
run(ignored ${CMAKE_COMMAND} -S ${documents}/examples -B ${tree} -G Ninja -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_PREFIX_PATH=${work}/shared)
run(ignored ninja -C ${tree} CMakeFiles/example-devices.dir/devices.cpp.o)
