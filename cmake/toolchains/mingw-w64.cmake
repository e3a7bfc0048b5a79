# Shared part of the MinGW-w64 toolchain files: cross compilers with the posix
# thread model, libraries from the prefix scripts/windows-deps.sh builds, and
# fully static programs (no libgcc, libstdc++ or winpthread DLLs beside them).
# The including file sets ICT_MINGW_TRIPLET first.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 6.1)

set(CMAKE_C_COMPILER ${ICT_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ICT_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${ICT_MINGW_TRIPLET}-windres)

# The dependency prefix: given, or the one windows-deps.sh marked current.
if(NOT ICT_WINDOWS_DEPS_PREFIX)
    if(DEFINED ENV{ICT_WINDOWS_DEPS_PREFIX})
        set(ICT_WINDOWS_DEPS_PREFIX "$ENV{ICT_WINDOWS_DEPS_PREFIX}")
    else()
        if(DEFINED ENV{ICT_CACHE_DIR})
            set(cache_dir "$ENV{ICT_CACHE_DIR}")
        else()
            set(cache_dir /var/cache/integrity_checker)
        endif()
        set(ICT_WINDOWS_DEPS_PREFIX "${cache_dir}/windows-deps/current/${ICT_MINGW_TRIPLET}")
    endif()
endif()
if(NOT EXISTS "${ICT_WINDOWS_DEPS_PREFIX}/.complete")
    message(FATAL_ERROR "No MinGW dependencies in ${ICT_WINDOWS_DEPS_PREFIX}: "
                        "run bash scripts/windows-deps.sh ${ICT_MINGW_TRIPLET}")
endif()
set(ICT_WINDOWS_DEPS_PREFIX "${ICT_WINDOWS_DEPS_PREFIX}" CACHE PATH
    "Prefix with the MinGW builds of the dependencies")
# Try-compile projects see the same prefix.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ICT_WINDOWS_DEPS_PREFIX)

set(CMAKE_FIND_ROOT_PATH /usr/${ICT_MINGW_TRIPLET} "${ICT_WINDOWS_DEPS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_PREFIX_PATH "${ICT_WINDOWS_DEPS_PREFIX}")

set(Boost_USE_STATIC_LIBS ON)
set(OPENSSL_USE_STATIC_LIBS ON)
set(OPENSSL_ROOT_DIR "${ICT_WINDOWS_DEPS_PREFIX}")
set(ZLIB_USE_STATIC_LIBS ON)

# expat is linked statically; its header otherwise declares DLL imports.
set(CMAKE_C_FLAGS_INIT "-DXML_STATIC")
set(CMAKE_CXX_FLAGS_INIT "-DXML_STATIC")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
# Shipped programs carry no symbol tables (a third of their size).
set(CMAKE_EXE_LINKER_FLAGS_RELEASE_INIT "-s")

# Programs of this build run under Wine on the build machine.
find_program(ICT_WINE NAMES wine wine64 wine-stable)
if(ICT_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${ICT_WINE}")
endif()
