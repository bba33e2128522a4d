# Bash completion for kaikla-sim.

_kaikla_sim() {
    local current=${COMP_WORDS[COMP_CWORD]}
    local previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $previous in
    --scenario | record)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --speed | --device-id) return ;;
    esac
    mapfile -t COMPREPLY < <(
        compgen -W '--scenario --loop --speed --device-id --exit-at-end --help --version record' \
            -- "$current"
    )
}

complete -F _kaikla_sim kaikla-sim
