# Bash completion for kaikla-gateway.
_kaikla_gateway() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $previous in
    --tls-cert | --tls-key | --users | --log | -L | --mqtt-password-file | --mqtt-ca | --mqtt-cert | --mqtt-key)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --log-level | -l)
        mapfile -t COMPREPLY < <(compgen -W '2 3 4 5' -- "$current")
        return
        ;;
    --service | --consumer | --listen | --host | --mqtt | --instance) return ;;
    esac
    local words='--listen --host --tls-cert --tls-key --users --insecure --mqtt --mqtt-password-file --mqtt-ca
        --mqtt-cert --mqtt-key --log --log-level --help --version'
    if [[ " ${COMP_WORDS[*]} " != *" fleet "* ]]; then
        words+=' fleet --service --consumer --instance --session-metrics'
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _kaikla_gateway kaikla-gateway
