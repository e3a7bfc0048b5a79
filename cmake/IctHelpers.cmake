# Shared build settings and small helpers for every target of the tree.

function(ict_add_optional_subdirectory dir)
    if(EXISTS "${CMAKE_SOURCE_DIR}/${dir}/CMakeLists.txt")
        add_subdirectory("${CMAKE_SOURCE_DIR}/${dir}" "${CMAKE_BINARY_DIR}/${dir}")
    endif()
endfunction()

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

# ict_library(<name> DIRS <dir>... [FILES <file>...] [DEPS <target>...])
# A static library made of every .cpp in the given folders. Folders that are
# still empty give an interface library, so targets can be declared before
# their code lands.
function(ict_library name)
    cmake_parse_arguments(ARG "" "" "DIRS;FILES;DEPS;INCLUDES" ${ARGN})
    set(sources ${ARG_FILES})
    foreach(dir IN LISTS ARG_DIRS)
        file(GLOB found CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp")
        list(APPEND sources ${found})
    endforeach()
    if(sources)
        add_library(${name} STATIC ${sources})
        target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ict_warnings)
        if(ARG_INCLUDES)
            target_include_directories(${name} PUBLIC ${ARG_INCLUDES})
        endif()
    else()
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE ${ARG_DEPS})
        if(ARG_INCLUDES)
            target_include_directories(${name} INTERFACE ${ARG_INCLUDES})
        endif()
    endif()
endfunction()
