#!/usr/bin/env bash
# The whole test run on a fresh machine: installs what is missing, then
# builds and runs every test three times: on this host, cross-built for the
# camera (32-bit big-endian MIPS, under qemu-user), and on this host again
# built by clang under AddressSanitizer and UndefinedBehaviorSanitizer,
# where the fuzz targets also get a short smoke run.
#
# Longer checks, each instead of the normal run:
#   --tsan          the parts that use threads, under ThreadSanitizer
#   --valgrind      the host suite under valgrind memcheck
#   --soak[=MIN]    MIN minutes (default 10) of ring, channel and decoder load
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1-} in
    "") ;;
    --tsan) exec scripts/check-threads.sh ;;
    --valgrind) exec scripts/check-memory.sh ;;
    --soak) exec scripts/soak.sh 10 ;;
    --soak=*) exec scripts/soak.sh "${1#--soak=}" ;;
    *) echo "usage: $0 [--tsan | --valgrind | --soak[=MINUTES]]" >&2; exit 2 ;;
esac

scripts/install-deps.sh
jobs=$(nproc)

run_suite() {
    local name=$1
    shift
    echo "== ${name}"
    cmake -S . -B "build/${name}" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "build/${name}" -j "${jobs}"
    ctest --test-dir "build/${name}" -j "${jobs}" --output-on-failure
}

run_suite host
run_suite mips -DCMAKE_TOOLCHAIN_FILE=cmake/mips-linux-gnu.cmake
run_suite sanitize -DTARVO_SANITIZE=ON -DTARVO_FUZZ=ON \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
