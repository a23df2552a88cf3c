#!/usr/bin/env bash
# The performance report: builds the benchmarks (Release, build/perf-host)
# and the library for the camera (build/perf-mips), runs every benchmark
# once, one after the other, and writes docs/performance.md with a table and
# a chart (docs/perf-*.png) per measurement, the machine, and its load
# average before and after each benchmark.  The benchmarks take about two
# minutes, and a build from scratch about as long again; run it on a quiet
# machine, since the figures are worth less under load.  The raw outputs and
# the tables behind the charts stay in build/perf-host/report.
#
#   --quick   a smoke run of the whole pipeline, the camera server measured
#             for 3 s instead of 25; it writes build/perf-quick, not docs
set -euo pipefail
cd "$(dirname "$0")/.."

out=docs server_seconds=25
case ${1-} in
    "") ;;
    --quick) out=build/perf-quick server_seconds=3 ;;
    *) echo "usage: $0 [--quick]" >&2; exit 2 ;;
esac
host=build/perf-host mips=build/perf-mips raw=build/perf-host/report

scripts/install-deps.sh
echo "== building ${host} and ${mips}"
cmake -S . -B "${host}" -DCMAKE_BUILD_TYPE=Release -DTARVO_BENCHMARKS=ON -DTARVO_TESTS=OFF >/dev/null
cmake --build "${host}" -j "$(nproc)" --target jmd_bench ringbuf_bench tarvo_demo
cmake -S . -B "${mips}" -DCMAKE_TOOLCHAIN_FILE=cmake/mips-linux-gnu.cmake \
    -DCMAKE_BUILD_TYPE=Release -DTARVO_TESTS=OFF -DTARVO_TOOLS=OFF >/dev/null
cmake --build "${mips}" -j "$(nproc)" --target Tarvo
rm -rf "${raw}"
mkdir -p "${raw}" "${out}"

# Runs a benchmark, its output into ${raw}/NAME.txt, and keeps the load
# average around it and its exit status.
declare -A load status
run() {
    local name=$1 before
    shift
    echo "== ${name}"
    before=$(cut -d' ' -f1-3 /proc/loadavg)
    status[${name}]=0
    "$@" 2>&1 | tee "${raw}/${name}.txt" || status[${name}]=$?
    load[${name}]="${before} before, $(cut -d' ' -f1-3 /proc/loadavg) after"
}
run decoder "${host}/bench/jmd/jmd_bench"
run ringbuf "${host}/bench/ringbuf/ringbuf_bench"
run server "${host}/bench/demo/demo_bench" "${server_seconds}"

# Each measurement becomes ${raw}/NAME.tsv, a row per line: label, value,
# target (NaN for none), verdict (met, MISSED or -); the figures as the
# benchmark printed them, less their unit.
target=$(sed -n 's/^target (at least \([0-9.]*\)x.*/\1/p' "${raw}/decoder.txt")
awk -v target="${target}" 'BEGIN { OFS = "\t" }
    $NF ~ /^[0-9.]+x$/ {
        label = $1
        for (i = 2; i <= NF - 5; i++)
            label = label " " $i
        ratio = substr($NF, 1, length($NF) - 1)
        print label, ratio, target, (ratio + 0 >= target + 0 ? "met" : "MISSED")
    }' "${raw}/decoder.txt" >"${raw}/decoder.tsv"

# The ring benchmark's three tables: the first "N.Nx" of a row is its ratio,
# and the target and verdict follow ">=" or "<=".
awk -v dir="${raw}" 'BEGIN { OFS = "\t" }
    /^[0-9]\. / { part = $1 + 0 }
    /^ +[0-9]+ [KM]iB / {
        gsub(/[()]/, " ")
        ratio = ""; target = "NaN"; verdict = "-"
        for (i = 3; i <= NF; i++) {
            if (ratio == "" && $i ~ /^[0-9.]+x$/)
                ratio = substr($i, 1, length($i) - 1)
            if ($i == ">=" || $i == "<=") {
                target = substr($(i + 1), 1, length($(i + 1)) - 1)
                verdict = $(i + 2)
            }
        }
        if (ratio == "")
            next
        if (part == 1)
            print $1 " " $2 ", " $3 " reader" ($3 == 1 ? "" : "s"), ratio, target, verdict >(dir "/writer.tsv")
        if (part == 2)
            print $1 " " $2, ratio, target, verdict >(dir "/fanout.tsv")
        if (part == 3)
            print $1 " " $2 " at " $3 "/s", ratio, target, verdict >(dir "/paced.tsv")
    }' "${raw}/ringbuf.txt"

