# shellcheck shell=dash disable=SC2086,SC2154
# The way to the disks goes away under running commands, and comes back. Which of them fail how is the kernel's matter:
# it is printed, and all of it must be counted.

have_target

begin_commands() {
    for lun in 0 1; do
        zt-vm-scsi send --threads 4 --seconds "$1" "/dev/$(generic $lun)" 100000000 $ready >"sent$lun" &
    done
    until_is is_running
}
is_running() { pidof zt-vm-scsi | grep -q ' .* '; } # beside the one that serves
end_commands() {
    until_is has_ended
    cat sent0 sent1 | sed 's/^/  sent: /'
    collect
    show_records
    expect_all_counted
}
has_ended() { ! is_running && [ "$(pidof zt-vm-scsi | wc -w)" = 1 ]; }

say 'The agent starts'
begin

say 'The link goes down for a moment, under running commands'
begin_commands 6
sleep 1
ip link set vf0 down
until_is both Linkdown Blocked
ip link set vf0 up
until_is both Online Online
end_commands

say 'The link goes down until the remote port is given up'
begin_commands 10
sleep 1
ip link set vf0 down
until_is state vf0 Linkdown 'Not Present'
ip link set vf0 up
until_is both Online Online
until_is are_disks_there
end_commands

# vf0 is made again, and the link goes down and up, for only then do they find each other.
make_again() {
    make_host "$1"
    lose_soon
    ip link set vf0 down
    until_is state "$1" Linkdown -
    ip link set vf0 up
    until_is both Online Online
    until_is are_disks_there
}

# The link first: the driver of 6.1 may fall over a command that ends while its host is taken away.
say 'vf0 is destroyed while commands wait for the link, and made again'
begin_commands 8
sleep 1
ip link set vf0 down
until_is both Linkdown Blocked
destroy_host vf0
ip link set vf0 up
make_again vf0
end_commands

# Under commands, the target of 6.12 would wait for itself.
say 'vf1 is destroyed, commands come, and it is made again'
destroy_host vf1
begin_commands 4
until_is has_ended
make_again vf1
end_commands

send 0 2 $unknown
collect
show_records
finish
