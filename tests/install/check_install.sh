#!/bin/sh
# Installs the built library into a scratch prefix, then builds and runs a
# small consumer twice: once through find_package(VyxPosition), once through
# pkg-config.
set -eu
build_dir=$1
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null

cmake -S "$source_dir/consumer" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-consumer" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "$work/cmake-consumer/consumer"

libdir=$(find "$work/prefix" -name VyxPosition.pc -exec dirname {} \;)
export PKG_CONFIG_PATH="$libdir"
cc -o "$work/pc-consumer" "$source_dir/consumer/consumer.c" $(pkg-config --cflags --libs VyxPosition)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir VyxPosition)" "$work/pc-consumer"
echo "find_package and pkg-config consumers both ran"