awk 'BEGIN { OFS = "\t" }
    /^target: at most/ { target = $4 }
    /^whole server/ { quiet = $3; watched = $4 }
    END {
        gsub(/%/, "", target); gsub(/%/, "", quiet); gsub(/%/, "", watched)
        print "no viewer", quiet, target, (quiet + 0 <= target + 0 ? "met" : "MISSED")
        print "one viewer", watched, "NaN", "-"
    }' "${raw}/server.txt" >"${raw}/server.tsv"

# The stripped library of one build and the libraries it needs, in KiB.
# Arguments: build folder, tool prefix, platform.
sizes() {
    local stripped=${raw}/libTarvo-$3.so needed file
    "$2strip" -o "${stripped}" "$1/libTarvo.so.1"
    for needed in libTarvo.so.1 $("$2readelf" -d "${stripped}" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        file=${stripped}
        [ "${needed}" = libTarvo.so.1 ] || file=$(readlink -f "$("$2gcc" -print-file-name="${needed}")")
        printf '%s %s\t%s\tNaN\t-\n' "$3" "${needed}" "$(($(stat -c %s "${file}") / 1024))"
    done
}
{
    sizes "${host}" "" host
    sizes "${mips}" mips-linux-gnu- MIPS
} >"${raw}/size.tsv"

# The chart of ${raw}/NAME.tsv as ${out}/perf-NAME.png.  Arguments: name,
# heading, unit, and optionally the value's printf format.
chart() {
    [ -s "${raw}/$1.tsv" ] || { echo "no $1 figures read from the outputs in ${raw}" >&2; exit 1; }
    gnuplot -c scripts/perf/bars.gp "${raw}/$1.tsv" "${out}/perf-$1.png" "$2" "$3" "${4-%.2f}"
}

# The table of ${raw}/NAME.tsv.  Arguments: name, the first column's heading,
# unit, and the sign before a target.
table() {
    echo "| $2 | value | target | |"
    echo "|---|---:|---:|---|"
    awk -F'\t' -v unit="$3" -v sign="$4" '{
        printf "| %s | %s%s | %s | %s |\n", $1, $2, unit, $3 == "NaN" ? "" : sign " " $3 unit, $4 == "-" ? "" : $4
    }' "${raw}/$1.tsv"
    echo
}

# A row of the summary for ${raw}/NAME.tsv: what it measures, the targets
# found there, and on how many rows they are met.  Arguments: name,
# description, unit, and the sign before a target.
glance() {
    awk -F'\t' -v what="$2" -v unit="$3" -v sign="$4" '
        $3 != "NaN" && !seen[$3]++ { targets = targets separator sign " " $3 unit; separator = ", " }
        $4 != "-" { rows++ }
        $4 == "met" { met++ }
        END { printf "| %s | %s | met on %d of %d |\n", what, targets, met, rows }' "${raw}/$1.tsv"
}

# The load around a benchmark, its exit status when not 0, and its output.
evidence() {
    echo "Load average (1, 5, 15 min): ${load[$1]}."
    [ "${status[$1]}" = 0 ] || echo "**The benchmark exited with status ${status[$1]}.**"
    echo
    echo '```'
    cat "${raw}/$1.txt"
    echo '```'
    echo
}

# The version line of the C++ compiler a build folder was configured with.
compiler() {
    "$(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")$/\1/p' "$1"/CMakeFiles/*/CMakeCXXCompiler.cmake)" --version | head -n 1
}

