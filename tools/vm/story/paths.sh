# shellcheck shell=dash disable=SC2086,SC2154
# What the host tells: a LUN at the end of two paths, of which one goes and comes under running commands. Debian's own
# multipathd has them; vrx-sn is the agent's sensor, and what it has written down is what counts. The last part: vf2 and
# vf3 stay.

have_target
export PATH=/bin:/sbin
history=/tmp/history/history.db

# ---- A second way to the same disks ----

say 'Two more hosts are made; vf3 has the disks of vf1, for vf2'
modprobe -a dm-multipath dm-service-time scsi_dh_alua ext4
ip link add vf2 type veth
ip link set veth0 name vf3
for interface in vf2 vf3; do
    ip link set "$interface" address "02:00:00:00:00:f${interface#vf}" mtu 2500 up
    create_host "$interface"
done
export_disks vf3 vf2
mkdir -p /run/udev /etc/multipath /data
cat >/etc/multipath.conf <<'END'
defaults {
    user_friendly_names yes
    find_multipaths no
    no_path_retry queue
    polling_interval 5
}
blacklist {
    device {
        vendor VM
    }
}
END
/lib/systemd/systemd-udevd --daemon 2>/dev/null
udevadm trigger --action=add --subsystem-match=block # those that came before it
multipathd -d >multipathd.log 2>&1 &
enable_host vf2
enable_host vf3
others() { state vf2 "$@" && state vf3 "$@"; }
until_is others Online Online
until_is sh -c 'dmsetup status mpatha | grep -q "8:.* 8:"'
indented dmsetup status mpatha

say 'A volume stands on them, with a file system that is written to'
dmsetup create vg0-data -u LVM-data --table "0 $(cat /sys/block/dm-0/size) linear /dev/mapper/mpatha 0"
mke2fs -q /dev/mapper/vg0-data >/dev/null 2>&1
mount -t ext4 /dev/mapper/vg0-data /data
(while :; do dd if=/dev/zero of=/data/file bs=64k count=8 oflag=direct conv=notrunc; done) 2>/dev/null &
writer=$!

# number_of INTERFACE: of its host.
number_of() { echo /sys/class/net/"$1"/ctlr_*/host* | sed 's/.*host//'; }

