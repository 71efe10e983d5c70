# Completion of zamctl for bash: commands, options and the values that are known beforehand. Data paths are the server's.
_zamctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local common='--server --modules --timeout --json --xml -v --verbose -h --help'
    COMPREPLY=()

    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'pull push rpc watch --version -h --help' -- "$current")
        return
    fi

    local values=
    case $previous in
        --datastore) values='running startup operational' ;;
        -o|--operation) values='merge replace create remove delete' ;;
        --changes) values='all create delete update move' ;;
        --depth) values='-1 1' ;;
        --modules)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return ;;
        --server|--timeout|--priority|--count) return ;;
    esac
    if [ -z "$values" ] && [[ $current == -* ]]; then
        case ${COMP_WORDS[1]} in
            pull) values="--depth --last --datastore $common" ;;
            push) values="-o --operation --datastore $common" ;;
            rpc) values=$common ;;
            watch) values="--changes --priority --replay --count $common" ;;
        esac
    fi
    [ -z "$values" ] || mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
}
complete -F _zamctl zamctl
