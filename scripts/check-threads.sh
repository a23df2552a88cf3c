#!/usr/bin/env bash
# The host suite built by clang under ThreadSanitizer (build/tsan): the
# library, its suites and tools, run by CTest.  Exits non-zero when a test
# fails, and so on any report: every process stops at its first one
# (halt_on_error), so a race in a forked child fails that child's test too.
#
# Left out: the soak and slow labels (minutes of the same paths the other
# suites take, several times slower under ThreadSanitizer).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
jobs=$(nproc)

export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS-}"
cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARVO_TSAN=ON \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build build/tsan -j "${jobs}"
ctest --test-dir build/tsan -j "${jobs}" --output-on-failure --label-exclude 'soak|slow'
