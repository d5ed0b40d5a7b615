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
