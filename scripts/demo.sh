#!/bin/sh
# Builds the library and runs the main demo.
set -eu
cd "$(dirname "$0")/.."
./scripts/setup-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target vyx_version_demo
./build/examples/vyx_version_demo
