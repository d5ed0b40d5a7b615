#!/bin/sh
# Builds the library and runs the main job: the tracking demo against the
# built-in virtual tracker on loopback (it binds port 7, so run it as root).
set -eu
cd "$(dirname "$0")/.."
./scripts/setup-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target vyx_tracking_demo
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
$SUDO ./build/examples/vyx_tracking_demo "$@"
