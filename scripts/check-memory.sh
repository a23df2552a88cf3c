#!/usr/bin/env bash
# The host suite under valgrind memcheck (build/valgrind), through CTest's
# memory checking.  Exits non-zero when a test fails, and so on any error or
# definite leak: valgrind then exits with 99, also in a forked child (whose
# exit status its test checks) and in the tools the tests start (followed
# through the shell).  The logs are build/valgrind/Testing/Temporary/
# MemoryChecker.<test number>.log; a child started with exec writes its own
# over its parent's, so the script also fails on any error summary left.
#
# Left out, as programs memcheck has no business checking: the servers and
# scripted peers (Python, nginx, ftpd: not followed from the shell that
# starts them), the demo suites (Python drives the demo's processes), and
# the tests that run cmake (the interface check, the install and consumer
# build).  The 32-bit peer of the two-width test runs unchecked too:
# valgrind needs the symbols of the 32-bit dynamic loader, which only a
# foreign-architecture package (libc6-dbg:i386) has; it is the same library
# code, checked at 64 bits.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
jobs=$(nproc)
build=build/valgrind

# Unoptimised: at -O2 a pointer that lives only in a register when a test
# forks is gone in the child, which then reports its parent's memory as lost.
# Cases get 20 minutes each, where a loaded machine and valgrind's start in
# every process the tests run add up.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DTARVO_TEST_TIMEOUT=1200 >/dev/null
cmake --build "$build" -j "${jobs}"
rm -f "$build"/Testing/Temporary/MemoryChecker.*.log

options=(--error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite
    --show-leak-kinds=definite --num-callers=30 --trace-children=yes
    --trace-children-skip='*/python3*,*/nginx,*/ftpd,*/unshare,*/width_peer'
    --trace-children-skip-by-arg='*peers.py*'
    --suppressions="$PWD/scripts/valgrind.supp")
ctest --test-dir "$build" -T memcheck -j "${jobs}" --output-on-failure \
    --overwrite MemoryCheckCommand="$(command -v valgrind)" \
    --overwrite MemoryCheckCommandOptions="${options[*]}" \
    -E '^(library_interface|package_install_and_consume|demo_.*)$'

if grep -l 'ERROR SUMMARY: [1-9]' "$build"/Testing/Temporary/MemoryChecker.*.log; then
    echo "memcheck: errors in the logs above" >&2
    exit 1
fi
