# Optional parts of the build. Each has an option CORVANE_BUILD_<PART>:
#   ON    what the part needs must be there
#   AUTO  built when it is there, otherwise left out with a line that says why
#   OFF
# A build of its own takes what it can (AUTO); as a subproject only the monitor is built.
function(corvane_option part text)
    set(default OFF)
    if(PROJECT_IS_TOP_LEVEL)
        set(default AUTO)
    endif()
    set(CORVANE_BUILD_${part} ${default} CACHE STRING "${text} (ON, AUTO or OFF)")
    set_property(CACHE CORVANE_BUILD_${part} PROPERTY STRINGS ON AUTO OFF)
endfunction()

# A part that is asked for brings the part below it.
macro(corvane_brings part below)
    if(CORVANE_BUILD_${part} AND NOT CORVANE_BUILD_${part} STREQUAL "AUTO")
        set(CORVANE_BUILD_${below} ON)
    endif()
endmacro()

# Says that a part lacks something; an error when it was asked for.
function(corvane_lacks part what)
    if(CORVANE_BUILD_${part} STREQUAL "AUTO")
        message(STATUS "CORVANE_BUILD_${part}: left out, ${what} is not there")
    else()
        message(FATAL_ERROR "CORVANE_BUILD_${part} is ON, and ${what} is not there. "
                            "Install it, or build without: -DCORVANE_BUILD_${part}=OFF")
    endif()
endfunction()

# Ends the CMakeLists.txt of a part when the variable says that something it needs was not found.
macro(corvane_need part variable what)
    if(NOT ${variable})
        corvane_lacks(${part} ${what})
        return()
    endif()
endmacro()

# The same with find_package.
macro(corvane_find part package)
    find_package(${package} QUIET ${ARGN})
    corvane_need(${part} ${package}_FOUND ${package})
endmacro()

# The same with pkg-config: gives PkgConfig::<name>.
macro(corvane_find_pc part name module)
    corvane_find(${part} PkgConfig)
    pkg_check_modules(${name} QUIET IMPORTED_TARGET ${module})
    corvane_need(${part} ${name}_FOUND ${module})
endmacro()

# Adds the folder of a part that makes `target` and links `below`; afterwards CORVANE_BUILD_<PART>
# says whether it is built.
macro(corvane_add part folder target below)
    if(CORVANE_BUILD_${part})
        if(TARGET ${below})
            add_subdirectory(${folder})
        else()
            corvane_lacks(${part} ${below})
        endif()
    endif()
    if(NOT TARGET ${target})
        set(CORVANE_BUILD_${part} OFF)
    endif()
endmacro()
