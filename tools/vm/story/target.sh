# shellcheck shell=dash disable=SC2034
# A target of the kernel at vf1, with two disks for vf0: LUN 0 is memory, LUN 1 ends commands as it is told.

configuration=/sys/kernel/config/target
tracing=/sys/kernel/tracing/events/scsi

make_disks() {
    modprobe -a target_core_user tcm_fc sd_mod sg
    mount -t configfs configfs /sys/kernel/config
    mkdir -p $configuration/core/rd_mcp_0/memory $configuration/core/user_0/told
    echo rd_pages=1024 >$configuration/core/rd_mcp_0/memory/control
    echo 00000000-0000-4000-8000-000000000001 >$configuration/core/rd_mcp_0/memory/wwn/vpd_unit_serial
    echo 1 >$configuration/core/rd_mcp_0/memory/enable
    echo dev_config=vm/told,dev_size=16777216,hw_block_size=512 >$configuration/core/user_0/told/control
    echo 1 >$configuration/core/user_0/told/enable
    zt-vm-scsi serve /dev/uio0 told >serve.log 2>&1 &
}

# export_disks TARGET INITIATOR: at the port of the one, for that of the other. Behind the coming of both, and before they
# look for their like.
export_disks() {
    group=$configuration/fc/$(colons "$(host "$1" port_name)")/tpgt_1
    acl=$group/acls/$(colons "$(host "$2" port_name)")
    mkdir -p "$group" "$acl"
    number=0
    for disk in rd_mcp_0/memory user_0/told; do
        mkdir "$group/lun/lun_$number" "$acl/lun_$number"
        ln -s $configuration/core/$disk "$group/lun/lun_$number/disk"
        ln -s "$group/lun/lun_$number" "$acl/lun_$number/lun"
        number=$((number + 1))
    done
}

# The kernel's own counts are to begin, and the agent; an end of it when everything is counted.
begin() {
    clear_kernel_counts
    start_agent "$@"
}
finish() {
    expect_all_counted
    end_agent
}

# disk LUN: its directory in sysfs; generic LUN: its name in /dev.
disk() { echo /sys/class/net/vf0/ctlr_*/host*/rport-*/target*/*:"$1"; }
generic() { basename "$(disk "$1")"/scsi_generic/sg*; }
are_disks_there() { [ -e "/dev/$(generic 0)" ] && [ -e "/dev/$(generic 1)" ]; }

# A remote port that has gone is given up after 3 seconds, not 60.
lose_soon() {
    for host in /sys/class/fc_host/host*; do
        echo 3 >"$host/dev_loss_tmo"
    done
}

# Once, whichever part is the first that needs it.
have_target() {
    [ ! -e /sys/class/uio/uio0 ] || return 0
    say 'Two hosts are made anew, vf1 with a target of the kernel: two disks for vf0'
    make_disks
    create_host vf0
    create_host vf1
    export_disks vf1 vf0
    enable_host vf0
    enable_host vf1
    until_is both Online Online
    until_is are_disks_there
    until_is test -e "$(disk 1)/block" # what the kernel asks a new disk is over
    know_hosts
    indented lsscsi
    lose_soon
    echo 'hist:keys=host_no,result if result != 0' >$tracing/scsi_dispatch_cmd_done/trigger
    echo 'hist:keys=host_no' >$tracing/scsi_dispatch_cmd_timeout/trigger
}

# send LUN [OPTION...] COUNT CDB...: as often as that, in hex; prints how they ended.
send() {
    lun=$1
    shift
    options=
    while [ "${1#--}" != "$1" ]; do
        options="$options $1 $2"
        shift 2
    done
    # shellcheck disable=SC2086
    zt-vm-scsi send $options "/dev/$(generic "$lun")" "$@" >sent
    indented cat sent
}
unknown='c1 0 0 0 0 0'
ready='0 0 0 0 0 0'
read_block='28 0 0 0 0 0 0 0 1 0'

# ---- Counts ----

# What the kernel itself has counted: lines "HOST RESULT COUNT", RESULT in decimal, "timeout" or "dropped": a histogram
# drops an event when another processor, which the emulation may have stopped, is about to make its row.
kernel_counts() {
    for event in "done" timeout; do
        sed -n -e 's/^{ host_no: *\([0-9]*\), result: *\([0-9-]*\) } hitcount: *\([0-9]*\)$/\1 \2 \3/p' \
            -e 's/^{ host_no: *\([0-9]*\) } hitcount: *\([0-9]*\)$/\1 timeout \2/p' \
            -e 's/^ *Dropped: *\([1-9][0-9]*\)$/? dropped \1/p' $tracing/scsi_dispatch_cmd_$event/hist
    done
}
clear_kernel_counts() {
    echo 'hist:keys=host_no,result:clear if result != 0' >>$tracing/scsi_dispatch_cmd_done/trigger
    echo 'hist:keys=host_no:clear' >>$tracing/scsi_dispatch_cmd_timeout/trigger
}


# rows WHOSE: of the statistics, lines "NAME VALUE". sum WHOSE PATTERN: of those whose names match.
library=.library.values
agents=.values
rows() { vrx-scope --json stats | jq -r "$1 | to_entries[] | \"\(.key) \(.value)\""; }
sum() { rows "$1" | awk -v pattern="$2" '$1 ~ pattern { sum += $2 } END { print sum + 0 }'; }
commands='queue_full|device_busy|check_condition|lun_reset|target_reset|fcp_read_check_error' # kinds of failed ones

# Whether what the kernel has counted of commands that failed stands in the library's rows, and whether what the library
# has told the agent has.
is_all_counted() {
    failed=$(kernel_counts | awk '{ sum += $3 } END { print sum + 0 }')
    counted=$(sum $library "^((told|beyond)_total.kind=.($commands)|(timeouts|unreached|failures)_total|lost_total)")
    told=$(sum $library ^told_total)
    taken=$(sum $agents "^events_total.kind=.($commands|queue_depth_change)")
    [ "$failed $told" = "$counted $taken" ]
}

# Prints how what failed was counted.
expect_all_counted() {
    limit=$(($(seconds) + 30))
    until is_all_counted || [ "$(seconds)" -ge "$limit" ]; do
        usleep 100000
    done
    kernel_counts | while read -r number result count; do
        case $result in [0-9]*) result=$(printf '%06x' "$result") ;; esac
        echo "  the kernel, host$number: $count with result $result"
    done
    rows $library | awk '$2 != 0 { print "  the library: " $0 }'
    is_all_counted || fail "the kernel has $failed failures, the library $counted; it told $told, the agent took $taken"
}
