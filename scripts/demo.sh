#!/bin/sh
# Builds the library and runs the main job: the tracking demo against the
# built-in virtual tracker on loopback, on an unprivileged port (no root).
set -eu
cd "$(dirname "$0")/.."
./scripts/setup-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target vyx_tracking_demo
exec ./build/examples/vyx_tracking_demo "$@"
