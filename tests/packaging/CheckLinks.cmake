# SPDX-License-Identifier: MIT
# A program that links the library loads only libraries that a closed program may link. The licence of each is the one
# of its Debian package.
set(libraries
    soxr         # LGPL-2.1+
    gomp         # GPL-3+ with the runtime library exception
    gcc_s        # GPL-3+ with the runtime library exception
    stdc\\+\\+   # GPL-3+ with the runtime library exception
    c            # LGPL-2.1+
    m            # LGPL-2.1+
    ld-linux[-x0-9_a-z]*) # LGPL-2.1+
list(JOIN libraries "|" names)
set(CMAKE_GET_RUNTIME_DEPENDENCIES_PLATFORM linux+elf)
file(GET_RUNTIME_DEPENDENCIES LIBRARIES ${library} RESOLVED_DEPENDENCIES_VAR loaded
     UNRESOLVED_DEPENDENCIES_VAR missing)
if(NOT loaded MATCHES "libsoxr")
    message(SEND_ERROR "${library} seems to load only ${loaded}")
endif()
foreach(path ${loaded} ${missing})
    cmake_path(GET path FILENAME file)
    if(NOT file MATCHES "^(lib)?(${names})\\.so")
        message(SEND_ERROR "${library} loads ${path}; tests/packaging/CheckLinks.cmake does not know its licence")
    endif()
endforeach()
