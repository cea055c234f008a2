# SPDX-License-Identifier: MIT
# Steps shared by the packaging tests. Each test script is given: root (the source tree), build (the tree under test),
# work (a folder for its products), version, compiler, generator and parts (the options of what is built in).

# Runs a command and ends the test with its output when it fails; `output` receives its standard output.
function(run output)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text ERROR_VARIABLE errors RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}\nended with ${result}:\n${text}${errors}")
    endif()
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

# Installs the build tree at `tree` as work/<linkage>. It is installed elsewhere and moved there, as packagers do.
function(install_as linkage tree)
    file(REMOVE_RECURSE ${work}/stage-${linkage} ${work}/${linkage})
    run(ignored ${CMAKE_COMMAND} --install ${tree} --prefix ${work}/stage-${linkage})
    file(RENAME ${work}/stage-${linkage} ${work}/${linkage})
endfunction()

# Writes the one C++ example of README.md to `file`.
function(extract_example file)
    file(READ ${root}/README.md text)
    string(FIND "${text}" "```cpp\n" begin)
    if(begin EQUAL -1)
        message(FATAL_ERROR "README.md has no C++ example")
    endif()
    math(EXPR begin "${begin} + 7")
    string(SUBSTRING "${text}" ${begin} -1 text)
    string(FIND "${text}" "```" end)
    string(SUBSTRING "${text}" 0 ${end} text)
    file(WRITE ${file} "${text}")
endfunction()

# Runs the example on a recording of two tones of 4 s, each followed by 3 s of silence. The bound lies between the first
# quiet block (20) and the first loud one (35), each of a fifth of a second.
function(check_example program)
    find_program(sox sox)
    if(NOT sox)
        message(FATAL_ERROR "sox is missing; scripts/setup --tests installs it")
    endif()
    run(ignored ${sox} -D -n -r 44100 -b 16 -c 2 ${program}.aiff synth 4 sine 880 vol 0.5 pad 0 3 repeat 1)
    run(output ${program} ${program}.aiff)
    set(expected "0\t238140\tUntitled Track 0\n238140\t617400\tUntitled Track 2\n")
    if(NOT output STREQUAL expected)
        message(FATAL_ERROR "The example printed\n${output}instead of\n${expected}")
    endif()
endfunction()
