# shellcheck shell=dash disable=SC2086,SC2154
# The agent is killed, again and again, while commands fail.

have_target

in_kernel() {
    for what in prog map link; do
        bpftool -j $what show | jq -c '.[] | [.id, .type, .name]'
    done
    ls /sys/kernel/tracing/instances
}
is_kernel_clean() { in_kernel | cmp -s - before; }

# The kernel rewrites its code when the first and the second program come to a trace event, and when they go. The emulation
# may run the old code on another processor, which ends in an oops: so two stay there, the histogram and this one.
mkdir /sys/kernel/tracing/instances/story
echo 0 >/sys/kernel/tracing/instances/story/tracing_on
for event in "done" timeout; do
    echo 1 >/sys/kernel/tracing/instances/story/events/scsi/scsi_dispatch_cmd_$event/enable
done

say 'The agent is killed 50 times while commands fail'
in_kernel >before
zt-vm-scsi send --threads 2 --seconds 600 "/dev/$(generic 0)" 100000000 $unknown >sent &
sender=$!
for turn in $(seq 50); do
    vrx-sca -D false >agent.log 2>&1 &
    agent=$!
    if [ $((turn % 2)) = 0 ]; then
        until_is vrx-scope start >start.log 2>&1
    fi
    usleep $((turn * 20000))
    [ "$turn" != 50 ] || in_kernel >during
    kill -KILL $agent
    { wait $agent || :; } 2>/dev/null # the shell tells of it
done
sed 's/^/  in the kernel before the last: /' during
cmp -s before during && fail 'there was nothing of the agent in the kernel'
until_is is_kernel_clean
kill $sender
{ wait $sender || :; } 2>/dev/null
echo '  and nothing behind it'
rmdir /sys/kernel/tracing/instances/story

say 'The next start works'
begin
send 0 3 $unknown
expect 'vf0 check_condition 0:5/20/00:c1 3'
finish
