#!/usr/bin/env bash
# Builds the library and starts the camera server demo: capture, motion,
# recorder, events and streaming processes around streaming profile 1, with
# the live view on 127.0.0.1 (its address is printed first).  Arguments go
# to the demo (--seconds=N, --config=FILE, --run-dir=DIR); the run folder is
# build/demo-run unless given.  BUILD_DIR names another build directory.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${BUILD_DIR:-build/host}
scripts/install-deps.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target tarvo_demo
exec "$build/tools/demo/tarvo-demo" --run-dir=build/demo-run "$@"
