# shellcheck shell=bash
# What the scripts beside this one have in common.

fail() {
    printf 'FAILED  %s\n' "$1" >&2
    exit 1
}

# within SECONDS WHAT COMMAND...: until the command succeeds.
within() {
    local end=$((SECONDS + $1)) what=$2
    shift 2
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < end)) || fail "$what"
        read -rt 0.05 <> <(:) || :
    done
}
