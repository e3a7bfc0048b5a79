#!/usr/bin/env bash
# Builds the libraries the Windows programs link, for MinGW-w64, from Debian's
# own source packages of the versions the Linux build uses: Boost 1.74
# (program_options, filesystem, regex and the header-only parts), OpenSSL's
# libcrypto, the GOST engine (as a static library bound at start, no engine
# DLL), TinyXML and expat; GoogleTest from /usr/src/googletest for the test
# triplet. zlib comes from libz-mingw-w64-dev.
#
# Usage: scripts/windows-deps.sh [triplet...]   (default: both triplets)
#
# Each triplet is installed into its own prefix under
#   ${ICT_CACHE_DIR:-/var/cache/integrity_checker}/windows-deps/<key>/<triplet>
# where <key> names the package versions, the compiler and this script; a
# second run with the same key does nothing. <cache>/windows-deps/current
# points at the prefixes the toolchain files use.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${ICT_CACHE_DIR:-/var/cache/integrity_checker}/windows-deps
jobs=${ICT_JOBS:-2}
if [[ $# -gt 0 ]]; then
    triplets=("$@")
else
    triplets=(i686-w64-mingw32 x86_64-w64-mingw32)
fi

log() { printf 'windows-deps: %s\n' "$*"; }
die() {
    printf 'windows-deps: %s\n' "$*" >&2
    exit 1
}

for triplet in "${triplets[@]}"; do
    case "$triplet" in
    i686-w64-mingw32 | x86_64-w64-mingw32) ;;
    *) die "unknown triplet '$triplet' (i686-w64-mingw32 or x86_64-w64-mingw32)" ;;
    esac
done

sudo=()
if [[ $(id -u) -ne 0 ]]; then
    command -v sudo >/dev/null || die "not root and no sudo to install packages"
    sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive

# Tools of the Windows lane (b2 is Debian's build of Boost's own build tool,
# same version as the sources; `wine` puts wine, wineboot and wineserver on the
# PATH; `locales` holds the definitions a test compiles a Russian locale from,
# which gives Wine its code pages). The -posix compilers: the default (win32)
# thread model of MinGW has no std::mutex.
tools=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix libz-mingw-w64-dev
       googletest dpkg-dev perl make cmake ninja-build wine wine64 zip libboost1.74-tools-dev
       locales)
