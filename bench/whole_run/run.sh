#!/usr/bin/env bash
# Whole-run throughput of the checker against the usual tools, warm cache:
#   (a) 1 GiB in 1 MiB files, Sha256 checks   vs  openssl dgst -sha256 (target: >= 0.85 of it)
#   (b) 20,000 files of 4 KiB, Sha256 checks  vs  sha256sum -c         (target: faster)
# Usage: bench/whole_run/run.sh [build dir]   (default: build/release, built when missing)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build_dir=${1:-$root/build/release}
checker="$build_dir/product/tool/integrity_check_tool/integrity_checker"
generator="$build_dir/bench/whole_run/whole_run_corpus"

if [[ ! -x $checker || ! -x $generator ]]; then
    if [[ $# -gt 0 ]]; then
        cmake --build "$build_dir" --target integrity_checker whole_run_corpus
    else
        (cd "$root" && cmake --preset release >/dev/null &&
            cmake --build --preset release --target integrity_checker whole_run_corpus)
    fi
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/ict-whole-run.XXXXXX")
trap 'rm -rf "$work"' EXIT

now() { date +%s.%N; }
# seconds <command...>: runs the command (its output discarded), prints the elapsed seconds
# and fails when the command fails.
seconds() {
    local start end
    start=$(now)
    "$@" >/dev/null 2>"$work/stderr" || {
        echo "run.sh: '$*' failed:" >&2
        cat "$work/stderr" >&2
        return 1
    }
    end=$(now)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }'
}
warm() { find "$1/files" -type f -exec cat {} + >/dev/null; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }
# at_least <value> <bound> / above <value> <bound>: exit status of the comparison
at_least() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a >= b) }'; }
above() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a > b) }'; }

echo "Generating corpora in $work ..."
"$generator" "$work/large" 1024 $((1024 * 1024))
"$generator" "$work/small" 20000 4096

echo "(a) 1 GiB in 1024 files of 1 MiB"
warm "$work/large"
large_files=("$work"/large/files/*.bin)
checker_a=$(seconds "$checker" "$work/large/integrity_check.xml")
openssl_a=$(seconds openssl dgst -sha256 "${large_files[@]}")
ratio_a=$(ratio "$openssl_a" "$checker_a")
printf '    checker %.3f s, openssl dgst %.3f s: %s of openssl'"'"'s throughput (target >= 0.85)\n' \
    "$checker_a" "$openssl_a" "$ratio_a"

echo "(b) 20,000 files of 4 KiB"
warm "$work/small"
checker_b=$(seconds "$checker" "$work/small/integrity_check.xml")
sha256sum_b=$(seconds sha256sum -c --quiet "$work/small/sha256sums.txt")
ratio_b=$(ratio "$sha256sum_b" "$checker_b")
printf '    checker %.3f s, sha256sum -c %.3f s: %sx the speed of sha256sum -c (target > 1)\n' \
    "$checker_b" "$sha256sum_b" "$ratio_b"

status=0
if ! at_least "$ratio_a" 0.85; then
    echo "run.sh: (a) below target" >&2
    status=1
fi
if ! above "$ratio_b" 1; then
    echo "run.sh: (b) below target" >&2
    status=1
fi
exit $status
