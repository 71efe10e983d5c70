#!/bin/sh
# allocations.sh LIBRARY.a [SOURCE_DIR]: no object but that of the memory hooks asks the system for memory.
#
# What three functions of the C library bring is let through, each in the one object that has to use it, and what is
# freed there again: open_memstream, scandir and vasprintf. Releasing is free for all: texts of libyang and of libc come
# from the system's heap and go back to it.
set -eu
archive=$1 source=${2:-}
allocators='malloc|calloc|realloc|reallocarray|valloc|pvalloc|memalign|aligned_alloc|posix_memalign|(__)?str(n)?dup|wcsdup'
allocators="$allocators|(__)?v?asprintf(_chk)?|open_(w)?memstream|fmemopen|get(line|delim)|scandir(at)?(64)?|getcwd"
allocators="$allocators|get_current_dir_name|canonicalize_file_name|tempnam|_Zn[wa].*|mmap(64)?|s?brk"
allowed='
mem.cpp.o malloc
mem.cpp.o strdup
mem.cpp.o strndup
mem.cpp.o vasprintf
utils_bytes.cpp.o open_memstream
yang_module_load.cpp.o scandir
yang_module_map.cpp.o mmap
'
status=0
list=$(nm -A -u "$archive" 2>/dev/null | awk '{ sub(/:$/, "", $1); n = split($1, part, ":"); print part[n], $NF }' |
       sed 's/^[^ ]*\///' | sort -u)
objects=$(echo "$list" | cut -d' ' -f1 | sort -u | wc -l)
[ "$objects" -gt 10 ] || { echo "found only $objects objects"; status=1; }

found=$(echo "$list" | grep -E " ($allocators)\$" |
        sed -e 's/ __\(.*\)_chk$/ \1/' -e 's/ __str/ str/' -e 's/64$//' | sort -u) || true
[ -n "$found" ] || { echo "found no allocation at all"; status=1; }
for entry in $(echo "$found" | tr ' ' '='); do
    echo "$allowed" | grep -qxF "$(echo "$entry" | tr '=' ' ')" && continue
    echo "asks the system for memory: $entry"
    status=1
done
# realpath() allocates when it is given no buffer, which the object does not show.
if [ -n "$source" ] && grep -rnE '\brealpath\([^;]*(nullptr|NULL|0)\)' "$source/lib"; then
    echo "realpath() without a buffer"
    status=1
fi
exit $status
