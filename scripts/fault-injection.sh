#!/usr/bin/env bash
# Fault injection: proves that the test suite catches real faults, so that
# tests can be cut or merged without losing any of them.
#
# For each fault of scripts/faults.txt (or only the ids given), in a scratch
# git worktree of HEAD (never in the tree it is run from): applies the one
# change, rebuilds the `test` preset (ASan + UBSan) incrementally, runs the
# tests that most likely catch it first and then all others (Wine tests left
# out), stops at the first failing test, and restores the file. The results
# table names the catching test of each fault, or NOT CAUGHT.
#
#   bash scripts/fault-injection.sh --results FILE [--timeout SEC] [ID...]
#   bash scripts/fault-injection.sh --check [ID...]         every fault applies to HEAD
#   bash scripts/fault-injection.sh --compare BEFORE AFTER  faults caught before, not after
#
# Run it before and after changing the tests and compare the two tables. It is
# not part of CI or scripts/test.sh: it rebuilds once per fault and takes about
# an hour and a half on two busy cores. Commit first: uncommitted changes are
# not in HEAD. The scratch tree and its build stay in build/fault-injection/
# (ICT_FAULT_WORK moves them), so a second run starts from a built tree.
set -euo pipefail
shopt -u patsub_replacement 2>/dev/null || true  # '&' in a replacement is literal

if [[ -z ${ICT_FAULTS_NICED:-} ]]; then
    export ICT_FAULTS_NICED=1
    exec nice -n 10 bash "$0" "$@"
fi

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
faults_file=$root/scripts/faults.txt
work=${ICT_FAULT_WORK:-$root/build/fault-injection}
results=""
timeout=120
mode=run
selected=()

usage() {
    sed -n '2,/^set -euo/p' "${BASH_SOURCE[0]}" | sed '$d; s/^# \{0,1\}//' >&2
    exit 2
}

# --- the results table -------------------------------------------------------

# One row per fault: "id | component | result | seconds".
row() { printf '%-4s | %-28s | %s | %s\n' "$1" "$2" "$3" "$4"; }

compare() {
    local before=$1 after=$2 id now lost=0
    [[ -f $before && -f $after ]] || { echo "compare: both result files must exist" >&2; exit 2; }
    while IFS= read -r id; do
        if ! grep -q "^$id *| .*| caught by " "$after"; then
            now=$(grep "^$id *|" "$after" | cut -d'|' -f3 | sed 's/^ //; s/ $//' || true)
            echo "$id: caught before, not after: ${now:-not in $after}"
            lost=$((lost + 1))
        fi
    done < <(grep '| caught by ' "$before" | cut -d' ' -f1)
    echo "$lost fault(s) caught in $before are not caught in $after"
    [[ $lost -eq 0 ]]
}

# --- the fault list ----------------------------------------------------------

ids=() components=() files=() finds=() replaces=() testlists=()

load_faults() {
    local line key value n=-1
    while IFS= read -r line || [[ -n $line ]]; do
        [[ -z $line || $line == \#* ]] && continue
        key=${line%%: *}
        value=${line#*: }
        if [[ $key == "$line" ]]; then
            echo "$faults_file: not a \"key: value\" line: $line" >&2
            exit 2
        fi
        if [[ $key == id ]]; then
            n=$((n + 1))
            ids[n]=$value components[n]="" files[n]="" finds[n]="" replaces[n]="" testlists[n]=""
            continue
        fi
        [[ $n -ge 0 ]] || { echo "$faults_file: \"$key\" before the first id" >&2; exit 2; }
        case $key in
            component) components[n]=$value ;;
            file) files[n]=$value ;;
            find) finds[n]=$value ;;
            replace) replaces[n]=$value ;;
            tests) testlists[n]=$value ;;
            effect) ;;
            *) echo "$faults_file: unknown key \"$key\" in ${ids[n]}" >&2; exit 2 ;;
        esac
    done <"$faults_file"
}

