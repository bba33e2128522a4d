# Bash completion for kaiklactl. Commands and options; for "remove" and "doctor" also the consumers
# that the service has registered.

# The consumers' addresses, one a line, from the service that the command line names.
_kaiklactl_consumers() {
    # COMP_WORDS would have an endpoint in pieces: a colon ends a word there.
    local words i server=()
    read -ra words <<<"$COMP_LINE"
    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        [[ ${words[i]} != --server ]] || server=(--server "${words[i + 1]}")
    done
    kaiklactl --timeout 0.5 "${server[@]}" list 2>/dev/null
}

_kaiklactl() {
    local common='--server --timeout --help'
    local line=${COMP_LINE:0:COMP_POINT}
    local current=${line##*[[:space:]]}
    local previous=${COMP_WORDS[COMP_CWORD - 1]}
    local word command=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        status | add | remove | list | watch | doctor) command=$word ;;
        esac
    done
    COMPREPLY=()

    case $previous in
    --server | --timeout | --bind | --address | --count) return ;;
    esac

    local choices
    case $command in
    '') choices="$common --version status add remove list watch doctor" ;;
    status) choices="$common --json --pretty" ;;
    watch) choices="$common --bind --address --count --json" ;;
    *) choices=$common ;;
    esac
    if [[ -z $command || $current == -* || $command == status || $command == watch ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
        return
    fi

    [[ $command == remove || $command == doctor ]] || return
    # Bash replaces what follows the last colon only.
    local typed=
    [[ $COMP_WORDBREAKS != *:* ]] || typed=${current%"${current##*:}"}
    local address quoted
    while IFS= read -r address; do
        # Addresses come from whoever registered them: they are never left to the shell to expand.
        if [[ $address == "$current"* ]]; then
            printf -v quoted %q "${address#"$typed"}"
            COMPREPLY+=("$quoted")
        fi
    done < <(_kaiklactl_consumers)
}

complete -F _kaiklactl kaiklactl
