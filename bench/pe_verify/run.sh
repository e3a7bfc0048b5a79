#!/usr/bin/env bash
# Verification time per signed Windows program: the checker (signature-only,
# "vds") next to `osslsigncode verify` on the same files, warm cache.
# Programs: a tiny one (~15 KiB) and a large one (~8 MiB of data), built by
# the MinGW compiler; each signed by osslsigncode (ECDSA, SHA-256) and by
# integrity_signer (GOST R 34.10-2012 with GOST R 34.11-2012 256).
# The checker is timed twice: all copies of a kind in one run (its start-up
# shared), and one run per file (--single_file), as osslsigncode is started
# once per file.
# Usage: bench/pe_verify/run.sh [build dir] [copies]   (default: build/release, 40)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build_dir=${1:-$root/build/release}
copies=${2:-40}
checker="$build_dir/product/tool/integrity_check_tool/integrity_checker"
signer="$build_dir/tools/signer/integrity_signer"
vds="$root/trust/development/private/vds"
for tool in "$checker" "$signer"; do
    [ -x "$tool" ] || { echo "missing $tool (build it first)" >&2; exit 1; }
done
for tool in x86_64-w64-mingw32-gcc osslsigncode; do
    command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed" >&2; exit 0; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat >"$work/gost.cnf" <<'CNF'
openssl_conf = openssl_init
[openssl_init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
default_algorithms = ALL
CNF
export OPENSSL_CONF="$work/gost.cnf"

echo 'int main(void) { return 7; }' >"$work/tiny.c"
cat >"$work/large.c" <<'C'
static const volatile unsigned char blob[8 << 20] = {1, 2, 3};
int main(void) { return blob[12345]; }
C

now() { date +%s.%N; }
per_file() { echo "scale=3; ($2 - $1) * 1000 / $copies" | bc; }

printf '%-6s %-12s %9s %12s %14s %16s\n' program signed-by size "checker ms" "checker 1/run" "osslsigncode ms"
for kind in tiny large; do
    x86_64-w64-mingw32-gcc -O2 -s -o "$work/$kind.exe" "$work/$kind.c"
    for by in osslsigncode ours; do
        dir="$work/$kind-$by"
        mkdir -p "$dir"
        if [ "$by" = osslsigncode ]; then
            osslsigncode sign -certs "$vds/signer-ec.pem" -ac "$vds/signing-ca.pem" \
                -key "$vds/signer-ec.key.pem" -h sha256 -in "$work/$kind.exe" \
                -out "$dir/0.exe" >/dev/null
        else
            cp "$work/$kind.exe" "$dir/0.exe"
            "$signer" vds --cert "$vds/signer.pem" --key "$vds/signer.key.pem" \
                --chain "$vds/signing-ca.pem" "$dir/0.exe" >/dev/null
        fi
        records=""
        for ((i = 1; i < copies; i++)); do cp "$dir/0.exe" "$dir/$i.exe"; done
        for ((i = 0; i < copies; i++)); do
            records+="  <File path=\"$dir/$i.exe\"><Check type=\"Exists\"/></File>"$'\n'
        done
        printf '<Manifest productName="Bench" productVersion="1">\n%s</Manifest>\n' "$records" \
            >"$dir.xml"
        "$checker" --signature-only --signature-type vds "$dir.xml" >/dev/null 2>&1 ||
            { echo "the checker refused $dir" >&2; exit 1; }
        start=$(now)
        "$checker" --signature-only --signature-type vds "$dir.xml" >/dev/null 2>&1
        checker_ms=$(per_file "$start" "$(now)")
        start=$(now)
        for ((i = 0; i < copies; i++)); do
            "$checker" --signature-only --signature-type vds --single_file "$dir/$i.exe" \
                "$dir.xml" >/dev/null 2>&1 || { echo "the checker refused $dir/$i.exe" >&2; exit 1; }
        done
        single_ms=$(per_file "$start" "$(now)")
        start=$(now)
        for ((i = 0; i < copies; i++)); do
            osslsigncode verify -CAfile "$vds/roots/3520p1.pem" -in "$dir/$i.exe" >/dev/null 2>&1 ||
                { echo "osslsigncode refused $dir/$i.exe" >&2; exit 1; }
        done
        ossl_ms=$(per_file "$start" "$(now)")
        printf '%-6s %-12s %9s %12s %14s %16s\n' "$kind" "$by" "$(stat -c %s "$dir/0.exe")" \
            "$checker_ms" "$single_ms" "$ossl_ms"
    done
done