# Prints why fault $1 (an index) does not apply to the text on standard
# input, or nothing when its snippet occurs exactly once.
why_not_applicable() {
    local i=$1 text rest count=0
    text=$(cat; printf x)
    text=${text%x}
    if [[ -z ${finds[i]} || -z ${files[i]} ]]; then
        echo "its record has no file or no snippet"
        return
    fi
    rest=$text
    while [[ $rest == *"${finds[i]}"* && $count -lt 2 ]]; do
        rest=${rest#*"${finds[i]}"}
        count=$((count + 1))
    done
    if [[ $count -eq 0 ]]; then
        echo "the snippet is not in ${files[i]}"
    elif [[ $count -gt 1 ]]; then
        echo "the snippet occurs more than once in ${files[i]}"
    fi
}

# Applies fault $1 to the scratch tree; prints why when it can't.
apply_fault() {
    local i=$1 path=$tree/${files[$1]} why text
    if [[ ! -f $path ]]; then
        echo "${files[i]} does not exist"
        return 1
    fi
    why=$(why_not_applicable "$i" <"$path")
    if [[ -n $why ]]; then
        echo "$why"
        return 1
    fi
    text=$(cat "$path"; printf x)
    text=${text%x}
    printf '%s' "${text/"${finds[i]}"/"${replaces[i]}"}" >"$path"
}

# --- tests by program --------------------------------------------------------

declare -A suites_of program_of_suite
programs=()

# The suites of every test program, from the lists CTest runs (suites are
# unique across programs: CTest would refuse two tests of one name).
map_tests() {
    local list program name suite
    while IFS= read -r list; do
        program=$(basename "$list")
        program=${program%\[1\]_tests.cmake}
        programs+=("$program")
        suites_of[$program]=""
        while IFS= read -r name; do
            suite=${name%%.*}
            [[ -n ${program_of_suite[$suite]:-} ]] && continue
            program_of_suite[$suite]=$program
            suites_of[$program]+="${suites_of[$program]:+|}$suite"
        done < <(sed -n 's/^add_test( *\[=\[\([^]]*\)\]=\].*/\1/p' "$list")
    done < <(find "$build/tests" -name '*\[1\]_tests.cmake' | sort)
}

# ctest name regex of the given programs' tests.
regex_of() {
    local program suites=""
    for program in "$@"; do
        [[ -n ${suites_of[$program]:-} ]] && suites+="${suites:+|}${suites_of[$program]}"
    done
    if [[ -n $suites ]]; then
        printf '^(%s)\\.' "$suites"
    fi
}

# Runs one group of tests (ctest arguments), stopping at the first failure.
# On a failure prints "<test> (<program>, <how>)" and returns 1.
run_tests() {
    local log=$1 failed how
    shift
    if ctest --preset test --timeout "$timeout" --stop-on-failure "$@" >>"$log" 2>&1; then
        return 0
    fi
    failed=$(sed -n 's/^[[:space:]]*[0-9]* - \(.*\) (\([^()]*\))$/\1|\2/p' "$log" | tail -n 1)
    if [[ -z $failed ]]; then
        echo "ctest itself failed (see $log)"
        return 1
    fi
    how=${failed##*|}
    failed=${failed%|*}
    echo "$failed (${program_of_suite[${failed%%.*}]:-?}, $how)"
    return 1
}

# --- a fault's run ------------------------------------------------------------

build() { cmake --build --preset test "$@" >>"$log" 2>&1; }

# Result of fault $1 on the applied tree: "caught by ..." or "NOT CAUGHT".
test_fault() {
    local i=$1 program likely=() done_regex="" regex verdict
    for program in ${testlists[i]}; do
        if [[ -z ${suites_of[$program]:-} ]]; then
            echo "warning: ${ids[i]} names unknown test program $program" >&2
            continue
        fi
        likely+=("$program")
    done
    for program in "${likely[@]}"; do
        build --target "$program" || { echo "build fails"; return; }
        regex=$(regex_of "$program")
        if ! verdict=$(run_tests "$log" -R "$regex"); then
            echo "caught by $verdict"
            return
        fi
    done
    build || { echo "build fails"; return; }
    done_regex=$(regex_of "${likely[@]}")
    if ! verdict=$(run_tests "$log" ${done_regex:+-E "$done_regex"}); then
        echo "caught by $verdict"
        return
    fi
    echo "NOT CAUGHT"
}

restore() {
    [[ -n ${applied:-} ]] && git -C "$tree" checkout -q -- "$applied"
    applied=""
}

# --- main ---------------------------------------------------------------------

while [[ $# -gt 0 ]]; do
    case $1 in
        --results) results=$2; shift 2 ;;
        --timeout) timeout=$2; shift 2 ;;
        --faults) faults_file=$2; shift 2 ;;
        --check) mode=check; shift ;;
        --compare) [[ $# -ge 3 ]] || usage; compare "$2" "$3"; exit ;;
        -h | --help) usage ;;
        -*) echo "unknown option $1" >&2; usage ;;
        *) selected+=("$1"); shift ;;
    esac
done

load_faults
# A lookup table, not a pipe into `grep -q`: under pipefail a grep that stops
# reading early fails the writer, and a named fault would be left out unseen.
declare -A wanted=()
for id in "${selected[@]}"; do
    wanted[$id]=1
