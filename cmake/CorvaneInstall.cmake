# Install rules and package files. Folders may be relative or absolute.
include(CMakePackageConfigHelpers)

set(CORVANE_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/corvane_monitor")
set(CORVANE_PKGCONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(CORVANE_HEADER_DIR "${CMAKE_INSTALL_INCLUDEDIR}/corvane_monitor")

# A folder as the .pc files name it: below their own place, so that the tree can be moved, unless
# the folder was given as absolute.
function(corvane_pc_folder variable folder)
    if(IS_ABSOLUTE "${folder}")
        set(${variable} "${folder}" PARENT_SCOPE)
    else()
        set(${variable} "\${prefix}/${folder}" PARENT_SCOPE)
    endif()
endfunction()
corvane_pc_folder(CORVANE_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
corvane_pc_folder(CORVANE_PC_HEADER_DIR "${CORVANE_HEADER_DIR}")
if(IS_ABSOLUTE "${CORVANE_PKGCONFIG_DIR}")
    set(CORVANE_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH CORVANE_PC_UP "/${CORVANE_PKGCONFIG_DIR}" "/")
    string(REGEX REPLACE "/$" "" CORVANE_PC_UP "${CORVANE_PC_UP}")
    set(CORVANE_PC_PREFIX "\${pcfiledir}/${CORVANE_PC_UP}")
endif()

function(corvane_install_library target)
    install(
        TARGETS ${target}
        EXPORT ${target}-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        PUBLIC_HEADER DESTINATION ${CORVANE_HEADER_DIR})
    install(
        EXPORT ${target}-targets
        NAMESPACE corvane::
        DESTINATION ${CORVANE_CMAKE_DIR})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${target}.pc.in
                   ${PROJECT_BINARY_DIR}/${target}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${CORVANE_PKGCONFIG_DIR})
endfunction()

# What a library links privately concerns those who link its archive, and nobody else.
if(BUILD_SHARED_LIBS)
    set(CORVANE_PC_HOST_REQUIRES "corvane_monitor\nRequires.private: spdlog")
    set(CORVANE_HOST_PACKAGES "")
else()
    set(CORVANE_PC_HOST_REQUIRES "corvane_monitor spdlog")
    set(CORVANE_HOST_PACKAGES spdlog Threads)
endif()

corvane_install_library(corvane_monitor)
if(CORVANE_BUILD_HOST)
    corvane_install_library(corvane_host)
endif()
if(CORVANE_BUILD_METRICS)
    corvane_install_library(corvane_metrics)
endif()
configure_package_config_file(
    cmake/corvane_monitor-config.cmake.in ${PROJECT_BINARY_DIR}/corvane_monitor-config.cmake
    INSTALL_DESTINATION ${CORVANE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/corvane_monitor-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/corvane_monitor-config.cmake
              ${PROJECT_BINARY_DIR}/corvane_monitor-config-version.cmake
        DESTINATION ${CORVANE_CMAKE_DIR})

set(CORVANE_DATA_DIR "${CMAKE_INSTALL_DATAROOTDIR}/corvane-monitor")
set(CORVANE_DOC_DIR "${CMAKE_INSTALL_DATAROOTDIR}/doc/corvane-monitor")
install(FILES ${PROJECT_SOURCE_DIR}/docs/guide.md DESTINATION ${CORVANE_DOC_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CORVANE_DOC_DIR})

if(CORVANE_BUILD_PROGRAM)
    install(TARGETS corvane-monitor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${PROJECT_SOURCE_DIR}/docs/corvane-monitor.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/outputs.md ${PROJECT_SOURCE_DIR}/docs/fleet.md
            DESTINATION ${CORVANE_DOC_DIR})
    # Rules and dashboards, to be named in a server's configuration.
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/contrib/prometheus ${PROJECT_SOURCE_DIR}/contrib/grafana
            DESTINATION ${CORVANE_DATA_DIR}
            PATTERN tidy EXCLUDE)
    set(CORVANE_FULL_SYSCONFDIR "${CMAKE_INSTALL_SYSCONFDIR}")
    if(NOT IS_ABSOLUTE "${CORVANE_FULL_SYSCONFDIR}")
        string(PREPEND CORVANE_FULL_SYSCONFDIR "${CMAKE_INSTALL_PREFIX}/")
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/contrib/systemd/corvane-monitor.service.in
                   ${PROJECT_BINARY_DIR}/corvane-monitor.service @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/corvane-monitor.service DESTINATION lib/systemd/system)
    install(FILES ${PROJECT_SOURCE_DIR}/contrib/systemd/corvane-monitor.default
            DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/default RENAME corvane-monitor)
endif()
