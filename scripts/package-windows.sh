#!/usr/bin/env bash
# Packs the shipped 32-bit Windows programs (windows-x86 preset) with a short
# README into build/windows-x86/integrity_checker-<version>-win32.zip.
# Builds them first when the build tree is missing or out of date.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
build=build/windows-x86

bash scripts/windows-deps.sh i686-w64-mingw32
[[ -f "$build/CMakeCache.txt" ]] || cmake --preset windows-x86 >/dev/null
cmake --build --preset windows-x86

version=$(sed -n 's/^project([^)]*VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[[ -n "$version" ]] || { echo "package-windows: no project version in CMakeLists.txt" >&2; exit 1; }
programs=(
    "$build/product/tool/integrity_check_tool/integrity_checker.exe"
    "$build/tools/manifest/integrity_manifest.exe"
    "$build/tools/signer/integrity_signer.exe"
    "$build/tools/crl_container/integrity_crl_container.exe"
)
for program in "${programs[@]}"; do
    [[ -f "$program" ]] || { echo "package-windows: $program was not built" >&2; exit 1; }
done

name="integrity_checker-$version-win32"
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir "$stage/$name"
cp "${programs[@]}" "$stage/$name/"
sed "s/@VERSION@/$version/" >"$stage/$name/README.txt" <<'TEXT'
integrity_checker @VERSION@ for Windows (32-bit)

integrity_checker.exe        checks an installed product against its manifest:
                             integrity_checker.exe [options] [manifest.xml ...]
                             Without a manifest it reads integrity_check.xml
                             beside the program. --help lists the options;
                             the exit code is 0 when every check passed, 1
                             otherwise.
integrity_manifest.exe       writes, normalises and hashes manifests.
integrity_signer.exe         signs files (dsvm2 and VDS signatures).
integrity_crl_container.exe  packs certificate revocation lists into the
                             storage the checker's --crl option reads.

Each program is a self-contained console program: it needs no DLLs beyond
Windows' own and no OpenSSL installation (the GOST algorithms are built in).
TEXT
# Windows line ends for the README.
sed -i 's/$/\r/' "$stage/$name/README.txt"
rm -f "$root/$build/$name.zip"
(cd "$stage" && zip -q -r -X "$root/$build/$name.zip" "$name")
echo "package-windows: $build/$name.zip"