chart decoder "Frames per second, JpegMDecode / libjpeg-turbo at 1/8 (higher is better)" x
chart writer "rbSafeWrite less memcpy, in lock floors, median (lower is better)" x
chart fanout "Frames per second to each of 4 readers, ring / Unix sockets (higher is better)" x
chart paced "CPU per delivered frame at a camera's pace, ring / Unix sockets (lower is better)" x
chart server "Camera server at 30 frames/s, % of one core (lower is better)" % %.1f
chart size "Stripped libTarvo.so.1 and the libraries it needs, KiB" " KiB" %.0f

{
    echo "# Performance"
    echo
    [ "${out}" = docs ] || printf '**A smoke run of `scripts/perf-report.sh --quick`: no figures to quote.**\n\n'
    cat <<EOF
Written by \`scripts/perf-report.sh\` on $(date -u '+%Y-%m-%d %H:%M UTC') from commit
$(git describe --always --dirty), built with CMAKE_BUILD_TYPE=Release. Every figure is a ratio
between two things measured side by side in one run: times vary between runs and machines,
ratios hold. Bars are green where the target (the black mark) is met, red where it is
missed, grey where the row has no target. The load average is read just before and just
after each benchmark; the second includes the benchmark's own processes.

## At a glance

| measurement | target | |
|---|---|---|
EOF
    glance decoder "decoder against libjpeg-turbo at 1/8 scale, frames per second" x ">="
    glance writer "rbSafeWrite's cost less memcpy, in lock floors" x "<="
    glance fanout "fan-out to 4 readers against Unix sockets, frames per second" x ">="
    glance paced "CPU per frame at a camera's pace against Unix sockets" x "<="
    glance server "camera server at 30 frames/s, % of one core" % "<="
    awk -F'\t' '{ split($1, name, " ") }
        name[2] == "libTarvo.so.1" { size = size separator name[1] " " $2 " KiB"; separator = ", " }
        name[2] != "libTarvo.so.1" && !seen[name[2]]++ { needs = needs " " name[2] }
        END { printf "| libTarvo.so.1 stripped: %s | needs%s | |\n", size, needs }' "${raw}/size.tsv"
    cat <<EOF

## The machine

| | |
|---|---|
| processor | $(sed -n 's/^model name\s*: //p' /proc/cpuinfo | head -n 1) |
| cores | $(nproc) |
| memory | $(free -h | awk '/^Mem:/ { print $2 }') |
| kernel | $(uname -srm) |
| host compiler | $(compiler "${host}") |
| MIPS compiler | $(compiler "${mips}") |
| libjpeg-turbo | $(dpkg-query -W -f '${Version}' libjpeg62-turbo) |

## The decoder against libjpeg-turbo

JpegMDecode's block map against libjpeg-turbo's 1/8-scale grayscale decode of the same
frames, its fastest path (\`bench/jmd/jmd_bench\`).

![decoder](perf-decoder.png)

EOF
    table decoder "frame set" x ">="
    evidence decoder
    cat <<EOF
## The ring buffer against memcpy, its lock floor and Unix sockets

\`bench/ringbuf/ringbuf_bench\`; its output below says how each figure is taken.

### The writer's cost over the lock floor

![writer cost](perf-writer.png)

EOF
    table writer "frame, readers" x "<="
    printf '### Fan-out to 4 readers, flat out\n\n![fan-out](perf-fanout.png)\n\n'
    table fanout frame x ">="
    printf '### CPU per delivered frame at the pace of a camera\n\n![CPU per frame](perf-paced.png)\n\n'
    table paced "frame, pace" x "<="
    evidence ringbuf
    cat <<EOF
## The camera server at 30 frames/s

The processor time of every process of \`tarvo-demo\` (640x480, motion detection on every
frame, recorder on) over ${server_seconds} s with no viewer, then with one (\`bench/demo/demo_bench\`).

![camera server](perf-server.png)

EOF
    table server viewers % "<="
    evidence server
    cat <<EOF
## Size

The library stripped by each platform's binutils, and the libraries its dynamic section
names as NEEDED, as the platform's compiler finds them.

![size](perf-size.png)

EOF
    table size file " KiB" ""
} >"${out}/performance.md"
echo "== wrote ${out}/performance.md"
for name in "${!status[@]}"; do
    [ "${status[${name}]}" = 0 ] || { echo "${name} failed: see ${raw}/${name}.txt" >&2; exit 1; }
done
