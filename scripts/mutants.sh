#!/usr/bin/env bash
# Plants the small faults listed in scripts/mutants.txt, one at a time, in a copy of the source tree, rebuilds, runs
# the test suite and reports for each fault whether a test caught it.
#
#   scripts/mutants.sh [--tree DIR] [--work DIR] [--faults FILE] [--list | --check | --build-only] [ID...]
#
#   --tree DIR     the source tree to copy (default: the checkout this script is in); it is never modified
#   --work DIR     where the copy (DIR/tree), its build (DIR/build) and the results (DIR/results.txt) go
#                  (default: build/mutants in the checkout this script is in)
#   --faults FILE  the list of faults (default: mutants.txt beside this script)
#   --list         prints the faults and stops
#   --check        only checks that each fault's file and text are found, without building anything
#   --build-only   plants and compiles each fault without running the tests (finds entries that do not compile)
#   ID...          runs only these faults; shell patterns such as 'theme-*' select several
#
# The copy is configured once as a Debug build with the tests, without the benchmarks and without -Werror, and built
# once. The unmodified suite then runs once to show that it passes and to learn how long each test takes (CTest's
# cost data); it is run again only when the copied tree has changed. For each fault the file is changed in the copy,
# the build brings only what depends on it up to date, and the tests run from the cheapest on: those under two
# seconds together (ctest -j2 --stop-on-failure), then the others, two at a time, stopping at the first failure. A
# test that fails or times out catches the fault once it fails again when run alone; one that then passes is named
# in the result line as having failed once, and the run goes on without it (a timing-sensitive test can fail on a
# busy machine). The file is then put back exactly as it was.
#
# Each fault ends as "caught" (by the test named), "missed", "NOT APPLICABLE" (its file or text was not found exactly
# once: the entry needs updating) or "BUILD FAILED" (the entry does not compile: it needs fixing). DIR/results.txt
# keeps the latest result of every fault, also across runs of a few ids.
set -eEuo pipefail
shopt -u patsub_replacement 2>/dev/null || true
trap 'echo "mutants.sh: stopped by a failed command at line $LINENO" >&2' ERR

script_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(cd "$script_dir/.." && pwd)
tree=$repo
work=$repo/build/mutants
faults_file=$script_dir/mutants.txt
mode=run
selected=()

usage()
{
    sed -n '2,/^set -/p' "${BASH_SOURCE[0]}" | sed '$d' | sed 's/^# \{0,1\}//'
}

while (($# > 0)); do
    case $1 in
        --tree) tree=${2:?--tree needs a directory}; shift 2 ;;
        --tree=*) tree=${1#--tree=}; shift ;;
        --work) work=${2:?--work needs a directory}; shift 2 ;;
        --work=*) work=${1#--work=}; shift ;;
        --faults) faults_file=${2:?--faults needs a file}; shift 2 ;;
        --faults=*) faults_file=${1#--faults=}; shift ;;
        --list) mode=list; shift ;;
        --check) mode=check; shift ;;
        --build-only) mode="build-only"; shift ;;
        -h | --help) usage; exit 0 ;;
        -*) echo "mutants.sh: unknown option $1" >&2; exit 2 ;;
        *) selected+=("$1"); shift ;;
    esac
done

