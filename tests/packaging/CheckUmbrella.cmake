# SPDX-License-Identifier: MIT
# A header of src/ that exports something but is not in the umbrella header would not be installed.
file(GLOB_RECURSE headers RELATIVE ${root}/src ${root}/src/*.h)
file(READ ${root}/src/QMXCoreAudio.h umbrella)
foreach(header ${headers})
    file(STRINGS ${root}/src/${header} exports REGEX "QMX_EXPORT")
    string(FIND "${umbrella}" "#include \"${header}\"" found)
    if(exports AND found EQUAL -1)
        message(SEND_ERROR "src/QMXCoreAudio.h does not include ${header}, which exports symbols")
    endif()
endforeach()
