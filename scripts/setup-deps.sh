#!/bin/sh
# Installs the build and test dependencies from Debian's packages. Quick and
# silent when everything is already present; safe to run any number of times.
set -eu

# OpenCV's calib3d module is a reference that tests and benchmarks compare
# with; the library itself links OpenCV's core module alone.
PACKAGES="g++ cmake ninja-build pkg-config binutils libopencv-core-dev libeigen3-dev \
libusb-1.0-0-dev libgtest-dev libbenchmark-dev umockdev libumockdev-dev \
libopencv-calib3d-dev libcli11-dev libopenigtlink-dev python3-numpy python3-pytest \
clang libclang-rt-14-dev"

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done
[ -z "$missing" ] && exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "Installing:$missing"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends $missing >/dev/null
