#!/bin/sh
# The shared library exports exactly the names of its version script, has
# its SONAME, and exports no internal (C++ or helper) name.
set -eu
lib=$1
map=$2
fail=0
soname=$(objdump -p "$lib" | awk '/SONAME/ {print $2}')
[ "$soname" = "libkavor.so.1" ] || { echo "SONAME is '$soname'"; fail=1; }
nm -D --defined-only "$lib" | awk '$2 ~ /^[TDBRVW]$/ {print $3}' | sed 's/@.*//' | sort -u > exports.txt
sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$map" | sort -u > wanted.txt
# Every exported name is listed ...
extra=$(comm -23 exports.txt wanted.txt | grep -v '^KAVOR_1$' || true)
[ -z "$extra" ] || { echo "exported but not public:"; echo "$extra"; fail=1; }
# ... and every listed name is exported.
missing=$(comm -13 exports.txt wanted.txt || true)
[ -z "$missing" ] || { echo "public but not exported:"; echo "$missing"; fail=1; }
grep -q '^param_xml_trace_h$' exports.txt || { echo "param_xml_trace_h not exported"; fail=1; }
grep -q '^zlst_push$' exports.txt || { echo "zlst_push not exported"; fail=1; }
exit $fail
