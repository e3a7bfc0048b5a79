#!/usr/bin/env bash
# The whole test lane: dependencies, the sanitizer build (`test` preset:
# AddressSanitizer + UndefinedBehaviorSanitizer, warnings as errors), the
# Windows compile check and every test. ICT_WINDOWS_LANE=1 adds the Windows
# lane (scripts/windows-test.sh: both MinGW builds, the suite under Wine); it
# stays opt-in until its suite passes and its fresh build fits the CI budget.
# Exits non-zero when any step fails.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 1

step() { printf '\n=== %s ===\n' "$*"; }

# Compilations are cached across build trees and runs (ccache, when installed):
# paths are hashed relative to the checkout so a fresh clone still hits (the
# macro prefix map only makes __FILE__ relative, which the preprocessed text
# already shows).
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=true CCACHE_IGNOREOPTIONS='-fmacro-prefix-map=*'


step "Dependencies"
bash scripts/install-deps.sh || exit 1

step "Configure (test preset)"
cmake --preset test || exit 1

step "Build"
cmake --build --preset test || exit 1

failed=()

step "Windows compile check"
bash scripts/check-windows.sh || failed+=("windows compile check")

step "Tests"
ctest --preset test || failed+=("tests")

# The parsers of untrusted input (signature blocks, CMS trailers, revocation
# containers, PE layouts, manifests, generation configurations, placeholders)
# are fuzzed for a bounded time with clang's libFuzzer.
step "Fuzz (bounded)"
fuzz_targets=(dsvm_signature_block vds_signature vds_container manifest_reader generation_config
    placeholder_expansion vds_pe_layout)
if cmake --preset fuzz -DICT_FUZZ_SECONDS="${ICT_FUZZ_SECONDS:-20}" >/dev/null &&
    cmake --build --preset fuzz --target "${fuzz_targets[@]}"; then
    ctest --test-dir build/fuzz -R '^fuzz\.' --output-on-failure || failed+=("fuzzing")
else
    failed+=("fuzz build")
fi

step "Windows lane"
if [[ "${ICT_WINDOWS_LANE:-0}" == 1 ]]; then
    bash scripts/windows-test.sh || failed+=("windows lane")
else
    echo "Windows lane not run: set ICT_WINDOWS_LANE=1 (its Wine suite does not pass yet)"
fi

if [[ ${#failed[@]} -ne 0 ]]; then
    printf '\ntest.sh: FAILED: %s\n' "${failed[*]}" >&2
    exit 1
fi
printf '\ntest.sh: all steps passed\n'
