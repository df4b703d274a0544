#!/bin/sh
# Installs the build tree to a fresh prefix (not the configured one), then
# builds and runs a C program against the installed headers through
# pkg-config, and a CMake project through find_package(kavor).
set -eu
build=$1
src=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/kavor-install-XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"
pcdir=$(dirname "$(find "$prefix" -name kavor.pc | head -n 1)")
[ -n "$pcdir" ] || { echo "kavor.pc not installed"; exit 1; }
export PKG_CONFIG_PATH="$pcdir"
cflags=$(pkg-config --cflags kavor)
libs=$(pkg-config --libs kavor)
libdir=$(pkg-config --variable=libdir kavor)
case "$cflags" in *"$prefix"*) ;; *) echo "cflags do not point into the prefix: $cflags"; exit 1;; esac
cc -std=c11 -Wall -Wextra -Werror $cflags "$src/consumer.c" -o "$work/consumer" $libs
LD_LIBRARY_PATH="$libdir" "$work/consumer" "$work/out"
# The same program as C++17, and through the CMake package.
c++ -std=c++17 -x c++ -Wall -Wextra -Werror $cflags "$src/consumer.c" -o "$work/consumer_cxx" $libs
LD_LIBRARY_PATH="$libdir" "$work/consumer_cxx" "$work/out_cxx"
cmake -S "$src" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix" > "$work/cmake.log"
cmake --build "$work/cmake-consumer" > "$work/cmake-build.log"
LD_LIBRARY_PATH="$libdir" "$work/cmake-consumer/consumer" "$work/out_cmake"
echo "installed consumer ok"
