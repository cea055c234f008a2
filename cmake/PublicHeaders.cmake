# SPDX-License-Identifier: MIT
# QMX_PUBLIC_HEADERS: what is installed. Of src/ that is the umbrella header and all it includes; of platform/ the services'
# own headers, not those of the folders behind them.
set(umbrella ${PROJECT_SOURCE_DIR}/src/QMXCoreAudio.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${umbrella})
file(STRINGS ${umbrella} included REGEX "^#include \"")
list(TRANSFORM included REPLACE "^#include \"(.*)\".*" "\\1")

set(QMX_PUBLIC_HEADERS ${umbrella})
foreach(header ${included})
    if(EXISTS ${PROJECT_SOURCE_DIR}/src/${header})
        list(APPEND QMX_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/src/${header})
    endif()
endforeach()
file(GLOB platform_headers CONFIGURE_DEPENDS platform/*/*.h)
list(APPEND QMX_PUBLIC_HEADERS ${platform_headers})

# <QMXCoreAudio/QMXCoreAudio.h> also works for a project that takes the library as a subdirectory.
set(QMX_FORWARDING_INCLUDES ${PROJECT_BINARY_DIR}/include)
file(CONFIGURE OUTPUT ${QMX_FORWARDING_INCLUDES}/QMXCoreAudio/QMXCoreAudio.h
     CONTENT "#pragma once\n#include \"@PROJECT_SOURCE_DIR@/src/QMXCoreAudio.h\"\n" @ONLY)
