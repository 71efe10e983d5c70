#!/bin/sh
# layers.sh SOURCE_DIR: includes go down the house only, and guests use the public headers only.
set -eu
cd "$1"
status=0
say() { echo "$1"; status=1; }

# layer: what its files may include of lib/ (themselves included)
allowed() {
    case $1 in
        platform) echo platform ;;
        runtime) echo platform runtime ;;
        io) echo platform runtime io ;;
        yang) echo platform runtime yang ;;
        wire) echo platform runtime io yang wire ;;
        client) echo platform runtime io yang wire client ;;
    esac
}
# public header: the layer that implements it
layer_of() {
    case $1 in
        attributes) echo platform ;;
        mem|logger|vector|dlist|hash|ptrmap|utils) echo runtime ;;
        proactor|sock_wrap|connector|listener|job) echo io ;;
        yang_module|yang_tree_data|path|yang_wrap) echo yang ;;
        message) echo wire ;;
        # records that lower layers read: the bytes object, the subscriber
        format|suber) echo runtime ;;
        client|zamc) echo client ;;
        *) echo unknown ;;
    esac
}

files=0
for layer in platform runtime io yang wire client; do
    for file in lib/$layer/*.cpp lib/$layer/*.h; do
        [ -e "$file" ] || continue
        files=$((files + 1))
        for other in $(sed -n 's/^#include "\([a-z]*\)\/.*"/\1/p' "$file"); do
            case " $(allowed $layer) " in *" $other "*) ;; *) say "$file includes lib/$other" ;; esac
        done
        for header in $(sed -n 's/^#include <zamc\/\([a-z_]*\)\.h>/\1/p' "$file"); do
            other=$(layer_of "$header")
            case " $(allowed $layer) " in *" $other "*) ;; *) say "$file includes <zamc/$header.h> of $other" ;; esac
        done
        # libyang's own headers: the yang layer, nobody above
        if [ $layer != yang ] && grep -q '^#include <libyang' "$file"; then
            case $file in lib/wire/message_build*) ;; *) say "$file includes libyang" ;; esac
        fi
    done
done
[ $files -gt 10 ] || say "found only $files files under lib/"

for file in $(find server tools examples tests/api tests/e2e bench -name '*.c' -o -name '*.cpp' -o -name '*.h' 2>/dev/null); do
    if grep -qE '^#include "(\.\./)*(lib/)?(platform|runtime|io|yang|wire|client)/' "$file"; then
        say "$file reaches into lib/"
    fi
done

# Own memory only: the library holds no C++ allocation and no container that makes one.
for file in lib/*/*.cpp lib/*/*.h; do
    if sed -e 's/"\([^"\\]\|\\.\)*"//g' -e 's@//.*@@' "$file" |
            grep -nE '\bnew [A-Za-z_:]+[({[;]|std::(string|vector|function|map|make_unique|make_shared)\b[^_]'; then
        say "$file allocates outside the hooks"
    fi
done
exit $status
