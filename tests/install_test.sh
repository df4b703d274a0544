#!/bin/sh
# Installs the build tree to a fresh prefix (not the configured one), checks
# that the installed headers declare exactly the exported functions, then
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
# Installed headers and exports agree both ways: every function that an
# installed header declares is exported (else an application that calls it
# fails to link), and every exported function is declared in one.
inc="$prefix/include/kavor"
for h in "$inc"/*.h; do echo "#include \"$h\""; done > "$work/all.c"
cc -std=c11 $cflags -fsyntax-only -aux-info "$work/aux.txt" "$work/all.c"
sed -n "s|^/\* $inc/[^ ]* \*/ extern [^(]*[ *]\([A-Za-z_][A-Za-z0-9_]*\) (.*|\1|p" "$work/aux.txt" |
    sort -u > "$work/declared.txt"
nm -D --defined-only "$libdir/libkavor.so" | awk '$2 == "T" {print $3}' | sed 's/@.*//' |
    sort -u > "$work/exported.txt"
[ -s "$work/declared.txt" ] || { echo "no declaration found in $inc"; exit 1; }
undeclared=$(comm -13 "$work/declared.txt" "$work/exported.txt")
unexported=$(comm -23 "$work/declared.txt" "$work/exported.txt")
[ -z "$unexported" ] || { echo "declared in an installed header, not exported:"; echo "$unexported"; exit 1; }
[ -z "$undeclared" ] || { echo "exported, declared in no installed header:"; echo "$undeclared"; exit 1; }
cc -std=c11 -Wall -Wextra -Werror $cflags "$src/consumer.c" -o "$work/consumer" $libs
LD_LIBRARY_PATH="$libdir" "$work/consumer" "$work/out"
# The same program as C++17, and through the CMake package.
c++ -std=c++17 -x c++ -Wall -Wextra -Werror $cflags "$src/consumer.c" -o "$work/consumer_cxx" $libs
LD_LIBRARY_PATH="$libdir" "$work/consumer_cxx" "$work/out_cxx"
cmake -S "$src" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix" > "$work/cmake.log"
cmake --build "$work/cmake-consumer" > "$work/cmake-build.log"
LD_LIBRARY_PATH="$libdir" "$work/cmake-consumer/consumer" "$work/out_cmake"
echo "installed consumer ok"
