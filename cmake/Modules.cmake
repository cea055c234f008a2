# SPDX-License-Identifier: MIT
# A module is a part of the platform that needs a large library. A shared library loads it from its folder
# ${QMX_MODULE_FOLDER} next to itself when it is first needed; a static library contains it.

# Whoever links the library in this build depends on this target, so that the modules are built too.
add_library(qmx_modules INTERFACE)
target_sources(qmx_modules PRIVATE platform/Foundation/Modules.h) # without a source, nothing would depend on it
target_link_libraries(QMXCoreAudio INTERFACE $<BUILD_INTERFACE:qmx_modules>)
set(QMX_MODULES "")

# Adds the module `name` (target qmx_<name>) of the sources that follow, which needs `library`.
function(add_qmx_module name library)
    set(target qmx_${name})
    set(QMX_MODULES ${QMX_MODULES} ${target} PARENT_SCOPE)
    if(BUILD_SHARED_LIBS)
        add_library(${target} MODULE ${ARGN})
        # by its file: linked as a target, the library would depend on its modules, and they on it
        target_link_libraries(${target} PRIVATE $<TARGET_LINKER_FILE:QMXCoreAudio>)
        set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME ${name}
                              LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:QMXCoreAudio>/${QMX_MODULE_FOLDER})
        # an outer project may have other folders and names for libraries of a configuration
        foreach(config ${CMAKE_CONFIGURATION_TYPES} ${CMAKE_BUILD_TYPE})
            string(TOUPPER ${config} config)
            set_target_properties(${target} PROPERTIES ${config}_POSTFIX "" LIBRARY_OUTPUT_DIRECTORY_${config}
                                  $<TARGET_FILE_DIR:QMXCoreAudio>/${QMX_MODULE_FOLDER})
        endforeach()
        add_dependencies(qmx_modules ${target})
    else()
        add_library(${target} OBJECT ${ARGN})
        target_sources(QMXCoreAudio PRIVATE $<TARGET_OBJECTS:${target}>)
        target_link_libraries(QMXCoreAudio PRIVATE ${library})
    endif()
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/platform ${QMX_SEAM})
    target_link_libraries(${target} PRIVATE Threads::Threads ${library})
endfunction()
