# shellcheck shell=dash disable=SC2086,SC2154
# Commands that fail on the way from vf0 to the disks at vf1, one kind at a time.

have_target

say 'The agent starts, and learns of commands that fail'
begin

say 'An operation code that the disk does not know'
for count in 1 2 1000; do
    send 0 $count $unknown
    expect "vf0 check_condition 0:5/20/00:c1 $count"
done

say 'The queue depth of a disk is changed'
echo 16 >"$(disk 1)/queue_depth"
expect 'vf0 queue_depth_change 1:16 1'

# Behind many of TASK SET FULL the kernel lowers the depth of all the disks of a target by itself.
while read -r name byte sense kind detail changes; do
    say "The disk answers with $name"
    for count in 1 2 1000; do
        zt-vm-scsi tell told 28 $count "$byte" "$sense"
        send 1 --read 512 $count $read_block
        [ "$(zt-vm-scsi told told 28)" = "0 $count" ] || fail 'the disk has not answered as it was told'
        expect "vf0 $kind $detail $count" "vf0 queue_depth_change * 0 $changes"
    done
done <<'END'
TASK_SET_FULL   28 0/00/00 queue_full           1            99
BUSY            08 0/00/00 device_busy          1            0
ABORTED_COMMAND 02 b/00/00 check_condition      1:b/00/00:28 0
MEDIUM_ERROR    02 3/11/00 check_condition      1:3/11/00:28 0
a_wrong_guard   02 b/10/01 fcp_read_check_error 1:28         0
END
for lun in 0 1; do # from now on the depth that the kernel may raise it to is the one that it has
    depth=$(cat "$(disk $lun)/queue_depth")
    echo "$depth" >"$(disk $lun)/queue_depth"
done

say 'A disk is reset, and says so to the next command'
zt-vm-scsi reset "/dev/$(generic 1)" device
send 1 1 $ready
expect 'vf0 lun_reset 1 1'

say 'A disk says that its target was reset'
zt-vm-scsi tell told 00 1 02 6/29/00
send 1 1 $ready
expect 'vf0 target_reset * 1'

say 'A disk answers too late, and the kernel gives the command up'
zt-vm-scsi tell told 28 1 00 late:3000
send 1 --read 512 --timeout 1000 1 $read_block
until_is test "$(sum $library '^timeouts_total')" = 1
send 0 1 $unknown
expect 'vf0 check_condition 0:5/20/00:c1 1'
[ "$(sum $library '^late.host=.*lun="1"')" = 1 ] || fail 'the time-out has no row of its own'
expect_all_counted

say 'Commands of a host that is not of Fibre Channel fail: nobody is told'
modprobe scsi_debug
until_is test -e /dev/sg2
indented zt-vm-scsi send /dev/sg2 10 $unknown
send 0 1 $unknown
expect 'vf0 check_condition 0:5/20/00:c1 1'
rmmod scsi_debug

say 'The agent is told to end, and leaves nothing but its log'
end_agent
