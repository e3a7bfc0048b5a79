#!/usr/bin/env bash
# Compiles every Windows platform file of the tree with the 32-bit MinGW-w64
# compiler, syntax only: the Windows code must keep building while we work on
# Linux.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
compiler=${ICT_MINGW_CXX:-i686-w64-mingw32-g++}
if ! command -v "$compiler" >/dev/null; then
    echo "check-windows: $compiler not found (bash scripts/install-deps.sh)" >&2
    exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Boost is header-only for what these files need; the MinGW sysroot has no
# copy of its own, so point at the system one without pulling in the other
# Linux headers.
mkdir -p "$work/include"
ln -s /usr/include/boost "$work/include/boost"
version=$(sed -n 's/^project([^)]*VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
IFS=. read -r major minor patch tweak <<<"$version"
sed -e "s/@ICT_PRODUCT_VERSION@/$version/" \
    -e "s/@PROJECT_VERSION_MAJOR@/${major:-0}/" -e "s/@PROJECT_VERSION_MINOR@/${minor:-0}/" \
    -e "s/@PROJECT_VERSION_PATCH@/${patch:-0}/" -e "s/@PROJECT_VERSION_TWEAK@/${tweak:-0}/" \
    -e "s/@ICT_TRUST_SET_NAME@/development/" \
    "$root/product/tool/integrity_check_tool/source/build_info.h.in" \
    >"$work/include/build_info.h"

includes=(-isystem "$work/include"
          -I "$root/product/tool/integrity_check_tool/source")
for dir in "$root"/component/*/include "$root"/component/*/*/include "$root"/trust/include; do
    [[ -d "$dir" ]] && includes+=(-I "$dir")
done

mapfile -t files < <(find "$root/product" "$root/component" -path '*/platform/windows/*.cpp' \
    -not -path '*/build/*' | sort)
if [[ ${#files[@]} -eq 0 ]]; then
    echo "check-windows: no Windows platform files found" >&2
    exit 1
fi

failed=0
for file in "${files[@]}"; do
    # Each component's own source folder, for its private headers.
    source_dir=${file%%/platform/windows/*}
    if ! "$compiler" -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror \
        -DBOOST_FILESYSTEM_NO_DEPRECATED "${includes[@]}" -I "$source_dir" "$file"; then
        echo "check-windows: FAILED ${file#"$root"/}" >&2
        failed=1
    fi
done

rc_in="$root/product/tool/integrity_check_tool/source/platform/windows/version.rc.in"
windres=${ICT_MINGW_WINDRES:-i686-w64-mingw32-windres}
if [[ -f "$rc_in" ]] && command -v "$windres" >/dev/null; then
    sed -e "s/@ICT_PRODUCT_VERSION@/$version/g" \
        -e "s/@PROJECT_VERSION_MAJOR@/${major:-0}/g" -e "s/@PROJECT_VERSION_MINOR@/${minor:-0}/g" \
        -e "s/@PROJECT_VERSION_PATCH@/${patch:-0}/g" -e "s/@PROJECT_VERSION_TWEAK@/${tweak:-0}/g" \
        "$rc_in" >"$work/version.rc"
    if ! "$windres" "$work/version.rc" -O coff -o "$work/version.o"; then
        echo "check-windows: FAILED ${rc_in#"$root"/}" >&2
        failed=1
    fi
fi

if [[ $failed -ne 0 ]]; then
    exit 1
fi
echo "check-windows: ${#files[@]} Windows files compile"