[[ -d $tree/src && -f $tree/CMakeLists.txt ]] || { echo "mutants.sh: $tree is not an Ordalis source tree" >&2; exit 2; }
[[ -f $faults_file ]] || { echo "mutants.sh: no fault list at $faults_file" >&2; exit 2; }
tree=$(cd "$tree" && pwd)
work=$(realpath -m "$work")
if [[ $work/ == "$tree"/* && $work/ != "$tree"/build/* ]]; then
    echo "mutants.sh: the work directory must lie outside $tree or in its build folder" >&2
    exit 2
fi
mkdir -p "$work"
copy=$work/tree
build=$work/build
logs=$work/logs
stored=$work/results.d
results=$work/results.txt

# --- The fault list ------------------------------------------------------------------------------------------------

ids=() files=() descriptions=() originals=() replacements=()

fail_list()
{
    echo "mutants.sh: $faults_file:$1: $2" >&2
    exit 2
}

read_faults()
{
    local line number=0 current=-1 text
    while IFS= read -r line || [[ -n $line ]]; do
        number=$((number + 1))
        line=${line%$'\r'}
        case $line in
            '' | '#'*) continue ;;
            '['*']'*)
                [[ $line =~ ^\[([A-Za-z0-9._-]+)\][[:space:]]+([^[:space:]]+)[[:space:]]*$ ]] \
                    || fail_list $number "expected \"[id] file\""
                local id=${BASH_REMATCH[1]} existing
                for existing in "${ids[@]}"; do
                    [[ $existing != "$id" ]] || fail_list $number "the id $id is used twice"
                done
                current=${#ids[@]}
                ids+=("$id")
                files+=("${BASH_REMATCH[2]}")
                descriptions+=("")
                originals+=("")
                replacements+=("")
                declare -g "has_original_$current=0" "has_replacement_$current=0"
                ;;
            ': '* | '- '* | '-' | '+ '* | '+')
                ((current >= 0)) || fail_list $number "a line outside of any fault"
                text=${line:2}
                case ${line:0:1} in
                    :) descriptions[current]=$text ;;
                    -)
                        local has=has_original_$current
                        if ((${!has})); then originals[current]+=$'\n'$text; else originals[current]=$text; fi
                        declare -g "$has=1"
                        ;;
                    +)
                        local has=has_replacement_$current
                        if ((${!has})); then replacements[current]+=$'\n'$text; else replacements[current]=$text; fi
                        declare -g "$has=1"
                        ;;
                esac
                ;;
            *) fail_list $number "cannot read this line" ;;
        esac
    done <"$faults_file"
    local i has_o has_r
    for i in "${!ids[@]}"; do
        has_o=has_original_$i has_r=has_replacement_$i
        [[ ${!has_o} == 1 && -n ${originals[i]} ]] || { echo "mutants.sh: ${ids[i]} has no original text" >&2; exit 2; }
        [[ ${!has_r} == 1 ]] || { echo "mutants.sh: ${ids[i]} has no replacement" >&2; exit 2; }
        [[ ${originals[i]} != "${replacements[i]}" ]] || { echo "mutants.sh: ${ids[i]} changes nothing" >&2; exit 2; }
        [[ -n ${descriptions[i]} ]] || { echo "mutants.sh: ${ids[i]} has no description" >&2; exit 2; }
    done
}

read_faults

# The faults to run, in the list's order.
chosen=()
if ((${#selected[@]} == 0)); then
    chosen=("${!ids[@]}")
else
    for pattern in "${selected[@]}"; do
        matched=0
        for i in "${!ids[@]}"; do
            # shellcheck disable=SC2053 # a pattern on purpose
            if [[ ${ids[i]} == $pattern ]]; then
                matched=1
                [[ " ${chosen[*]} " == *" $i "* ]] || chosen+=("$i")
            fi
        done
        ((matched)) || { echo "mutants.sh: no fault is named $pattern" >&2; exit 2; }
    done
    mapfile -t chosen < <(printf '%s\n' "${chosen[@]}" | sort -n)
fi

if [[ $mode == list ]]; then
    for i in "${chosen[@]}"; do
        printf '%-12s %-28s %s\n' "${ids[i]}" "${files[i]}" "${descriptions[i]}"
    done
    echo "${#chosen[@]} faults"
    exit 0
fi

# --- The copy --------------------------------------------------------------------------------------------------------

# Brings the copy up to date with the tree. Only files whose contents differ are written (and so get a new time,
# which the build notices); build output and version control are left out.
sync_copy()
{
    mkdir -p "$copy"
    local relative
    while IFS= read -r -d '' relative; do
        if [[ -L $tree/$relative ]]; then
            if [[ ! -L $copy/$relative || $(readlink "$tree/$relative") != "$(readlink "$copy/$relative")" ]]; then
                mkdir -p "$(dirname "$copy/$relative")"
                rm -rf "${copy:?}/$relative"
                cp -P "$tree/$relative" "$copy/$relative"
            fi
        elif ! cmp -s "$tree/$relative" "$copy/$relative"; then
            mkdir -p "$(dirname "$copy/$relative")"
            rm -f "$copy/$relative"
            cp "$tree/$relative" "$copy/$relative"
        fi
    done < <(cd "$tree" && find . \( -path ./build -o -path ./.git \) -prune -o \( -type f -o -type l \) -printf '%P\0')
    while IFS= read -r -d '' relative; do
        [[ -e $tree/$relative || -L $tree/$relative ]] || rm -f "${copy:?}/$relative"
    done < <(cd "$copy" && find . \( -type f -o -type l \) -printf '%P\0')
    find "$copy" -mindepth 1 -type d -empty -delete
}

tree_fingerprint()
{
    {
        (cd "$copy" && find . -type f -print0 | LC_ALL=C sort -z | xargs -0 -r sha1sum)
        (cd "$copy" && find . -type l -printf '%p -> %l\n' | LC_ALL=C sort)
    } | sha1sum | cut -d' ' -f1
}

# --- Planting and removing a fault ---------------------------------------------------------------------------------

planted_file=""
planted_backup=$work/planted.orig
reason=""

# Plants fault $1 in the copy; on failure says why in $reason.
plant()
{
    local i=$1 LC_ALL=C
    local name=${files[i]} found=() path
    while IFS= read -r -d '' path; do
        found+=("$path")
    done < <(find "$copy/src" -type f -name "${name##*/}" -print0)
    if [[ $name == */* ]]; then
        local kept=()
        for path in "${found[@]}"; do
            [[ $path == */"$name" ]] && kept+=("$path")
        done
        found=("${kept[@]}")
    fi
    if ((${#found[@]} != 1)); then
        reason="$name: found ${#found[@]} times under src/"
        return 1
    fi
    path=${found[0]}
    local content original=${originals[i]}
    content=$(cat -- "$path" && printf x)
    content=${content%x}
    local after=${content#*"$original"}
    if [[ $after == "$content" ]]; then
        reason="$name: the original text is not in ${path#"$copy"/}"
        return 1
    fi
    if [[ $after == *"$original"* ]]; then
        reason="$name: the original text occurs more than once in ${path#"$copy"/}"
        return 1
    fi
    cp -p -- "$path" "$planted_backup"
    planted_file=$path
    printf '%s' "${content/"$original"/"${replacements[i]}"}" >"$path"
}

# Puts the planted file back as it was (with a new time, so that the build compiles it again).
unplant()
{
    [[ -n $planted_file ]] || return 0
    cat -- "$planted_backup" >"$planted_file"
    if ! cmp -s "$planted_backup" "$planted_file"; then
        echo "mutants.sh: could not restore $planted_file (the original is kept in $planted_backup)" >&2
        exit 1
    fi
    rm -f "$planted_backup"
    planted_file=""
}

runtime=""
cleanup()
{
    unplant
    [[ -z $runtime ]] || rm -rf "$runtime"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# --- Checking the list without building ----------------------------------------------------------------------------

sync_copy
if [[ -f $planted_backup ]]; then
    # Left by a run that was killed; the copy was made whole again just above.
    rm -f "$planted_backup"
fi

if [[ $mode == check ]]; then
    bad=0
    for i in "${chosen[@]}"; do
        if plant "$i"; then
            unplant
            printf '%-12s ok\n' "${ids[i]}"
        else
            printf '%-12s NOT APPLICABLE  %s\n' "${ids[i]}" "$reason"
            bad=$((bad + 1))
        fi
    done
    echo "$((${#chosen[@]} - bad)) of ${#chosen[@]} faults apply"
    exit $((bad == 0 ? 0 : 1))
fi

# --- The build -------------------------------------------------------------------------------------------------------

export CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/ccache}
export CCACHE_BASEDIR=$copy
mkdir -p "$logs" "$stored"

configure_args=(-S "$copy" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DORDALIS_BUILD_TESTS=ON -DORDALIS_BUILD_BENCH=OFF
    -DORDALIS_WERROR=OFF -DORDALIS_SANITIZE= -DORDALIS_FUZZ=OFF
    # No debug information: nothing here is debugged, and every fault relinks most test programs.
    "-DCMAKE_CXX_FLAGS_DEBUG=-O0")
if [[ ! -f $build/CMakeCache.txt ]] && command -v ninja >/dev/null; then
    configure_args+=(-G Ninja)
fi
# A faster linker, where the compiler can use one.
probe=$(mktemp -d)
for linker in lld gold; do
    if echo 'int main() { return 0; }' | "${CXX:-c++}" -x c++ - -fuse-ld=$linker -o "$probe/a.out" 2>/dev/null; then
        configure_args+=("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=$linker")
        break
    fi
done
rm -rf "$probe"

echo "Configuring $build (a copy of $tree)"
if ! cmake "${configure_args[@]}" >"$logs/configure.log" 2>&1; then
    tail -n 30 "$logs/configure.log" >&2
    echo "mutants.sh: the copy does not configure (see $logs/configure.log)" >&2
    exit 1
fi
echo "Building"
if ! cmake --build "$build" -j2 >"$logs/build.log" 2>&1; then
    tail -n 40 "$logs/build.log" >&2
    echo "mutants.sh: the unmodified copy does not build (see $logs/build.log)" >&2
    exit 1
fi

# --- Running the tests ---------------------------------------------------------------------------------------------

export QT_QPA_PLATFORM=offscreen

fresh_runtime()
{
    [[ -z $runtime ]] || rm -rf "$runtime"
    runtime=$(mktemp -d)
    chmod 700 "$runtime"
    export XDG_RUNTIME_DIR=$runtime
}

order_cheap=$work/tests-cheap.txt
order_rest=$work/tests-rest.txt
baseline_stamp=$work/baseline.fingerprint

fingerprint=$(tree_fingerprint)
if [[ $mode == run && ( ! -f $order_cheap || ! -f $order_rest
    || $(cat "$baseline_stamp" 2>/dev/null) != "$fingerprint" ) ]]; then
    echo "Running the unmodified test suite once"
    fresh_runtime
    rm -f "$build/Testing/Temporary/CTestCostData.txt"
    started=$SECONDS
    if ! ctest --test-dir "$build" -j2 --timeout 180 --output-on-failure >"$logs/baseline.log" 2>&1; then
        sed -n '/The following tests FAILED/,$p' "$logs/baseline.log" >&2
        echo "mutants.sh: the unmodified test suite fails, so no fault can be judged; fix it first" \
            "(see $logs/baseline.log)" >&2
        exit 1
    fi
    costs=$build/Testing/Temporary/CTestCostData.txt
    [[ -f $costs ]] || { echo "mutants.sh: ctest left no cost data in $costs" >&2; exit 1; }
    # "name runs seconds" lines until "---", the cheapest first.
    sed '/^---/,$d' "$costs" | sort -g -k3 | awk '$3 < 2 { print $1 }' >"$order_cheap"
    sed '/^---/,$d' "$costs" | sort -g -k3 | awk '$3 >= 2 { print $1 }' >"$order_rest"
    echo "$fingerprint" >"$baseline_stamp"
    # Results for an older tree say nothing about this one.
    rm -f "$stored"/*
    echo "The suite passes ($(($(wc -l <"$order_cheap") + $(wc -l <"$order_rest"))) tests," \
        "$((SECONDS - started)) s)"
fi

cheap_tests=() other_tests=()
[[ ! -f $order_cheap ]] || mapfile -t cheap_tests <"$order_cheap"
[[ ! -f $order_rest ]] || mapfile -t other_tests <"$order_rest"

# Runs test $1 alone, its output going to $2; true when it passes.
passes_alone()
{
    ctest --test-dir "$build" --timeout 180 --no-tests=error --output-on-failure -R "^$1\$" >"$2" 2>&1
}

# Runs the suite against the planted fault; sets $test_name to the test that caught it, or to nothing. A failure
# counts once the test fails again when run alone: a test that then passes is only listed in $flaky, and the run
# goes on without it.
run_tests()
{
    local log_dir=$1 status regex failed name pid done_pid
    test_name="" flaky=()
    mkdir -p "$log_dir"

    local cheap=("${cheap_tests[@]}") kept
    while ((${#cheap[@]} > 0)); do
        regex="^($(IFS='|'; echo "${cheap[*]}"))\$"
        rm -f "$build/Testing/Temporary/LastTestsFailed.log"
        status=0
        ctest --test-dir "$build" -j2 --stop-on-failure --timeout 180 --no-tests=error --output-on-failure \
            -R "$regex" >"$log_dir/cheap.log" 2>&1 || status=$?
        ((status != 0)) || break
        failed=""
        if [[ -f $build/Testing/Temporary/LastTestsFailed.log ]]; then
            failed=$(head -n 1 "$build/Testing/Temporary/LastTestsFailed.log" | cut -d: -f2-)
        fi
        if [[ -z $failed ]]; then
            failed=$(sed -n '/The following tests FAILED/,$p' "$log_dir/cheap.log" \
                | sed -n 's/^[[:space:]]*[0-9]* - \([^ ]*\) .*/\1/p' | head -n 1)
        fi
        if [[ -z $failed || " ${cheap[*]} " != *" $failed "* ]]; then
            test_name=ctest # failed without naming a test of this group
            return
        fi
        if ! passes_alone "$failed" "$log_dir/$failed.alone.log"; then
            test_name=$failed
            return
        fi
        flaky+=("$failed")
        kept=()
        for name in "${cheap[@]}"; do
            [[ $name == "$failed" ]] || kept+=("$name")
        done
        cheap=("${kept[@]}")
    done

    # The rest two at a time, cheapest first. A failure stops the other test (it runs again later should the
    # failure not hold up) while the failing one runs again alone.
    local queue=("${other_tests[@]}") next=0 stopped
    local -A running=()
    while :; do
        while ((${#running[@]} < 2 && next < ${#queue[@]})); do
            name=${queue[next]}
            next=$((next + 1))
            setsid ctest --test-dir "$build" --timeout 180 --no-tests=error --output-on-failure -R "^$name\$" \
                >"$log_dir/$name.log" 2>&1 &
            running[$!]=$name
        done
        ((${#running[@]} > 0)) || break
        status=0
        done_pid=""
        wait -n -p done_pid "${!running[@]}" || status=$?
        if [[ -z $done_pid || -z ${running[$done_pid]+set} ]]; then
            # Already reaped before the wait began: ask each one.
            done_pid=""
            for pid in "${!running[@]}"; do
                if ! kill -0 "$pid" 2>/dev/null; then
                    done_pid=$pid
                    status=0
                    wait "$pid" || status=$?
                    break
                fi
            done
            if [[ -z $done_pid ]]; then
                sleep 1
                continue
            fi
        fi
        name=${running[$done_pid]}
        unset "running[$done_pid]"
        ((status != 0)) || continue
        stopped=()
        for pid in "${!running[@]}"; do
            kill -TERM -- "-$pid" 2>/dev/null || true
            wait "$pid" 2>/dev/null || true
            stopped+=("${running[$pid]}")
        done
        running=()
        if ! passes_alone "$name" "$log_dir/$name.alone.log"; then
            test_name=$name
            return
        fi
        flaky+=("$name")
        queue=("${stopped[@]}" "${queue[@]:next}")
        next=0
    done
}

# --- The faults ----------------------------------------------------------------------------------------------------

declare -A outcome=()
flaky=()

record()
{
    local i=$1
    outcome[$i]=$2
    local line
    line=$(printf '%-12s %-15s %-26s %6s  %s' "${ids[i]}" "$2" "${3:--}" "$4s" "${descriptions[i]}")
    ((${#flaky[@]} == 0)) || line+="  [failed once, then passed alone: ${flaky[*]}]"
    echo "$line"
    [[ $mode == run ]] && printf '%s\n' "$line" >"$stored/${ids[i]}"
    return 0
}

echo
printf '%-12s %-15s %-26s %6s  %s\n' "fault" "result" "caught by" "time" "what it does"
for i in "${chosen[@]}"; do
    started=$SECONDS
    flaky=()
    fault_logs=$logs/${ids[i]}
    rm -rf "$fault_logs"
    mkdir -p "$fault_logs"
    if ! plant "$i"; then
        echo "$reason" >"$fault_logs/not-applicable.txt"
        record "$i" "NOT APPLICABLE" "" "$((SECONDS - started))"
        continue
    fi
    if ! cmake --build "$build" -j2 >"$fault_logs/build.log" 2>&1; then
        unplant
        record "$i" "BUILD FAILED" "" "$((SECONDS - started))"
        continue
    fi
    if [[ $mode == build-only ]]; then
        unplant
        record "$i" "builds" "" "$((SECONDS - started))"
        continue
    fi
    fresh_runtime
    run_tests "$fault_logs"
    unplant
    if [[ -n $test_name ]]; then
        record "$i" "caught" "$test_name" "$((SECONDS - started))"
    else
        record "$i" "missed" "" "$((SECONDS - started))"
    fi
done
# The last fault's file is back as it was; bring the build in line with it for the next run.
cmake --build "$build" -j2 >"$logs/build.log" 2>&1 || true

# --- Summary ---------------------------------------------------------------------------------------------------------

summarise()
{
    local -n list=$1
    local caught=0 missed=0 na=() failed=() missed_ids=() i
    for i in "${list[@]}"; do
        case ${outcome[$i]:-} in
            caught) caught=$((caught + 1)) ;;
            missed) missed=$((missed + 1)); missed_ids+=("${ids[i]}") ;;
            "NOT APPLICABLE") na+=("${ids[i]}") ;;
            "BUILD FAILED") failed+=("${ids[i]}") ;;
        esac
    done
    if [[ $mode == run ]]; then
        echo "caught $caught of $((caught + missed))"
        ((missed == 0)) || echo "missed: ${missed_ids[*]}"
    fi
    echo "not applicable: ${#na[@]}${na:+ (${na[*]})}"
    echo "build failed: ${#failed[@]}${failed:+ (${failed[*]})}"
}

echo
summarise chosen

if [[ $mode == run ]]; then
    # Every fault's latest result, in the list's order.
    all=()
    for i in "${!ids[@]}"; do
        if [[ -f $stored/${ids[i]} ]]; then
            all+=("$i")
            read -r _ result rest <"$stored/${ids[i]}"
            case $result in
                NOT) outcome[$i]="NOT APPLICABLE" ;;
                BUILD) outcome[$i]="BUILD FAILED" ;;
                *) outcome[$i]=$result ;;
            esac
        fi
    done
    {
        echo "# scripts/mutants.sh on $tree, $(date '+%Y-%m-%d %H:%M')"
        printf '%-12s %-15s %-26s %6s  %s\n' "# fault" "result" "caught by" "time" "what it does"
        for i in "${all[@]}"; do
            cat "$stored/${ids[i]}"
        done
        echo
        summarise all
    } >"$results"
    echo "Results: $results"
fi

# Faults that cannot be judged are errors in the list.
for i in "${chosen[@]}"; do
    case ${outcome[$i]:-} in "NOT APPLICABLE" | "BUILD FAILED") exit 1 ;; esac
done
