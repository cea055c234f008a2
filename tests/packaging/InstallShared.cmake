# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/Common.cmake)
install_as(shared ${build})