missing=()
for package in "${tools[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [[ "$status" == installed ]] || missing+=("$package")
done
if [[ ${#missing[@]} -ne 0 ]]; then
    log "installing ${missing[*]}"
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The sources follow the Linux build: the source package (and version) of each
# installed development package.
declare -A linux_package=(
    [boost1.74]=libboost1.74-dev
    [openssl]=libssl-dev
    [libengine-gost-openssl]=libengine-gost-openssl
    [tinyxml]=libtinyxml-dev
    [expat]=libexpat1-dev
)
sources=(boost1.74 openssl libengine-gost-openssl tinyxml expat)
declare -A version=()
for source in "${sources[@]}"; do
    v=$(dpkg-query -W -f='${source:Version}' "${linux_package[$source]}" 2>/dev/null || true)
    [[ -n "$v" ]] || die "${linux_package[$source]} is not installed (bash scripts/install-deps.sh)"
    version[$source]=$v
done

# Bump when the way the libraries are built changes: the prefixes are rebuilt.
recipe=1
compiler_version=$(i686-w64-mingw32-g++-posix -dumpfullversion 2>/dev/null || true)
gtest_version=$(dpkg-query -W -f='${Version}' googletest)
key_text="$(for s in "${sources[@]}"; do echo "$s=${version[$s]}"; done)
gcc=$compiler_version googletest=$gtest_version recipe=$recipe"
key=$(printf '%s' "$key_text" | sha256sum | cut -c1-16)
prefix_root="$cache/$key"

todo=()
for triplet in "${triplets[@]}"; do
    [[ -f "$prefix_root/$triplet/.complete" ]] || todo+=("$triplet")
done

link_current() {
    mkdir -p "$cache"
    ln -sfn "$key" "$cache/current.tmp"
    mv -T "$cache/current.tmp" "$cache/current"
}

if [[ ${#todo[@]} -eq 0 ]]; then
    link_current
    exit 0
fi

mkdir -p "$prefix_root"
printf '%s\n' "$key_text" >"$prefix_root/versions.txt"
work="$cache/work-$key"
mkdir -p "$work"

# apt-get source needs deb-src entries; add them beside the deb ones when the
# machine has none.
ensure_deb_src() {
    if apt-cache showsrc tinyxml 2>/dev/null | grep -q '^Package:'; then
        return
    fi
    local list=/etc/apt/sources.list.d/debian.sources
    local added=/etc/apt/sources.list.d/integrity-checker-src.sources
    if [[ -f "$list" ]]; then
        sed 's/^Types: deb$/Types: deb-src/' "$list" | "${sudo[@]}" tee "$added" >/dev/null
    else
        grep -h '^deb ' /etc/apt/sources.list 2>/dev/null | sed 's/^deb /deb-src /' |
            "${sudo[@]}" tee /etc/apt/sources.list.d/integrity-checker-src.list >/dev/null
    fi
    log "added deb-src entries; updating package lists"
    "${sudo[@]}" apt-get update -qq
}

# Unpacks one source package into $work/src/<source> (once per key).
fetch_source() {
    local source=$1 dir="$work/src/$1" dl="$work/dl-$1"
    if [[ -f "$dir/.unpacked" ]]; then
        echo "$dir"
        return
    fi
    ensure_deb_src >&2
    rm -rf "$dir" "$dl"
    mkdir -p "$dl" "$work/src"
    # The exact version of the Linux build when the archive still has it,
    # else the archive's current source of the same package.
    if ! (cd "$dl" && apt-get source -qq --only-source "$source=${version[$source]}") >"$dl.log" 2>&1; then
        if ! ls "$dl"/*.orig.tar.* >/dev/null 2>&1; then
            log "source $source=${version[$source]} not in the archive; taking the current one" >&2
            rm -rf "$dl" && mkdir -p "$dl"
            (cd "$dl" && apt-get source -qq --only-source "$source") >"$dl.log" 2>&1 || true
        fi
    fi
    local unpacked
    unpacked=$(find "$dl" -mindepth 1 -maxdepth 1 -type d | head -n1)
    if [[ -z "$unpacked" ]]; then
        # The mirror may miss the packaging tarball while it has the upstream
        # one; build from the upstream tree then, and say so.
        local orig
        orig=$(ls "$dl"/*.orig.tar.* 2>/dev/null | head -n1)
        [[ -n "$orig" ]] || { cat "$dl.log" >&2; die "apt-get source $source failed"; }
        log "$source: Debian's packaging could not be fetched; using its upstream tarball $(basename "$orig")" >&2
        mkdir -p "$dl/tree"
        tar -xf "$orig" -C "$dl/tree"
        unpacked=$(find "$dl/tree" -mindepth 1 -maxdepth 1 -type d | head -n1)
    fi
    mv "$unpacked" "$dir"
    rm -rf "$dl" "$dl.log"
    touch "$dir/.unpacked"
    echo "$dir"
}

launcher=()
if command -v ccache >/dev/null; then
    launcher=(ccache)
    export CCACHE_BASEDIR="$work" CCACHE_NOHASHDIR=true
fi

build_openssl() {
    local triplet=$1 prefix=$2 src build target
    src=$(fetch_source openssl)
    build="$work/build-$triplet/openssl"
    rm -rf "$build"
    mkdir -p "$build"
    case "$triplet" in
    i686-*) target=mingw ;;
    x86_64-*) target=mingw64 ;;
    esac
    # Only libcrypto is linked; no apps, tests or shared library are built.
    (
        cd "$build"
        CC="${launcher[*]} $triplet-gcc-posix" AR="$triplet-ar" RANLIB="$triplet-ranlib" \
            RC="$triplet-windres" perl "$src/Configure" "$target" no-shared no-module \
            no-tests no-ui-console no-capieng --prefix="$prefix" --libdir=lib \
            --openssldir="$prefix/ssl" >/dev/null
        make -s build_generated >/dev/null 2>"$build/make.log"
        make -s -j"$jobs" libcrypto.a >/dev/null 2>>"$build/make.log"
    )
    mkdir -p "$prefix/include/openssl" "$prefix/lib"
    cp "$src"/include/openssl/*.h "$prefix/include/openssl/"
    cp "$build"/include/openssl/*.h "$prefix/include/openssl/"
    cp "$build/libcrypto.a" "$prefix/lib/"
    rm -rf "$build"
}

# The engine's own CMake builds a loadable module and runs probes that a cross
# build cannot run; the same sources are compiled here into one library that
# the programs bind at start (ENGINE_load_gost), as its library form does.
gost_sources=(gost_ameth gost_pmeth gost_ctl gost_asn1 gost_crypt gost_keywrap gost_md
              gost_md2012 gost_omac gost_omac_acpkm gost_gost2015 gost_params gost_keyexpimp
              gost89 gosthash gosthash2012 gost_grasshopper_core gost_grasshopper_defines
              gost_grasshopper_galois_precompiled gost_grasshopper_precompiled
              gost_grasshopper_cipher gost_ec_keyx gost_ec_sign
              ecp_id_GostR3410_2001_CryptoPro_A_ParamSet ecp_id_GostR3410_2001_CryptoPro_B_ParamSet
              ecp_id_GostR3410_2001_CryptoPro_C_ParamSet ecp_id_GostR3410_2001_TestParamSet
              ecp_id_tc26_gost_3410_2012_256_paramSetA ecp_id_tc26_gost_3410_2012_512_paramSetA
              ecp_id_tc26_gost_3410_2012_512_paramSetB ecp_id_tc26_gost_3410_2012_512_paramSetC
              e_gost_err gost_eng)

build_gost() {
    local triplet=$1 prefix=$2 src build file
    src=$(fetch_source libengine-gost-openssl)
    build="$work/build-$triplet/gost"
    rm -rf "$build"
    mkdir -p "$build"
    for file in "${gost_sources[@]}"; do
        [[ -f "$src/$file.c" ]] || die "GOST engine source $file.c missing in $src"
    done
    # x86 is little-endian and reads unaligned words; the flags are those the
    # engine's own build picks there.
    printf '%s\n' "${gost_sources[@]}" | xargs -P "$jobs" -I{} \
        "${launcher[@]}" "$triplet-gcc-posix" -std=gnu90 -O2 -DL_ENDIAN \
        -DBUILDING_ENGINE_AS_LIBRARY -Wno-deprecated-declarations -I"$prefix/include" \
        -c "$src/{}.c" -o "$build/{}.o"
    mkdir -p "$prefix/lib" "$prefix/include"
    rm -f "$prefix/lib/libgost_engine.a"
    "$triplet-ar" rcs "$prefix/lib/libgost_engine.a" "$build"/*.o
    cp "$src/gost-engine.h" "$prefix/include/"
    rm -rf "$build"
}

toolchain_file() {
    local triplet=$1
    cat <<EOF
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${triplet%%-*})
set(CMAKE_C_COMPILER $triplet-gcc-posix)
set(CMAKE_CXX_COMPILER $triplet-g++-posix)
set(CMAKE_RC_COMPILER $triplet-windres)
set(CMAKE_FIND_ROOT_PATH /usr/$triplet $prefix_root/$triplet)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
EOF
}

build_boost() {
    local triplet=$1 prefix=$2 src build model
    src=$(fetch_source boost1.74)
    build="$work/build-$triplet/boost"
    rm -rf "$build"
    mkdir -p "$build"
    case "$triplet" in
    i686-*) model=32 ;;
    x86_64-*) model=64 ;;
    esac
    cat >"$build/user-config.jam" <<EOF
using gcc : mingw : ${launcher[*]} $triplet-g++-posix : <archiver>$triplet-ar <ranlib>$triplet-ranlib <rc>$triplet-windres ;
EOF
    # b2 would install the ~15000 headers with one process each; copied in
    # one go first (times kept), they are up to date for it.
    mkdir -p "$prefix/include/boost"
    local dir
    for dir in "$src"/libs/*/include/boost "$src"/libs/*/*/include/boost; do
        if [[ -d "$dir" ]]; then cp -a -n "$dir/." "$prefix/include/boost/"; fi
    done
    (
        cd "$src"
        b2 -q -d0 -j"$jobs" --ignore-site-config --user-config="$build/user-config.jam" \
            --build-dir="$build" --prefix="$prefix" --layout=system \
            --with-program_options --with-filesystem --with-regex \
            toolset=gcc-mingw target-os=windows threadapi=win32 architecture=x86 \
            address-model="$model" link=static threading=multi variant=release \
            cxxflags=-std=c++17 install >"$build/b2.log" 2>&1
    ) || {
        tail -n 40 "$build/b2.log" >&2
        die "Boost build for $triplet failed"
    }
    rm -rf "$build"
}

build_tinyxml() {
    local triplet=$1 prefix=$2 src build file
    src=$(fetch_source tinyxml)
    build="$work/build-$triplet/tinyxml"
    rm -rf "$build"
    mkdir -p "$build"
    # Debian's library is built with the STL interface (its header says so).
    for file in tinyxml tinystr tinyxmlerror tinyxmlparser; do
        "${launcher[@]}" "$triplet-g++-posix" -O2 -DTIXML_USE_STL -c "$src/$file.cpp" \
            -o "$build/$file.o"
    done
    mkdir -p "$prefix/lib" "$prefix/include"
    rm -f "$prefix/lib/libtinyxml.a"
    "$triplet-ar" rcs "$prefix/lib/libtinyxml.a" "$build"/*.o
    cp "$src/tinyxml.h" "$src/tinystr.h" "$prefix/include/"
    rm -rf "$build"
}

build_expat() {
    local triplet=$1 prefix=$2 src build
    src=$(fetch_source expat)
    # Debian's tree keeps the library in expat/ below the package root when
    # the upstream repository layout is used.
    [[ -f "$src/CMakeLists.txt" ]] || src="$src/expat"
    build="$work/build-$triplet/expat"
    rm -rf "$build"
    mkdir -p "$build"
    toolchain_file "$triplet" >"$build/toolchain.cmake"
    cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$build/toolchain.cmake" -DCMAKE_INSTALL_PREFIX="$prefix" \
        -DEXPAT_SHARED_LIBS=OFF -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_EXAMPLES=OFF \
        -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_DOCS=OFF -DEXPAT_BUILD_PKGCONFIG=OFF \
        ${launcher:+-DCMAKE_C_COMPILER_LAUNCHER=ccache} >/dev/null
    cmake --build "$build" -j "$jobs" >/dev/null
    cmake --install "$build" >/dev/null
    rm -rf "$build"
}

build_googletest() {
    local triplet=$1 prefix=$2 build
    build="$work/build-$triplet/googletest"
    rm -rf "$build"
    mkdir -p "$build"
    toolchain_file "$triplet" >"$build/toolchain.cmake"
    cmake -S /usr/src/googletest -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$build/toolchain.cmake" -DCMAKE_INSTALL_PREFIX="$prefix" \
        -DBUILD_SHARED_LIBS=OFF -DINSTALL_GTEST=ON -DBUILD_GMOCK=ON \
        ${launcher:+-DCMAKE_CXX_COMPILER_LAUNCHER=ccache} >/dev/null
    cmake --build "$build" -j "$jobs" >/dev/null
    cmake --install "$build" >/dev/null
    rm -rf "$build"
}

# step <triplet> <prefix> <library> <label>: builds one library once; an
# interrupted run resumes at the first library without its stamp.
step() {
    local triplet=$1 prefix=$2 library=$3 label=$4 started=$SECONDS
    [[ -f "$prefix/.done-$library" ]] && return
    log "  $label"
    "build_$library" "$triplet" "$prefix"
    touch "$prefix/.done-$library"
    log "  $label: $((SECONDS - started)) s"
}

for triplet in "${todo[@]}"; do
    prefix="$prefix_root/$triplet"
    mkdir -p "$prefix"
    started=$SECONDS
    log "building for $triplet into $prefix"
    step "$triplet" "$prefix" openssl "OpenSSL ${version[openssl]}"
    step "$triplet" "$prefix" gost "GOST engine ${version[libengine-gost-openssl]}"
    step "$triplet" "$prefix" tinyxml "TinyXML ${version[tinyxml]}"
    step "$triplet" "$prefix" expat "expat ${version[expat]}"
    # The unit tests are built for the test triplet only.
    if [[ "$triplet" == x86_64-w64-mingw32 ]]; then
        step "$triplet" "$prefix" googletest "GoogleTest $gtest_version"
    fi
    step "$triplet" "$prefix" boost "Boost ${version[boost1.74]}"
    touch "$prefix/.complete"
    log "$triplet done in $((SECONDS - started)) s"
done

# The unpacked sources serve the other triplet; they go once both are built.
if [[ -f "$prefix_root/i686-w64-mingw32/.complete" && -f "$prefix_root/x86_64-w64-mingw32/.complete" ]]; then
    rm -rf "$work"
fi
link_current
log "prefixes ready under $cache/current"
