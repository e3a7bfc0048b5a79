# Windows (MinGW-w64) builds link every dependency statically from the prefix
# scripts/windows-deps.sh builds; this adds what those static libraries need
# and the GOST engine, which is linked into each program instead of being
# loaded from an engine DLL.

# libcrypto's own system imports (sockets, certificate store, random source).
set_property(TARGET OpenSSL::Crypto APPEND PROPERTY INTERFACE_LINK_LIBRARIES
             ws2_32 crypt32 bcrypt advapi32 user32)

# The library was built with its STL interface; say so whatever the header says.
target_compile_definitions(ict_tinyxml INTERFACE TIXML_USE_STL)

# An imported static library, so CMake orders libcrypto after it on every
# link line (a plain path may end up before the libcrypto it needs).
find_library(ICT_GOST_ENGINE_LIBRARY gost_engine REQUIRED)
add_library(ict_gost_engine_static STATIC IMPORTED)
set_target_properties(ict_gost_engine_static PROPERTIES IMPORTED_LOCATION ${ICT_GOST_ENGINE_LIBRARY}
                                                        INTERFACE_LINK_LIBRARIES OpenSSL::Crypto)
target_link_libraries(ict_gost_engine INTERFACE ict_gost_engine_static)
target_compile_definitions(ict_gost_engine INTERFACE ICT_GOST_ENGINE_LINKED)

# Boost.Filesystem's random file names come from the CNG random source.
set_property(TARGET Boost::filesystem APPEND PROPERTY INTERFACE_LINK_LIBRARIES bcrypt)
