# Third-party dependencies, all from the distribution's packages
# (scripts/install-deps.sh installs them).

find_package(Boost 1.74 REQUIRED COMPONENTS program_options filesystem regex)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)

find_path(TINYXML_INCLUDE_DIR tinyxml.h REQUIRED)
find_library(TINYXML_LIBRARY tinyxml REQUIRED)
add_library(ict_tinyxml INTERFACE)
target_include_directories(ict_tinyxml SYSTEM INTERFACE ${TINYXML_INCLUDE_DIR})
target_link_libraries(ict_tinyxml INTERFACE ${TINYXML_LIBRARY})

# Checks every XML text before TinyXML builds a document from it.
find_package(EXPAT REQUIRED)

add_library(ict_boost INTERFACE)
target_link_libraries(ict_boost INTERFACE Boost::headers Boost::program_options
                      Boost::filesystem Boost::regex)
# Boost.Filesystem v3 paths, no deprecated names. Property tree still includes
# the old bind header; keeping its global placeholders silences its notice.
target_compile_definitions(ict_boost INTERFACE BOOST_FILESYSTEM_NO_DEPRECATED
                           BOOST_BIND_GLOBAL_PLACEHOLDERS)

# The GOST engine: on Linux OpenSSL loads the distribution's engine module at
# run time; on Windows it is linked in (IctWindows.cmake).
add_library(ict_gost_engine INTERFACE)
if(WIN32)
    include(IctWindows)
endif()

if(ICT_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(ICT_BUILD_BENCH)
    find_package(benchmark REQUIRED)
endif()
