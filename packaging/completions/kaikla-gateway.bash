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
    mapfile -t COMPREPLY < <(compgen -W 'fleet --service --consumer --listen --host --tls-cert --tls-key
        --users --insecure --session-metrics --mqtt --instance --mqtt-password-file --mqtt-ca
        --mqtt-cert --mqtt-key --log --log-level --help --version' -- "$current")
}
complete -F _kaikla_gateway kaikla-gateway
