# shellcheck shell=dash disable=SC2086,SC2154
# What it costs, by the kernel's own count of the time that a BPF program takes.

have_target

# What the programs have run since the last time: lines "NAME RUNS NANOSECONDS".
runs() {
    bpftool -j prog show | jq -r '.[] | "\(.name) \(.run_cnt // 0) \(.run_time_ns // 0)"' | sort >runs.now
    awk 'NR == FNR { runs[$1] = $2; time[$1] = $3; next } { print $1, $2 - runs[$1], $3 - time[$1] }' runs.before runs.now
    mv runs.now runs.before
}
: >runs.before

say 'What a command costs'
begin
sysctl -q kernel.bpf_stats_enabled=1
for what in 'successful --read 512 2000 '"$read_block" "failing 2000 $unknown"; do
    for _ in 1 2 3; do
        runs >/dev/null
        send 0 ${what#* } >/dev/null
        runs | awk -v what="${what%% *}" '$2 { printf "  %s: %s ran %d times, %d ns each\n", what, $1, $2, $3 / $2 }'
    done
done
sysctl -q kernel.bpf_stats_enabled=0
expect 'vf0 check_condition 0:5/20/00:c1 6000'
finish
