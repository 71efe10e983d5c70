#!/bin/sh
# abi.sh SOURCE_DIR LIBZAMC.so: programs that exist go on working, or abi/libzamc.abi says on purpose that they do not.
# Exit code 77: this machine cannot tell.
set -eu
source=$1 library=$2
record=$source/abi/libzamc.abi

skip() { echo "skipped: $1"; exit 77; }
command -v abidw >/dev/null && command -v abidiff >/dev/null || skip "abidw and abidiff are missing (package abigail-tools)"
readelf -S "$library" | grep -q '\.debug_info' || skip "the library is built without debug information"
case $(uname -m) in
    x86_64) ;;
    *) skip "the record is of x86_64" ;;
esac

[ -s "$record" ] || { echo "there is no $record"; exit 1; }
if grep -nE "(path|comp-dir)='/" "$record"; then
    echo "the record names a place of the machine that it was made on"
    exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$source/tools/abi-record" --output "$work/built.abi" "$library"
if abidiff --suppressions "$source/abi/suppressions.ini" "$record" "$work/built.abi" >"$work/changes"; then
    exit 0
else
    status=$?
fi

cat "$work/changes"
# 1 and 2 are abidiff's own failures.
[ $((status & 3)) -eq 0 ] || { echo "abidiff failed with exit code $status"; exit 1; }
cat <<TEXT
The interface of the library has changed. New functions do no harm. If programs that exist would break (something is
gone, a record's layout, an argument's or a result's type are different), count up SOVERSION in lib/CMakeLists.txt as
well. When it is what you want, renew the record:
    tools/abi-record $library
TEXT
exit 1
