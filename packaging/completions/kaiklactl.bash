# Bash completion for kaiklactl. Commands and options; for "remove", "drain" and "doctor" also the
# consumers that the service has registered.

# The consumers' addresses, one a line, from the service that the command line names.
_kaiklactl_consumers() {
    # COMP_WORDS would have an endpoint in pieces: a colon ends a word there.
    local words i server=()
    read -ra words <<<"$COMP_LINE"
    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        [[ ${words[i]} != --server ]] || server=(--server "${words[i + 1]}")
    done
    kaiklactl --timeout 0.5 "${server[@]}" list --no-check 2>/dev/null
}

_kaiklactl() {
    local common='--server --timeout --help'
    local line=${COMP_LINE:0:COMP_POINT}
    local current=${line##*[[:space:]]}
    local previous=${COMP_WORDS[COMP_CWORD - 1]}
    local word command=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        status | add | remove | list | watch | doctor | drain) command=$word ;;
        esac
    done
    COMPREPLY=()

    case $previous in
    --server | --timeout | --bind | --address | --count) return ;;
    esac

    local choices addresses=
    case $command in
    '') choices="$common --version status add remove list watch doctor drain" ;;
    status) choices="$common --json --pretty" ;;
    list) choices="$common --no-check" ;;
    watch) choices="$common --bind --address --count --json" ;;
    remove | doctor | drain) choices=$common addresses=yes ;;
    add)
        [[ $current == -* ]] || return
        choices=$common
        ;;
    esac
    if [[ -z $addresses || $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
        return
    fi

    # Bash replaces what follows the last colon only.
    local typed=
    [[ $COMP_WORDBREAKS != *:* ]] || typed=${current%"${current##*:}"}
    local address quoted
    while IFS= read -r address; do
        # Addresses come from the network: they are never left to the shell to expand.
        if [[ $address == "$current"* ]]; then
            printf -v quoted %q "${address#"$typed"}"
            COMPREPLY+=("$quoted")
        fi
    done < <(_kaiklactl_consumers)
}

complete -F _kaiklactl kaiklactl
