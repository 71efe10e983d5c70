#!/bin/sh
# memory_calls.sh SOURCE_DIR: each function that the library exports is called by a scene of the memory suite.
set -eu
cd "$1"
missing=0
functions=$(sed -n 's/^ *\([a-z][a-z0-9_]*\);$/\1/p' lib/zamc.map | grep -v '^g_')
[ "$(echo "$functions" | wc -l)" -gt 200 ] || { echo "lib/zamc.map lists no functions"; exit 1; }
for function in $functions; do
    # zam_malloc_f and its like are called by macros without the suffix.
    grep -qE "\b(${function}|${function%_f})\b" tests/torture/memory*.cpp || { echo "never called: $function"; missing=1; }
done
exit $missing