done
chosen=()
for i in "${!ids[@]}"; do
    if [[ ${#selected[@]} -eq 0 || -n "${wanted[${ids[i]}]:-}" ]]; then
        chosen+=("$i")
        unset "wanted[${ids[i]}]"
    fi
done
if [[ ${#wanted[@]} -gt 0 ]]; then
    echo "no such fault: ${!wanted[*]}" >&2
    exit 2
fi

if [[ $mode == check ]]; then
    bad=0
    for i in "${chosen[@]}"; do
        if git -C "$root" cat-file -e "HEAD:${files[i]}" 2>/dev/null; then
            why=$(git -C "$root" show "HEAD:${files[i]}" | why_not_applicable "$i")
        else
            why="${files[i]} is not in HEAD"
        fi
        if [[ -n $why ]]; then
            echo "fault ${ids[i]} does not apply: $why"
            bad=$((bad + 1))
        fi
    done
    echo "${#chosen[@]} fault(s) checked, $bad do not apply"
    [[ $bad -eq 0 ]]
    exit
fi
[[ -n $results ]] || { echo "--results FILE is needed" >&2; usage; }
mkdir -p "$(dirname "$results")"
results=$(cd "$(dirname "$results")" && pwd)/$(basename "$results")

# The scratch tree: HEAD of the tree this script belongs to.
tree=$work/tree
build=$tree/build/test
head=$(git -C "$root" rev-parse HEAD)
mkdir -p "$work/logs"
if [[ ! -e $tree/.git ]]; then
    git -C "$root" worktree add -q --detach "$tree" "$head"
else
    git -C "$tree" checkout -q --force --detach "$head"
fi
applied=""
trap restore EXIT

# Objects built for any checkout are reused (see scripts/test.sh). Linking
# with lld only shortens the many relinks; it does not change what is built.
export CCACHE_BASEDIR=$tree CCACHE_NOHASHDIR=true CCACHE_IGNOREOPTIONS='-fmacro-prefix-map=*'
link=()
if command -v ld.lld >/dev/null; then
    link=(-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld -DCMAKE_MODULE_LINKER_FLAGS=-fuse-ld=lld)
fi
cd "$tree"
log=$work/logs/baseline.log
: >"$log"
echo "Building HEAD ($head) in $tree ..."
if ! cmake --preset test "${link[@]}" >>"$log" 2>&1 || ! build; then
    echo "the unchanged tree does not build; see $log" >&2
    exit 1
fi
map_tests
echo "${#programs[@]} test programs"

started=$SECONDS
{
    echo "# Fault injection on $head ($(date -u '+%Y-%m-%d %H:%M UTC')), test preset, ctest -LE wine, per-test timeout ${timeout}s"
    row "id" "component" "result" "seconds"
} >"$results"
caught=0 missed=0 broken=0 skipped=0
for i in "${chosen[@]}"; do
    id=${ids[i]}
    fault_started=$SECONDS
    log=$work/logs/$id.log
    : >"$log"
    if ! why=$(apply_fault "$i"); then
        echo "fault $id does not apply: $why" >&2
        verdict="does not apply: $why"
        skipped=$((skipped + 1))
    else
        applied=${files[i]}
        verdict=$(test_fault "$i")
        restore
        case $verdict in
            caught*) caught=$((caught + 1)) ;;
            build*) broken=$((broken + 1)) ;;
            *) missed=$((missed + 1)) ;;
        esac
    fi
    row "$id" "${components[i]}" "$verdict" "$((SECONDS - fault_started))" | tee -a "$results"
done

# A catch only counts when the catching test passes without the fault.
log=$work/logs/recheck.log
: >"$log"
mapfile -t catchers < <(sed -n 's/.*| caught by \([^ ]*\) (.*/\1/p' "$results" | sort -u)
if [[ ${#catchers[@]} -gt 0 ]]; then
    echo "Rechecking the ${#catchers[@]} catching tests on the unchanged tree ..."
    build || { echo "the unchanged tree no longer builds; see $log" >&2; exit 1; }
    names=$(printf '%s\n' "${catchers[@]}" | sed 's/\./\\./g' | paste -sd'|')
    if ! ctest --preset test --timeout "$timeout" -R "^($names)\$" >>"$log" 2>&1; then
        echo "# These catching tests fail without any fault too (see $log):" >>"$results"
        sed -n 's/^[[:space:]]*[0-9]* - \(.*\) (\([^()]*\))$/#   \1 (\2)/p' "$log" | tee -a "$results"
    fi
fi

minutes=$(((SECONDS - started + 59) / 60))
summary="${#chosen[@]} faults: $caught caught, $missed NOT CAUGHT, $broken build fails, $skipped do not apply; $minutes min"
echo "# $summary" >>"$results"
echo "$summary (table: $results)"
[[ $missed -eq 0 && $broken -eq 0 && $skipped -eq 0 ]]
