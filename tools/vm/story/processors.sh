# shellcheck shell=dash disable=SC2086,SC2154
# A processor goes and comes while commands fail.

have_target
processor=/sys/devices/system/cpu/cpu1/online

for way in bpf perf; do
    say "A processor goes and comes while commands fail, which are learned of by $way"
    begin env ZT_LIBDFC_FCHOST_SCSI=$way
    zt-vm-scsi send --threads 4 --seconds 9 "/dev/$(generic 0)" 100000000 $unknown >sent &
    sender=$!
    for is_online in 0 1 0 1; do
        sleep 2
        echo $is_online >$processor
        [ "$(cat $processor)" = $is_online ] || fail "the processor is not as it was told"
    done
    wait $sender
    indented cat sent
    finish
done
