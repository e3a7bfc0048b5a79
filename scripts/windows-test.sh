#!/usr/bin/env bash
# The Windows lane: the MinGW-w64 dependencies, the 32-bit shipped programs
# (windows-x86) and the 64-bit test build (windows-x64-test), a check of every
# .exe (PE console program importing Windows' own DLLs only), the unit tests
# under wine64 and the end-to-end suite driven from the Linux test build
# (build/test, made first by scripts/test.sh) against the Windows programs.
# The 32-bit programs run the end-to-end suite where Wine can run 32-bit
# programs on this machine; elsewhere that run is skipped with the reason.
# Exits non-zero when any step fails.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 1
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=true CCACHE_IGNOREOPTIONS='-fmacro-prefix-map=*'
host_build=${ICT_HOST_BUILD_DIR:-$root/build/test}

step() { printf '\n=== %s ===\n' "$*"; }
timed() {
    local started=$SECONDS
    "$@"
    local status=$?
    printf '(%s s)\n' "$((SECONDS - started))"
    return $status
}
failed=()

step "Windows dependencies (MinGW-w64)"
timed bash scripts/windows-deps.sh || exit 1

# Windows' own DLLs; a program importing anything else (libstdc++, libgcc,
# winpthread, libcrypto DLLs) would not start on a bare system.
system_dlls='^(kernel32|user32|advapi32|msvcrt|ws2_32|crypt32|bcrypt|version|shell32|ole32|oleaut32|gdi32|ntdll|rpcrt4|secur32|shlwapi|userenv|iphlpapi)\.dll$'

# inspect <build dir> <expected objdump format>
inspect() {
    local dir=$1 format=$2 ok=0 exe
    mapfile -t programs < <(find "$dir/product" "$dir/tools" -name '*.exe' | sort)
    if [[ ${#programs[@]} -lt 4 ]]; then
        echo "windows: expected the four programs in $dir, found ${#programs[@]}" >&2
        return 1
    fi
    for exe in "${programs[@]}"; do
        local headers imports bad
        headers=$(objdump -p "$exe") || return 1
        if ! grep -q "file format $format" <<<"$headers"; then
            echo "windows: $exe is not $format" >&2
            ok=1
        fi
        if ! grep -q 'Subsystem.*(Windows CUI)' <<<"$headers"; then
            echo "windows: $exe is not a console program" >&2
            ok=1
        fi
        imports=$(sed -n 's/^\s*DLL Name: //p' <<<"$headers" | tr 'A-Z' 'a-z' | sort -u)
        bad=$(grep -Ev "$system_dlls" <<<"$imports" || true)
        if [[ -n "$bad" ]]; then
            echo "windows: $exe imports non-system DLLs: $bad" >&2
            ok=1
        fi
        printf '%-60s %9s bytes  imports: %s\n' "${exe#"$root"/}" "$(stat -c %s "$exe")" \
            "$(tr '\n' ' ' <<<"$imports")"
    done
    return $ok
}

step "Build windows-x86 (shipped 32-bit programs)"
if timed cmake --preset windows-x86 >/dev/null && timed cmake --build --preset windows-x86; then
    inspect build/windows-x86 pei-i386 || failed+=("windows-x86 programs")
else
    failed+=("windows-x86 build")
fi

step "Build windows-x64-test"
x64_built=0
if timed cmake --preset windows-x64-test >/dev/null && timed cmake --build --preset windows-x64-test; then
    x64_built=1
    inspect build/windows-x64-test pei-x86-64 || failed+=("windows-x64 programs")
else
    failed+=("windows-x64-test build")
fi

# One fresh Wine prefix for the whole run; the tests seed its registry.
wine_dir=$(mktemp -d)
export WINEPREFIX="$wine_dir/prefix" WINEDEBUG=-all
cleanup() {
    wineserver -k >/dev/null 2>&1 || true
    rm -rf "$wine_dir"
}
trap cleanup EXIT

step "Wine prefix"
if ! timed wineboot --init >/dev/null 2>&1; then
    failed+=("wine prefix")
fi

if [[ $x64_built -eq 1 ]]; then
    step "Unit tests under wine64"
    timed ctest --preset windows-x64-test || failed+=("windows unit tests")

    step "End-to-end tests under Wine (x64 programs)"
    if [[ -x "$host_build/tests/e2e/windows/e2e_windows_tests" ]]; then
        ICT_WINDOWS_BUILD_DIR="$root/build/windows-x64-test" \
            timed ctest --test-dir "$host_build" -L wine --output-on-failure -j2 ||
            failed+=("windows x64 end-to-end tests")
    else
        echo "windows: no Linux test build in $host_build (run scripts/test.sh)" >&2
        failed+=("windows x64 end-to-end tests")
    fi
fi

step "End-to-end tests under Wine (x86 programs)"
x86_checker="$root/build/windows-x86/product/tool/integrity_check_tool/integrity_checker.exe"
if [[ ! -f "$x86_checker" ]]; then
    echo "windows: no 32-bit checker to run" >&2
elif ! probe=$(wine "$x86_checker" --version 2>&1); then
    echo "windows: SKIPPED the 32-bit end-to-end run: this machine's Wine cannot run 32-bit programs"
    echo "windows: (install Wine's 32-bit half: dpkg --add-architecture i386; apt-get install wine32)"
    printf 'windows: wine said: %s\n' "$(head -n 3 <<<"$probe")"
else
    ICT_WINDOWS_BUILD_DIR="$root/build/windows-x86" \
        timed ctest --test-dir "$host_build" -L wine --output-on-failure -j2 ||
        failed+=("windows x86 end-to-end tests")
fi

if [[ ${#failed[@]} -ne 0 ]]; then
    printf '\nwindows-test: FAILED: %s\n' "${failed[*]}" >&2
    exit 1
fi
printf '\nwindows-test: all Windows steps passed\n'