# How long a path may stand still before it fails, and until its disk is taken away.
fail_behind() {
    for port in /sys/class/fc_remote_ports/*; do
        echo "$2" >"$port/dev_loss_tmo"
        echo "$1" >"$port/fast_io_fail_tmo"
    done
}

# link_up INTERFACE PAIR: and once more when they do not find each other, for without a fabric nobody tells them again.
link_up() {
    for _ in 1 2 3; do
        ip link set "$1" up
        limit=$(($(seconds) + 25))
        until "$2" Online Online || [ "$(seconds)" -ge "$limit" ]; do
            usleep 50000
        done
        ! "$2" Online Online || return 0
        ip link set "$1" down
        until_is linkdown "$1"
    done
    fail "$1 finds nobody"
}
linkdown() { [ "$(host "$1" port_state)" = Linkdown ]; }

# ---- What vrx-sn has written down ----

# units: lines "MAP USABLE of TOTAL MOUNTS"; stalls: of those that are under way, lines "KIND NAME HITS".
units() {
    vrx-scope --json paths --store "$history" >units.json &&
        jq -r '.luns[] | select(.map) | "\(.map) \(.usable) of \(.total) \(.mounts | join(","))"' units.json
}
is_unit() { [ "$(units 2>/dev/null)" = "$1" ]; }
stalls() {
    vrx-scope --json paths --store "$history" |
        jq -r '(.luns[].stalls[], .stalls[]) | "\(.kind) \(.name) \(.hits // "-")"' | sort
}
is_stalled() { stalls | grep -qx "$1"; }
is_quiet() { [ -z "$(stalls)" ]; }
show_units() { indented vrx-scope paths --store "$history"; }

# expect_unit UNIT: waits for it, and says after how long.
expect_unit() {
    before=$(seconds)
    until is_unit "$1"; do
        if [ "$(seconds)" -ge $((before + 60)) ]; then
            vrx-scope --json paths --store "$history" || :
            show_units
            cat sensor.log
            fail "not after 60 s: $1"
        fi
        usleep 100000
    done
    echo "  after $(($(seconds) - before)) s: $1"
}
expect_stall() {
    before=$(seconds)
    until_is is_stalled "$1"
    echo "  after $(($(seconds) - before)) s a stall: $(stalls | grep -x "$1")"
}

say 'The agent and vrx-sn start'
vrx-sca -D false >agent.log 2>&1 &
agent=$!
until_is grep -qs 'SCSI errors are' "$ZT_LIBDFC_FCHOST_LOG"
mkdir -p /tmp/history
vrx-sn --store "$history" --host guest 2>sensor.log &
sensor=$!
expect_unit 'mpatha 2 of 2 /data'
show_units
vrx-scope --json paths --store "$history" | jq -r '.luns[] | select(.map) | .paths[] | "  \(.disk) \(.source)"'

say 'The link of vf0 goes down, and the path fails behind 15 s'
fail_behind 15 60
ip link set vf0 down
until_is both Linkdown Blocked
expect_stall 'volume vg0-data /data'
expect_unit 'mpatha 1 of 2 /data'
until_is is_quiet
show_units

say 'The link comes up, and multipathd takes the path again'
link_up vf0 both
expect_unit 'mpatha 2 of 2 /data'

say 'The link of vf2 goes down until the disk is taken away: of its paths the map has one, and misses one'
fail_behind 2 5
ip link set vf2 down
until_is sh -c '! dmsetup status mpatha | grep -q "8:.* 8:"'
expect_unit 'mpatha 1 of 2 /data'
show_units
until_is state vf2 Linkdown 'Not Present'
link_up vf2 others
expect_unit 'mpatha 2 of 2 /data'

say 'Both links go down: no path is left, and the map keeps what is written until one is back'
fail_behind 2 60
ip link set vf0 down
ip link set vf2 down
expect_unit 'mpatha 0 of 2 /data'
expect_stall 'volume vg0-data /data'
show_units
link_up vf0 both
link_up vf2 others
expect_unit 'mpatha 2 of 2 /data'
until_is is_quiet

say 'A disk that has one path answers too late: no event tells of it'
zt-vm-scsi tell told 28 1 00 late:14000
(dd if="/dev/$(basename "$(disk 1)"/block/*)" of=/dev/null bs=512 count=1 skip=9 iflag=direct 2>/dev/null) &
expect_stall 'disk .*'
until_is is_quiet

# ---- What the fabric tells ----

# fpins STORE: lines "PORT DESCRIPTOR EVENT COUNT".
fpins() {
    vrx-scope --ndjson history --store "$1" |
        jq -r 'select(.type == "fpin") | "\(.initiator.port_name) \(.descriptor) \(.event) \(.count)"'
}
told() { [ "$(fpins /tmp/history/made-up.db 2>/dev/null)" = "$1" ]; }

say 'A process sends a notice to the group of the kernel: nobody believes it. One in the place of the kernel is taken'
bare() { host "$1" port_name | sed 's/^0x//'; }
zt-vm-scsi fpin "$(number_of vf0)" "$(bare vf1)" "$(bare vf0)" 3
mkdir -p /tmp/root/sys /tmp/root/proc
mkdir -m 0700 /tmp/empty
mount --bind /sys /tmp/root/sys
mount --bind /proc /tmp/root/proc
vrx-sn --root /tmp/root --dir /tmp/empty --store /tmp/history/made-up.db --host guest 2>made-up.log &
other=$!
until_is test -S /tmp/root/run/kernel/transport
zt-vm-scsi fpin "$(number_of vf0)" "$(bare vf1)" "$(bare vf0)" 7 /tmp/root/run/kernel/transport
until_is told "$(colons "$(host vf0 port_name)") link_integrity invalid_crc 7"
indented fpins /tmp/history/made-up.db
[ -z "$(fpins "$history")" ] || fail 'what was not of the kernel was believed'

say 'All end in order'
kill $writer
kill $other $sensor
wait $other || fail "vrx-sn with a root of its own ended with status $?"
wait $sensor || fail "vrx-sn ended with status $?"
vrx-sca -s
wait $agent || fail "the agent ended with status $?"
indented vrx-scope changes --store "$history"
left=$(ls "$ZT_VRX_SENSOR_DIR")
[ "$left" = vrx-sca.log ] || fail "they left $left"
