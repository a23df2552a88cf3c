#!/usr/bin/env bash
# Builds the library and runs the demo pipeline: a producer feeding streaming
# profile 1 and two consumers checking every frame.  Arguments go to the demo
# (--seconds=N, --fps=N, --frame-bytes=N).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build/host -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/host -j "$(nproc)" --target tarvo_demo
build/host/tools/tarvo_demo "$@"
