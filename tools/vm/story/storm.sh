# shellcheck shell=dash disable=SC2086,SC2154
# As many commands that fail as this machine can make, for ten seconds.

have_target

# Whether those that were sent are those that the agent has given out, those that it or the library counted as lost, and
# those that the library counted beyond its rate.
is_sum() {
    collect
    fetched=$(awk '$2 == "check_condition" { sum += $4 } END { print sum + 0 }' seen)
    beyond=$(sum $library '^beyond_total')
    lost=$(sum $library '^lost_total')
    agent_lost=$(sum $agents '^lost_total')
    [ $((fetched + beyond + lost + agent_lost)) = "$sent" ]
}

# ticks: of a processor, a hundredth of a second each, that the agent has used.
ticks() { awk '{ print $14 + $15 }' "/proc/$agent/stat"; }

# storm NAME [WITH...]
storm() {
    say "A storm of ten seconds: $1"
    shift
    begin "$@"
    before=$(ticks)
    send 0 --threads 8 --seconds 10 100000000 $unknown
    used=$(($(ticks) - before))
    sent=$(awk '{ sum += $1 } END { print sum }' sent)
    [ "$(grep -c . sent)" = 1 ] || fail 'commands have ended in more than one way'
    limit=$(($(seconds) + 30))
    until is_sum || [ "$(seconds)" -ge "$limit" ]; do
        usleep 200000
    done
    echo "  sent $sent = $fetched fetched + $beyond beyond + $lost lost in the library + $agent_lost in the agent"
    echo "  the agent used $((used / 100)).$(printf '%02d' $((used % 100))) s of a processor"
    is_sum || fail 'what was sent is not what was told and counted'
    rm answers
    finish
}

storm 'by itself'
storm 'at most 100 events a second and kind' env ZT_LIBDFC_FCHOST_RATE=100
[ "$beyond" != 0 ] || fail 'nothing was beyond the rate'
storm 'by perf events' env ZT_LIBDFC_FCHOST_SCSI=perf
