#!/usr/bin/env bash
# manuals.sh SOURCE_DIR ZAMD ZAMCTL: the manual pages are well-formed, and they and the completion know the options that
# the programs have, no more and no less.
set -euo pipefail
source=$1 zamd=$2 zamctl=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
say() { echo "$*"; status=1; }
long_options() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }
# same TITLE FIRST SECOND: two sorted lists
same() {
    comm -23 "$2" "$3" | sed "s|^|$1: only the program has |" >"$work/differences"
    comm -13 "$2" "$3" | sed "s|^|$1: the program does not have |" >>"$work/differences"
    [ ! -s "$work/differences" ] || { cat "$work/differences"; status=1; }
}

if command -v mandoc >/dev/null; then
    # Other packages' pages need not be here.
    mandoc -T lint -W style "$source"/docs/man/*.[1-8] 2>&1 | grep -vE 'referenced manual not found|outdated mandoc.db' \
        >"$work/lint" && { cat "$work/lint"; status=1; }
fi
if command -v man >/dev/null; then
    for page in "$source"/docs/man/*.[1-8]; do
        LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null | tee "$work/warnings"
        [ ! -s "$work/warnings" ] || status=1
    done
fi
# The program of zamc(7) is one.
sed -n '/^#include <string.h>/,/^\.Ed/p' "$source/docs/man/zamc.7" | sed -e '$d' -e 's/\\e/\\/g' >"$work/example.c"
grep -q zamc_run "$work/example.c" || say "found no program in zamc.7"
${CC:-cc} -std=c11 -Wall -Wextra -Werror -Wno-unused-parameter -fsyntax-only -I"$source/include" \
    "$work/example.c" || status=1

commands=$("$zamctl" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 4 ] || say "found no commands of zamctl"
"$zamd" --help | long_options >"$work/zamd"
for command in '' $commands; do "$zamctl" $command --help; done | long_options >"$work/zamctl"
for program in zamd.8 zamctl.1; do
    sed -nE 's/Fl -([a-z])/Fl --\1/gp' "$source/docs/man/$program" | long_options >"$work/page"
    same $program "$work/${program%.*}" "$work/page"
done

# complete WORD …: what is offered for the last word
. "$source/tools/zamctl/completion.bash"
complete_words() {
    COMP_WORDS=(zamctl "$@")
    COMP_CWORD=$#
    _zamctl
    printf '%s\n' "${COMPREPLY[@]}"
}
complete_words '' | grep -v '^-' | sort >"$work/offered"
tr ' ' '\n' <<<"$commands" | sort >"$work/commands"
same "completion of zamctl" "$work/commands" "$work/offered"
for command in $commands; do
    "$zamctl" "$command" --help | sed -n '/^Options:/,/^$/p' | grep -E '^ +-' | sed 's/Excludes: --[a-z]*//' |
        long_options >"$work/options"
    complete_words "$command" --| long_options >"$work/offered"
    same "completion of zamctl $command" "$work/options" "$work/offered"
done
[ "$(complete_words pull --datastore op)" = operational ] || say "completion does not know the datastores"
"$zamctl" push --help | sed -n 's/.*--operation TEXT:{\([a-z,]*\)}.*/\1/p' | tr ',' '\n' | sort >"$work/operations"
complete_words push -o '' | sort >"$work/offered"
same "completion of zamctl push -o" "$work/operations" "$work/offered"
exit $status
