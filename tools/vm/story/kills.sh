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

say 'The agent is killed 50 times while commands fail'
in_kernel >before
zt-vm-scsi send --threads 2 --seconds 600 "/dev/$(generic 0)" 100000000 $unknown >sent &
sender=$!
for turn in $(seq 50); do
    vrx-sca -D false >agent.log 2>&1 &
    agent=$!
    if [ $((turn % 2)) = 0 ]; then
        until_is vrx-scope status >status.log 2>&1
        vrx-scope start >status.log
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

say 'The next start works'
begin
send 0 3 $unknown
expect 'vf0 check_condition 0:5/20/00:c1 3'
finish
