# shellcheck shell=dash disable=SC2086,SC2154
# Less of rights, and of ways to learn of commands that fail.

have_target

# The sense that a check condition has by perf events: this kernel's trace event may have none.
if grep -q sense_key $tracing/scsi_dispatch_cmd_done/format; then
    traced=5/20/00
else
    traced=0/00/00
fi

# with RIGHT,... COMMAND...: as root, but with these rights alone.
with() {
    rights=$(echo "$1" | sed 's/,/,+/g')
    shift
    exec /bin/setpriv --bounding-set="-all,+$rights" "$@"
}

# way NAME WAY SENSE WITH...: which the library must take, and what a check condition brings then; no sense: nothing.
way() {
    say "$1"
    way=$2 sense=$3
    shift 3
    begin "$@"
    ways=$(rows $library | sed -n 's/^way.name="\(.*\)". 1$/\1/p')
    [ "${ways:-none}" = "$way" ] || fail "the way is ${ways:-none}, not $way"
    send 0 100 $unknown
    zt-vm-scsi tell told 00 10 08
    send 1 10 $ready
    if [ "$way" = none ]; then
        ip link set vf0 down
        until_is both Linkdown Blocked
        ip link set vf0 up
        until_is both Online Online
        expect 'both link - 1 3' 'both rscn peer 1 2' 'both port_interrupt_error - 1 2'
        end_agent
    else
        expect "vf0 check_condition 0:$sense:c1 100" 'vf0 device_busy 1 10'
        finish
    fi
}

way 'Root has every right' bpf 5/20/00
way 'The rights of the service' bpf 5/20/00 with net_admin,bpf,perfmon
way 'Perf events, because it is told to' perf $traced env ZT_LIBDFC_FCHOST_SCSI=perf
way 'Root without the rights for BPF and perf events' none '' with net_admin
sysctl -q kernel.perf_event_paranoid=2
way 'Root without the right for BPF' perf $traced with net_admin,perfmon
sysctl -q kernel.perf_event_paranoid=3
way 'Nothing of SCSI, because it is told to' none '' env ZT_LIBDFC_FCHOST_SCSI=none
