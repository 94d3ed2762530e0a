# What every target of the project has in common. Nothing global is touched.
function(corvane_target target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
    target_compile_options(
        ${target}
        PRIVATE -Wall
                -Wextra
                -Wpedantic
                -Wconversion
                -Wsign-conversion
                -Wshadow
                -Wcast-qual
                -Wold-style-cast
                -Wnon-virtual-dtor
                -Woverloaded-virtual
                $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond;-Wlogical-op;-Wuseless-cast>
                $<$<BOOL:${CORVANE_WARNINGS_AS_ERRORS}>:-Werror>
                # Log records name sources relative to the repository, whatever the build folder.
                -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
endfunction()
