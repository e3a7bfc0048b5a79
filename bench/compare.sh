#!/usr/bin/env bash
# The checker against the usual tools, in one run, warm cache:
#   - 20,000 files of 4 KiB, Sha256:  sha256sum -c, hashdeep -a -k, openssl dgst
#   - 1 GiB in 1 MiB files, Sha256:   sha256sum -c, hashdeep -a -k, openssl dgst
#   - 256 MiB in 1 MiB files, GOST:   rhash --gost12-256 -c, openssl dgst
#   - 100,000 manifest entries (NotExists on absent paths): the checker alone
#   - integrity_manifest generate of the GOST tree on one thread and on all
# Expected digests come from sha256sum and rhash, never from our own code.
# Every command runs once per round, the tools taking turns, and the table
# shows median wall and CPU (user + system) seconds of whole processes and
# how many times the checker is faster (other / checker).
#
# Usage: bench/compare.sh [build dir]     (default: build/release, built here)
#   ICT_BENCH_ROUNDS  rounds (default 5)
#   ICT_BENCH_DIR     where the corpora live (default: a temporary folder,
#                     removed at the end; a given folder is kept and reused)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
rounds=${ICT_BENCH_ROUNDS:-5}

bash "$root/bench/install-deps.sh"
if [[ $# -gt 0 ]]; then
    build_dir=$(cd "$1" && pwd)
    cmake --build "$build_dir" --target integrity_checker integrity_manifest >/dev/null
else
    build_dir=$root/build/release
    (cd "$root" && cmake --preset release >/dev/null &&
        cmake --build --preset release --target integrity_checker integrity_manifest >/dev/null)
fi
checker=$build_dir/product/tool/integrity_check_tool/integrity_checker
manifest_tool=$build_dir/tools/manifest/integrity_manifest

if [[ -n ${ICT_BENCH_DIR:-} ]]; then
    work=$ICT_BENCH_DIR
    mkdir -p "$work"
else
    work=$(mktemp -d "${TMPDIR:-/tmp}/ict-compare.XXXXXX")
    trap 'rm -rf "$work"' EXIT
fi

# ---- corpora ---------------------------------------------------------------

# make_files DIR COUNT SIZE: COUNT files of SIZE bytes of distinct,
# incompressible contents, DIR/files/000000.bin and on.
make_files() {
    local dir=$1 count=$2 size=$3
    [[ -f $dir/files.done ]] && return
    rm -rf "$dir" && mkdir -p "$dir/files"
    # The cipher stream ends when head has enough: its broken pipe is expected.
    { openssl enc -aes-128-ctr -nosalt -pbkdf2 -pass "pass:$dir" -in /dev/zero 2>/dev/null || true; } |
        head -c $((count * size)) |
        (cd "$dir/files" && split -b "$size" -a 6 -d --additional-suffix=.bin - '')
    touch "$dir/files.done"
}

# to_manifest TYPE DIR < "hex  path" lines: the checker's manifest, in DIR,
# of those digests, each path relative to %ProductRoot% (DIR).
to_manifest() {
    awk -v type="$1" -v dir="$2" '
        function nibble(c) { return index("0123456789abcdef", c) - 1 }
        function base64(hex,    chars, count, i, bytes, b0, b1, b2, out) {
            chars = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
            hex = tolower(hex)
            count = length(hex) / 2
            for (i = 0; i < count; i++)
                bytes[i] = nibble(substr(hex, 2 * i + 1, 1)) * 16 + nibble(substr(hex, 2 * i + 2, 1))
            out = ""
            for (i = 0; i < count; i += 3) {
                b0 = bytes[i]; b1 = i + 1 < count ? bytes[i + 1] : 0; b2 = i + 2 < count ? bytes[i + 2] : 0
                out = out substr(chars, int(b0 / 4) + 1, 1) substr(chars, (b0 % 4) * 16 + int(b1 / 16) + 1, 1)
                out = out (i + 1 < count ? substr(chars, (b1 % 16) * 4 + int(b2 / 64) + 1, 1) : "=")
                out = out (i + 2 < count ? substr(chars, b2 % 64 + 1, 1) : "=")
            }
            return out
        }
        BEGIN { print "<Manifest productName=\"Benchmark\" productVersion=\"1.0\">" }
        {
            path = substr($2, length(dir) + 2)
            gsub("/", "\\", path)
            printf "  <File path=\"%%ProductRoot%%\\%s\"><Check type=\"%s\" value=\"%s\"/></File>\n",
                   path, type, base64($1)
        }
        END { print "</Manifest>" }'
}

# to_hashdeep SIZE < "hex  path" lines: hashdeep's list of known files.
to_hashdeep() {
    printf '%%%%%%%% HASHDEEP-1.0\n%%%%%%%% size,sha256,filename\n## Made by bench/compare.sh\n##\n'
    awk -v size="$1" '{ print size "," $1 "," $2 }'
}

# sha256_corpus DIR COUNT SIZE
sha256_corpus() {
    local dir=$1
    make_files "$@"
    if [[ ! -f $dir/integrity_check.xml ]]; then
        (cd "$dir" && find "$dir/files" -name '*.bin' | sort | xargs sha256sum >"$dir/sha256.txt")
        to_manifest Sha256 "$dir" <"$dir/sha256.txt" >"$dir/integrity_check.xml"
        to_hashdeep "$3" <"$dir/sha256.txt" >"$dir/hashdeep.txt"
    fi
}

# gost_corpus DIR COUNT SIZE
gost_corpus() {
    local dir=$1
    make_files "$@"
    if [[ ! -f $dir/integrity_check.xml ]]; then
        find "$dir/files" -name '*.bin' | sort | xargs rhash --gost12-256 >"$dir/gost.txt"
        to_manifest Gost2012 "$dir" <"$dir/gost.txt" >"$dir/integrity_check.xml"
        cat >"$dir/generation.xml" <<'XML'
<ManifestGeneration productName="Benchmark" productRoot="files">
  <Directory path="%ProductRoot%" group="true"><Check type="Gost2012"/></Directory>
</ManifestGeneration>
XML
    fi
}

# many_corpus DIR: two manifests of 50,000 NotExists entries each on absent
# paths, written through a placeholder, every tenth for another system.
many_corpus() {
    local dir=$1
    [[ -f $dir/part2.xml ]] && return
    mkdir -p "$dir"
    for part in 1 2; do
        awk -v part="$part" 'BEGIN {
            print "<Manifest productName=\"Benchmark\" productVersion=\"1.0\">"
            print "  <Environment key=\"Absent\" value=\"%ProductRoot%\\absent\"/>"
            for (i = (part - 1) * 50000; i < part * 50000; i++)
                printf "  <File path=\"%%Absent%%\\group%d\\file%d.dll\"%s><Check type=\"NotExists\"/></File>\n",
                       i / 100, i, i % 10 == 0 ? " os=\"Windows\"" : ""
            print "</Manifest>"
        }' >"$dir/part$part.xml"
    done
}

warm() { find "$1" -type f -exec cat {} + >/dev/null; }

echo "compare: corpora in $work"
sha256_corpus "$work/small" 20000 4096
sha256_corpus "$work/large" 1024 $((1024 * 1024))
gost_corpus "$work/gost" 256 $((1024 * 1024))
many_corpus "$work/many"

# ---- runs ------------------------------------------------------------------

declare -A labels=()   # id -> shown name
declare -A commands=() # id -> command line (eval'ed)
order=()

add() {
    labels[$1]=$2
    commands[$1]=$3
    order+=("$1")
}
q() { printf '%q' "$1"; }

s=$work/small l=$work/large g=$work/gost m=$work/many
add small.checker "integrity_checker" "$(q "$checker") $(q "$s/integrity_check.xml")"
add small.sha256sum "sha256sum -c" "sha256sum -c --quiet $(q "$s/sha256.txt")"
add small.hashdeep "hashdeep -a -k" "hashdeep -c sha256 -a -k $(q "$s/hashdeep.txt") -r $(q "$s/files")"
add small.openssl "openssl dgst -sha256" "find $(q "$s/files") -name '*.bin' -exec openssl dgst -sha256 {} +"
add large.checker "integrity_checker" "$(q "$checker") $(q "$l/integrity_check.xml")"
add large.sha256sum "sha256sum -c" "sha256sum -c --quiet $(q "$l/sha256.txt")"
add large.hashdeep "hashdeep -a -k" "hashdeep -c sha256 -a -k $(q "$l/hashdeep.txt") -r $(q "$l/files")"
add large.openssl "openssl dgst -sha256" "openssl dgst -sha256 $(q "$l")/files/*.bin"
add gost.checker "integrity_checker" "$(q "$checker") $(q "$g/integrity_check.xml")"
add gost.rhash "rhash --gost12-256 -c" "rhash --gost12-256 -c $(q "$g/gost.txt")"
add gost.openssl "openssl dgst -md_gost12_256" \
    "openssl dgst -engine gost -md_gost12_256 $(q "$g")/files/*.bin"
add many.checker "integrity_checker" "$(q "$checker") $(q "$m/part1.xml") $(q "$m/part2.xml")"
add generate.one "generate --threads 1" \
    "$(q "$manifest_tool") generate --config $(q "$g/generation.xml") --output $(q "$g/one.xml") --threads 1"
add generate.all "generate (all cores)" \
    "$(q "$manifest_tool") generate --config $(q "$g/generation.xml") --output $(q "$g/all.xml")"

times=$work/times
rm -rf "$times" && mkdir -p "$times"
for dir in "$s" "$l" "$g"; do warm "$dir/files"; done
for round in $(seq 1 "$rounds"); do
    echo "compare: round $round of $rounds"
    for id in "${order[@]}"; do
        if ! /usr/bin/time -f '%e %U %S %M' -o "$times/last" \
            bash -c "${commands[$id]}" >"$times/out" 2>&1; then
            echo "compare: '${labels[$id]}' failed:" >&2
            tail -5 "$times/out" >&2
            exit 1
        fi
        tail -1 "$times/last" >>"$times/$id"
    done
done

# The generated manifests must not depend on the thread count.
strip_time() { sed -E 's/generationDateTime="[^"]*"//' "$1"; }
if ! cmp -s <(strip_time "$g/one.xml") <(strip_time "$g/all.xml"); then
    echo "compare: generate wrote different manifests on one thread and on all" >&2
    exit 1
fi

# median FILE COLUMN-EXPRESSION: the median of an awk expression over lines.
median() {
    awk "{ print $2 }" "$1" | sort -g | awk '{ v[NR] = $1 } END {
        printf "%.3f", NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
wall() { median "$times/$1" '$1'; }
cpu() { median "$times/$1" '$2 + $3'; }
rss() { median "$times/$1" '$4 / 1024'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }'; }

declare -A titles=(
    [small]="20,000 x 4 KiB, Sha256"
    [large]="1 GiB in 1 MiB files, Sha256"
    [gost]="256 MiB in 1 MiB files, Gost2012"
    [many]="100,000 entries, NotExists"
    [generate]="generate, 256 MiB, Gost2012"
)
printf '\n%s rounds, median seconds; ratio = other / checker (higher: checker faster)\n\n' "$rounds"
printf '| %-32s | %-28s | %7s | %7s | %10s | %9s |\n' Corpus Command Wall CPU "Wall ratio" "CPU ratio"
printf '|%s|%s|%s|%s|%s|%s|\n' "$(printf -- '-%.0s' {1..34})" "$(printf -- '-%.0s' {1..30})" \
    "$(printf -- '-%.0s' {1..9})" "$(printf -- '-%.0s' {1..9})" "$(printf -- '-%.0s' {1..12})" \
    "$(printf -- '-%.0s' {1..11})"
for id in "${order[@]}"; do
    corpus=${id%%.*}
    base=$corpus.checker
    [[ $corpus == generate ]] && base=generate.all
    title=""
    [[ $id == "${order[0]}" || ${previous:-} != "$corpus" ]] && title=${titles[$corpus]}
    previous=$corpus
    wall_ratio="" cpu_ratio=""
    if [[ $id != "$base" ]]; then
        wall_ratio="$(ratio "$(wall "$id")" "$(wall "$base")")x"
        cpu_ratio="$(ratio "$(cpu "$id")" "$(cpu "$base")")x"
    fi
    printf '| %-32s | %-28s | %7s | %7s | %10s | %9s |\n' "$title" "${labels[$id]}" \
        "$(wall "$id")" "$(cpu "$id")" "$wall_ratio" "$cpu_ratio"
done

# ---- targets ---------------------------------------------------------------

status=0
target() { # target DESCRIPTION VALUE OPERATOR BOUND
    if awk -v v="$2" -v b="$4" "BEGIN { exit !(v $3 b) }"; then
        printf '  met     %-64s %s (%s %s)\n' "$1" "$2" "$3" "$4"
    else
        printf '  MISSED  %-64s %s (%s %s)\n' "$1" "$2" "$3" "$4"
        status=1
    fi
}
echo
echo "Targets:"
target "small files: CPU ratio to sha256sum -c" "$(ratio "$(cpu small.sha256sum)" "$(cpu small.checker)")" ">=" 1.5
target "small files: wall ratio to sha256sum -c" "$(ratio "$(wall small.sha256sum)" "$(wall small.checker)")" ">=" 1.5
target "small files: wall ratio to hashdeep -a -k" "$(ratio "$(wall small.hashdeep)" "$(wall small.checker)")" ">" 1
target "1 GiB: CPU ratio to openssl dgst -sha256 (earlier: 1.30)" \
    "$(ratio "$(cpu large.openssl)" "$(cpu large.checker)")" ">=" 1.2
target "256 MiB GOST: CPU ratio to rhash --gost12-256 -c (earlier: 1.21)" \
    "$(ratio "$(cpu gost.rhash)" "$(cpu gost.checker)")" ">=" 1.1
target "100,000 entries: wall seconds" "$(wall many.checker)" "<" 1
target "100,000 entries: peak MiB" "$(rss many.checker)" "<" 100
target "generate: wall ratio of one thread to all cores" \
    "$(ratio "$(wall generate.one)" "$(wall generate.all)")" ">=" 1.8
echo "  met     generate: the same manifest on one thread and on all"
echo
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
exit $status
