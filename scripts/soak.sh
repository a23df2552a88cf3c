#!/usr/bin/env bash
# scripts/soak.sh [MINUTES]: for MINUTES (default 10) at once, the ring buffer
# and message channel soaks (readers and clients killed at random, every frame
# and answer checked) and the decoder's suite over and over.  Each minute it
# prints the least private resident memory each of their processes held, read
# once a second, and their System V objects.  It fails when a suite fails, when
# a process's least grows 256 kB past its first, when objects grow or are left,
# or when a suite hangs.
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-10}
[[ $minutes =~ ^[1-9][0-9]*$ ]] || { echo "usage: $0 [MINUTES]" >&2; exit 2; }
out=build/soak suites=(ringbuf_soak_test msgchannel_soak_test jmd_test)
scripts/install-deps.sh
cmake -S . -B $out -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build $out -j 2 --target "${suites[@]}" >/dev/null

pids=() running=() failures=0 runs=0
declare -A first least seen
# "m|s|q ID" for each object under the keys of the suites with these process
# ids (tests/support/ipc_keys.h).
objects() {
    for kind in m:shm s:sem q:msg; do
        awk -v kind="${kind%:*}" -v pids="$*" 'NR > 1 {
            for (n = split(pids, pid, " "); n > 0; n--) { low = 268435456 + pid[n] % 1048576 * 512
                if ($1 >= low && $1 < low + 512) print kind, $2 } }' "/proc/sysvipc/${kind#*:}"
    done
}
# Ends the suites with these process ids and their children; removes their objects.
cleanup() {
    for pid; do kill -KILL -- "-$pid" 2>/dev/null || true; done
    objects "$@" | while read -r kind id; do ipcrm "-$kind" "$id" || true; done
}
trap 'exec 2>/dev/null; cleanup "${running[@]}"' EXIT
trap 'exit 130' INT TERM
fail() { echo "soak: FAIL: $*"; failures=$((failures + 1)); }

# Freed memory goes back to the system at once, so that the least memory a
# process holds over a minute is what it keeps.
export GLIBC_TUNABLES=glibc.malloc.trim_threshold=0:glibc.malloc.mmap_threshold=131072
set -m # a process group for each suite and its children
for suite in "${suites[@]}"; do
    options=(--seconds=$((minutes * 60)))
    [[ $suite == jmd_test ]] && options=(--gtest_repeat=-1 --gtest_brief=1) # until stopped
    "$(find $out/tests -name "$suite")" "${options[@]}" >"$out/$suite.log" 2>&1 &
    pids+=($!) running+=($!)
done
set +m
echo "each minute: least private memory (kB) by process id, System V objects, decoder runs"
for ((minute = 1, start = SECONDS; minute <= minutes; minute++)); do
    least=() seen=() line="minute $minute:" shown=
    for ((reading = 59; reading > 0; reading--)); do
        while ((SECONDS < start + minute * 60 - reading)); do sleep 0.5; done
        for i in "${!pids[@]}"; do
            for p in ${pids[i]} $(cat "/proc/${pids[i]}/task/${pids[i]}/children" 2>/dev/null); do
                kb=$(awk '/^RssAnon/ { print $2 }' "/proc/$p/status" 2>/dev/null) || continue
                seen[$i:$p]=$((${seen[$i:$p]:-0} + 1))
                ((${least[$i:$p]:-kb} < kb)) || least[$i:$p]=$kb
            done
        done
    done
    # The processes alive through the minute, by suite; compared while they live.
    for key in $(printf '%s\n' "${!least[@]}" | sort -t: -k1,1n -k2,2n); do
        p=${key#*:} kb=${least[$key]}
        ((seen[$key] == 59)) && { ((minute > 1)) || first[$p]=$kb; } && [[ -n ${first[$p]-} ]] || continue
        [[ ${key%:*} == "$shown" ]] || line+=" ${suites[${key%:*}]%_test}:" shown=${key%:*}
        line+=" $p=$kb"
        ((kb <= first[$p] + 256)) || fail "process $p grew from ${first[$p]} to $kb kB"
    done
    count=$(objects "${pids[@]}" | wc -l) last=$runs runs=$(grep -c PASSED "$out/jmd_test.log" || true)
    echo "$line; System V objects: $count; decoder runs: $runs"
    ((minute > 1)) || firstCount=$count
    ((count <= firstCount)) || fail "System V objects grew from $firstCount to $count"
    ((runs > last)) || fail "the decoder's suite made no progress"
done
kill -0 "${pids[2]}" && kill -INT "${pids[2]}" || fail "the decoder's suite ended early"
for i in "${!pids[@]}"; do
    pid=${pids[i]} log=$out/${suites[i]}.log
    while kill -0 "$pid" 2>/dev/null && ((SECONDS < start + minutes * 60 + 120)); do sleep 1; done
    kill -0 "$pid" 2>/dev/null && fail "${suites[i]} has not ended: a deadlock?" && kill -KILL -- "-$pid"
    status=0 && wait "$pid" || status=$? # the decoder's suite ends by SIGINT
    ((i < 2 && status != 0)) || grep -q FAILED "$log" &&
        fail "${suites[i]}, status $status: $(grep -m1 -A3 Failure "$log")"
    left=$(objects "$pid" | wc -l)
    ((left == 0)) || fail "${suites[i]} left $left System V objects"
    cleanup "$pid" && unset 'running[i]'
    grep '^soak:' "$log" | sed "s/^soak/${suites[i]}/" || echo "${suites[i]}: $runs runs"
done
((failures == 0)) && echo "soak: $minutes min, passed" || echo "soak: $failures failures"
exit $((failures > 0))
