# SPDX-License-Identifier: MIT
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QMXCoreAudio)
install(TARGETS QMXCoreAudio EXPORT QMXCoreAudioTargets)
function(install_headers layer)
    foreach(header ${ARGN})
        cmake_path(GET header PARENT_PATH folder)
        install(FILES ${layer}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QMXCoreAudio/${folder})
    endforeach()
endfunction()
install_headers(src ${QMX_PUBLIC_SRC_HEADERS} ${QMX_LOOP_HEADERS})
install_headers(platform ${QMX_PUBLIC_PLATFORM_HEADERS})
if(BUILD_SHARED_LIBS)
    foreach(module ${QMX_MODULES})
        install(TARGETS ${module} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${QMX_MODULE_FOLDER})
    endforeach()
endif()
install(EXPORT QMXCoreAudioTargets NAMESPACE QMXCoreAudio:: DESTINATION ${package_dir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QMXCoreAudioConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/QMXCoreAudioConfig.cmake INSTALL_DESTINATION ${package_dir}
                              NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QMXCoreAudioConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QMXCoreAudioConfig.cmake ${PROJECT_BINARY_DIR}/QMXCoreAudioConfigVersion.cmake
        DESTINATION ${package_dir})

# The pkg-config file locates everything relative to itself, so that the installed tree can be moved.
file(RELATIVE_PATH QMX_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH QMX_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH QMX_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
# A program that links the shared library needs nothing else. A static one needs what the library and its modules, which
# it contains, link: listed as libraries, because requirements would bring their compiler flags into programs.
if(NOT BUILD_SHARED_LIBS)
    set(QMX_PC_CFLAGS " -DQMX_STATIC")
    set(linked ${QMX_SOXR_LDFLAGS} -pthread)
    if(QMX_WITH_FFMPEG)
        list(APPEND linked ${QMX_FFMPEG_LDFLAGS})
    endif()
    if(QMX_WITH_PIPEWIRE)
        list(APPEND linked ${QMX_PIPEWIRE_LDFLAGS})
    endif()
    list(TRANSFORM CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES PREPEND -L OUTPUT_VARIABLE system_folders)
    list(REMOVE_ITEM linked ${system_folders})
    list(JOIN linked " " linked)
    set(QMX_PC_PRIVATE "\nLibs.private: ${linked}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/QMXCoreAudio.pc.in ${PROJECT_BINARY_DIR}/QMXCoreAudio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/QMXCoreAudio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The licence, what README.md refers to, and the example programs, which can be built where they are installed.
set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/qmxcoreaudio)
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${documents})
install(DIRECTORY docs examples DESTINATION ${documents})
