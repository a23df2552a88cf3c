#!/usr/bin/env bash
# A fuzzing campaign: every fuzz target (or those named) runs for
# --minutes=N (default 10) or for exactly --runs=N inputs, --jobs=N at once
# (default: as many as there are cores), in a build without sanitizers
# (build/fuzz-fast) for throughput.  What they find is merged, minimised,
# into fuzz/corpus/<target>, beyond what the target's seeds already cover;
# then every corpus is replayed once under AddressSanitizer and
# UndefinedBehaviorSanitizer (build/fuzz-san).  Exits non-zero on any crash,
# hang, leak or sanitizer report; the logs and inputs stay in
# build/fuzz-fast/campaign/<target>.
set -euo pipefail
shopt -s nullglob
cd "$(dirname "$0")/.."

usage() {
    echo "usage: $0 [--minutes=N | --runs=N] [--jobs=N] [target...]" >&2
    exit 2
}
minutes=10 runs= jobs=$(nproc) names=()
for arg in "$@"; do
    case $arg in
        --minutes=*) minutes=${arg#--minutes=} ;;
        --runs=*) runs=${arg#--runs=} ;;
        --jobs=*) jobs=${arg#--jobs=} ;;
        -*) usage ;;
        *) names+=("$arg") ;;
    esac
done
for number in "$minutes" "${runs:-1}" "$jobs"; do
    [[ $number =~ ^[1-9][0-9]*$ ]] || usage
done
if [ -n "$runs" ]; then
    budget=(-runs="$runs") length="${runs} inputs"
else
    budget=(-max_total_time=$((minutes * 60))) length="${minutes} min"
fi

scripts/install-deps.sh
root=$PWD
campaign=$root/build/fuzz-fast/campaign
# A busy machine can stall a process for tens of seconds between inputs.
limits=(-timeout=60 -rss_limit_mb=2048)

# Configures and builds the fuzz targets alone in build/NAME; each target
# leaves a line in build/NAME/fuzz/targets/: executable, corpus, seeds.
build_targets() {
    local dir=build/$1
    shift
    rm -rf "${dir}/fuzz/targets"
    cmake -S . -B "${dir}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARVO_FUZZ=ON \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ "$@" >/dev/null
    local targets=("${dir}"/fuzz/targets/*)
    cmake --build "${dir}" -j "${jobs}" --target "${targets[@]##*/}"
}

# Each of these takes a line of build/*/fuzz/targets/ as its target.
fuzz_target() {
    local exe corpus seeds out=${campaign}/${1##*/}
    read -r exe corpus seeds <"$1"
    mkdir -p "${out}/found" "${corpus}"
    "${exe}" "${budget[@]}" "${limits[@]}" -print_final_stats=1 \
        -artifact_prefix="${out}/" "${out}/found" "${corpus}" "${seeds}" \
        >"${out}/fuzz.log" 2>&1 || touch "${out}/failed"
}

# The seeds are copied in first so that the merge keeps only what they miss,
# and only new edges count, not how often an edge ran: the corpora stay small.
merge_corpus() {
    local exe corpus seeds out=${campaign}/${1##*/}
    read -r exe corpus seeds <"$1"
    mkdir -p "${out}/merged"
    cp "${seeds}"/* "${out}/merged/"
    "${exe}" -merge=1 -use_counters=0 "${limits[@]}" "${out}/merged" "${corpus}" "${seeds}" "${out}/found" \
        >"${out}/merge.log" 2>&1 || { touch "${out}/failed"; return 0; }
    for seed in "${seeds}"/*; do
        rm -f "${out}/merged/${seed##*/}"
    done
    rm -rf "${corpus}"
    mv "${out}/merged" "${corpus}"
}

replay_corpus() {
    local exe corpus seeds out=${campaign}/${1##*/}
    read -r exe corpus seeds <"$1"
    mkdir -p "${out}/replayed"
    "${exe}" -runs=0 "${limits[@]}" -print_final_stats=1 -artifact_prefix="${out}/replay-" \
        "${out}/replayed" "${corpus}" "${seeds}" >"${out}/replay.log" 2>&1 || touch "${out}/failed"
    # What the campaign stopped on, reported again by the sanitizers.
    for found in "${out}"/{crash,leak,timeout,oom}-*; do
        "${exe}" "${limits[@]}" "${found}" >>"${out}/replay-found.log" 2>&1 || true
    done
}

final_stat() {
    sed -n "s/^stat::$1: *//p" "$2" | tail -n 1
}

echo "== build/fuzz-fast"
build_targets fuzz-fast -DTARVO_SANITIZE=OFF -DTARVO_TESTS=OFF -DTARVO_TOOLS=OFF
targets=(build/fuzz-fast/fuzz/targets/*)
if ((${#names[@]})); then
    targets=("${names[@]/#/build/fuzz-fast/fuzz/targets/}")
fi
for target in "${targets[@]}"; do
    [ -f "${target}" ] || usage
    rm -rf "${campaign:?}/${target##*/}"
done

echo "== ${#targets[@]} targets, ${length} each, ${jobs} at once"
running=0
for target in "${targets[@]}"; do
    if ((running == jobs)); then
        wait -n
        running=$((running - 1))
    fi
    fuzz_target "${target}" &
    running=$((running + 1))
done
wait

echo "== merging into fuzz/corpus"
for target in "${targets[@]}"; do
    merge_corpus "${target}"
done

echo "== replay under build/fuzz-san"
build_targets fuzz-san -DTARVO_SANITIZE=ON
for target in "${targets[@]}"; do
    replay_corpus "build/fuzz-san/fuzz/targets/${target##*/}"
done

status=0
printf '%-26s %9s %12s %8s %9s  %s\n' target inputs/s inputs corpus KiB result
for target in "${targets[@]}"; do
    name=${target##*/}
    out=${campaign}/${name}
    corpus=fuzz/corpus/${name}
    result=ok
    if [ -e "${out}/failed" ]; then
        result="FAILED: see ${out}/*.log"
        status=1
    fi
    printf '%-26s %9s %12s %8s %9s  %s\n' "${name}" \
        "$(final_stat average_exec_per_sec "${out}/fuzz.log")" \
        "$(final_stat number_of_executed_units "${out}/fuzz.log")" \
        "$(find "${corpus}" -type f | wc -l)" "$(du -sk --apparent-size "${corpus}" | cut -f1)" "${result}"
done
exit "${status}"
