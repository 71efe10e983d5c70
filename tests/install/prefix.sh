#!/usr/bin/env bash
# prefix.sh SOURCE_DIR BUILD_DIR: an installation stays below its prefix, can be moved, and serves a stranger's program
# through pkg-config and through find_package.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }

cmake --install "$build" --prefix "$work/first" >"$work/log" || { cat "$work/log"; exit 1; }
while read -r line; do
    case $line in
        *Installing:*|*Up-to-date:*) [[ $line == *": $work/first"* ]] || fail "outside the prefix: $line" ;;
    esac
done <"$work/log"
prefix=$work/moved
mv "$work/first" "$prefix"
find_one() { find "$prefix" -name "$1" | grep . || fail "no $1 is installed"; }

library=$(find_one 'libzamc.so.0')
libdir=$(dirname "$library")
for file in zamd zamctl zamctl.1 zamd.8 zamc.7 zamc.h zamc.pc zamcConfig.cmake zamcConfigVersion.cmake libzamc.so \
        zamd.service orvel-zam-server.yang interfaces.c; do
    find_one $file >/dev/null
done
for binary in "$library" "$(find_one zamd)" "$prefix"/bin/zamctl; do
    ! readelf -d "$binary" | grep -E 'RPATH|RUNPATH' || fail "$binary says where its libraries are"
done
! grep -rlF -e "$build" -e "$source" "$prefix" --include='*.cmake' --include='*.pc' --include='*.service' ||
    fail "these name the place where they were built"

mkdir "$work/models"
"$source/tools/link-models" "$work/models" ietf-interfaces iana-if-type
export LD_LIBRARY_PATH=$libdir
LC_ALL=C "$prefix/bin/zamctl" --version | grep '^zamctl [0-9]' >/dev/null || fail "zamctl does not run"

# A prefix of its own first, libyang where the system has it.
export PKG_CONFIG_PATH=$libdir/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}
yang=$(pkg-config --variable=yangdir zamc)
[ -e "$yang/orvel-zam-server.yang" ] || fail "pkg-config says that the modules are in $yang"
# shellcheck disable=SC2046
${CC:-cc} -std=c11 -Wall -Wextra -Werror "$source/tests/install/consumer/consumer.c" -o "$work/by-pkg-config" \
    $(pkg-config --cflags --libs zamc)
"$work/by-pkg-config" "$work/models" | grep uplink >/dev/null || fail "the program built through pkg-config does not work"

# The one that this tree was built with is there.
CMAKE_GENERATOR=$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "$build/CMakeCache.txt")
export CMAKE_GENERATOR
for consumer in "$source/tests/install/consumer" "$(dirname "$(find_one interfaces.c)")"; do
    { cmake -S "$consumer" -B "$work/by-cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS=-Werror &&
      cmake --build "$work/by-cmake"; } >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
    if [ -e "$work/by-cmake/consumer" ]; then
        "$work/by-cmake/consumer" "$work/models" | grep uplink >/dev/null ||
            fail "the program built through find_package does not work"
    else
        [ -x "$work/by-cmake/interfaces" ] || fail "the installed examples do not build"
    fi
    rm -rf "$work/by-cmake"
done

# The unit, as systemd reads it; its paths are those of the configured prefix until here.
if command -v systemd-analyze >/dev/null; then
    unit=$work/zamd.service
    sed -e "s|ExecStart=[^ ]*/zamd |ExecStart=$(find_one zamd) |" "$(find_one zamd.service)" >"$unit"
    MANPATH=$prefix/share/man systemd-analyze verify "$unit" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
    [ ! -s "$work/log" ] || { cat "$work/log"; exit 1; }
fi
