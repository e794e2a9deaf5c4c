# shellcheck shell=dash disable=SC2086,SC2154
# A processor goes and comes while commands fail.

have_target
processor=/sys/devices/system/cpu/cpu1/online

fail_for() { send 0 --threads 4 --seconds "$1" 100000000 $unknown; }

# set_online 0|1 UNDER: while commands fail, or before.
set_online() {
    if [ "$2" = yes ]; then
        fail_for 4 &
        sleep 2
    fi
    echo "$1" >$processor
    [ "$(cat $processor)" = "$1" ] || fail 'the processor is not as it was told'
    [ "$2" != yes ] || wait $!
}

# How many perf events the agent has.
count_events() {
    for file in "/proc/$agent/fd"/*; do
        readlink "$file" || :
    done | grep -c perf_event || :
}
has_events() { [ "$(count_events)" = "$1" ]; }

# By perf events the first commands on a processor that has come are not seen, until the library has heard of it.
while read -r way coming; do
    say "A processor goes and comes while commands fail, which are learned of by $way"
    begin env ZT_LIBDFC_FCHOST_SCSI="$way"
    events=$(count_events)
    indented echo "perf events of the agent: $events"
    for _ in 1 2; do
        set_online 0 yes
        set_online 1 "$coming"
        until_is has_events "$events"
        fail_for 1
    done
    finish
done <<'END'
bpf yes
perf no
END
