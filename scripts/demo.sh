#!/bin/sh
# Builds the library and the vyx command, then runs the main job on the
# built-in virtual tracker (no device, no root): a few seconds of tracking of
# the scene's tools, then a pivot calibration of its pointer, with the result
# compared to the scene's true tip. Extra arguments go to both commands.
set -eu
cd "$(dirname "$0")/.."
./scripts/setup-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target vyx
tools=$(mktemp -d)
trap 'rm -rf "$tools"' EXIT
./build/cli/vyx track --seconds 5 --tool-dir "$tools" "$@"
./build/cli/vyx pivot pointer --tool-dir "$tools" "$@"
