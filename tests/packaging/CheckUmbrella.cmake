# SPDX-License-Identifier: MIT
# A header of src/ that exports something but is in neither umbrella header would not be found.
file(GLOB_RECURSE headers RELATIVE ${root}/src ${root}/src/*.h)
file(READ ${root}/src/QMXCoreAudio.h objects)
file(READ ${root}/src/qmx.h front)
foreach(header ${headers})
    file(STRINGS ${root}/src/${header} exports REGEX "QMX_EXPORT")
    string(FIND "${objects}${front}" "#include \"${header}\"" found)
    if(exports AND found EQUAL -1)
        message(SEND_ERROR "Neither src/QMXCoreAudio.h nor src/qmx.h includes ${header}, which exports symbols")
    endif()
endforeach()
