# Shared build settings and small helpers for every target of the tree.

# Warnings apply to our own code only; third-party headers come in as SYSTEM.
add_library(ict_warnings INTERFACE)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(ict_warnings INTERFACE -Wall -Wextra -Wpedantic)
    if(ICT_WERROR)
        target_compile_options(ict_warnings INTERFACE -Werror)
    endif()
endif()

# Throw locations print paths relative to the source root ("action/verify.cpp"
# style), not the build machine's absolute paths.
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    add_compile_options("-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=")
endif()

if(ICT_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

# ict_library(<name> SOURCES <file>... [DEPS <target>...] [INCLUDES <dir>...])
# A static library of exactly the listed sources (relative to the calling
# folder): a file added to a folder joins a target only when it is listed, and
# a listed file that is missing stops the configure step.
function(ict_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;INCLUDES" ${ARGN})
    set(sources)
    foreach(file IN LISTS ARG_SOURCES)
        if(NOT EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${file}")
            message(FATAL_ERROR "${name}: source ${CMAKE_CURRENT_SOURCE_DIR}/${file} does not exist")
        endif()
        list(APPEND sources "${CMAKE_CURRENT_SOURCE_DIR}/${file}")
    endforeach()
    if(NOT sources)
        message(FATAL_ERROR "${name}: no sources")
    endif()
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ict_warnings)
    if(ARG_INCLUDES)
        target_include_directories(${name} PUBLIC ${ARG_INCLUDES})
    endif()
endfunction()
