# Warning flags for the project's own targets, and the sanitizer switch.
add_library(vyx_warnings INTERFACE)
target_compile_options(vyx_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow
    $<$<BOOL:${VYX_WERROR}>:-Werror>)

if(VYX_SANITIZE)
    string(REPLACE "," ";" _vyx_sanitizers "${VYX_SANITIZE}")
    foreach(_s IN LISTS _vyx_sanitizers)
        add_compile_options(-fsanitize=${_s})
        add_link_options(-fsanitize=${_s})
    endforeach()
    add_compile_options(-fno-omit-frame-pointer -g)
    if("undefined" IN_LIST _vyx_sanitizers)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

# Fuzzing: every target carries libFuzzer's coverage instrumentation; the
# fuzz targets link its driver (tests/fuzz).
if(VYX_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "VYX_FUZZ needs clang (CXX=clang++)")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
