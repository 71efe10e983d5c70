#!/bin/sh
# exports.sh SOURCE_DIR LIBZAMC.so: the library exports what the public headers declare, no more and no less, and needs
# nothing but libyang, libc and what the compiler brings.
set -eu
source=$1 library=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo '#include <zamc/zamc.h>' >"$work/all.c"
${CC:-gcc} -std=c11 -D_GNU_SOURCE -I"$source/include" -aux-info "$work/prototypes" -c "$work/all.c" -o "$work/all.o"
{
    grep "include/zamc/" "$work/prototypes" | sed -n 's/.*[ *]\([a-z0-9_]*\) (.*/\1/p'
    sed -n 's/^extern .*[ *]\([a-z0-9_]*\);$/\1/p' "$source"/include/zamc/*.h
} | sort -u >"$work/declared"
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort -u >"$work/exported"

status=0
[ -s "$work/declared" ] || { echo "found no declaration at all"; status=1; }
comm -23 "$work/declared" "$work/exported" | sed 's/^/declared, not exported: /' >"$work/missing"
comm -13 "$work/declared" "$work/exported" | sed 's/^/exported, not declared: /' >"$work/extra"
for list in missing extra; do
    if [ -s "$work/$list" ]; then cat "$work/$list"; status=1; fi
done

needed=$(objdump -p "$library" | awk '$1 == "NEEDED" { print $2 }')
for name in $needed; do
    case $name in
        libyang.so.*|libxml2.so.*|libc.so.*|libm.so.*|libgcc_s.so.*|ld-linux*) ;;
        *) echo "needs $name"; status=1 ;;
    esac
done
soname=$(objdump -p "$library" | awk '$1 == "SONAME" { print $2 }')
[ "$soname" = libzamc.so.0 ] || { echo "soname is $soname"; status=1; }
exit $status
