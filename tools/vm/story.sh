#!/bin/busybox sh
# shellcheck shell=dash
# The init of the guest that run.sh boots: two Fibre Channel hosts over a pair of Ethernet interfaces, vf0 and vf1, that
# see each other; the agent with libdfc-fchost.so; what happens to the hosts, and the records that it must give. Below,
# a host is called by its interface.
set -eu
/bin/busybox mkdir -p /proc /sys /dev /tmp /run/vrx-sca
/bin/busybox --install -s /bin
export PATH=/bin ZT_VRX_SENSOR_DIR=/run/vrx-sca ZT_LIBDFC=/bin/libdfc-fchost.so
export ZT_LIBDFC_FCHOST_PERIOD=0.25 ZT_LIBDFC_FCHOST_LOG=/tmp/library.log
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
cd /tmp

# ---- The frame ----

end() {
    set +e
    if [ "$1" = 0 ]; then
        echo 'vm: the story went as it must'
    else
        printf '\nThe ends of the logs:\n'
        tail -n 40 "$ZT_VRX_SENSOR_DIR/vrx-sca.log" /tmp/*.log
    fi
    poweroff -f
}
trap 'end $?' EXIT

fail() {
    echo "FAILED: $*"
    exit 1
}

seconds() {
    read -r now _ </proc/uptime
    echo "${now%.*}"
}

say() { printf '\n[%3d s] %s\n' "$(seconds)" "$*"; }

# until_is COMMAND...: repeats it until it succeeds, for 30 seconds.
until_is() {
    limit=$(($(seconds) + 30))
    until "$@"; do
        [ "$(seconds)" -lt "$limit" ] || fail "not after 30 s: $*"
        usleep 50000
    done
}

# host HOST ATTRIBUTE, remote HOST ATTRIBUTE: of a host, and of the remote port that it sees.
host() { cat /sys/class/net/"$1"/ctlr_*/host*/fc_host/host*/"$2" 2>/dev/null; }
remote() { cat /sys/class/net/"$1"/ctlr_*/host*/rport-*/fc_remote_ports/rport-*/"$2" 2>/dev/null; }

# state HOST STATE REMOTE: whether its port and its remote port are in these states; - for one that is not there.
state() {
    port=$(host "$1" port_state) || port=-
    other=$(remote "$1" port_state) || other=-
    [ "$port $other" = "$2 $3" ]
}
both() { state vf0 "$@" && state vf1 "$@"; }

# A new host, that finds its like without a fabric.
make_host() {
    echo "$1" >/sys/bus/fcoe/ctlr_create
    for control in /sys/class/net/"$1"/ctlr_*; do
        echo VN2VN >"$control/mode"
        echo 1 >"$control/enabled"
    done
}

# As vrx-scope prints them.
names() { { host "$1" node_name && host "$1" port_name; } | sed 's/^0x//; s/../&:/g; s/:$//' | xargs; }
port_id() { host "$1" port_id | sed 's/^0x//'; }

# What the agent has collected since the step began, in lines "HOST KIND PORT-ID EVENTS"; - for no port id.
collect() {
    vrx-scope record answers >record.log 2>&1 || fail 'no answer from the agent'
    vrx-scope --ndjson decode answers >records
    jq -rn --arg vf0 "$names0" --arg vf1 "$names1" '
        reduce inputs as $record ({};
            ($record.initiator | "\(.node_name) \(.port_name)") as $names
            | ({($vf0): "vf0", ($vf1): "vf1"}[$names] // $names) as $host
            | .[[$host, $record.kind, $record.event.port_id // "-"] | join(" ")] += $record.occurrences)
        | to_entries[] | "\(.key) \(.value)"' records | sort >seen
}

# How what was seen differs from what is expected. Status 0: it does not; 1: more is to come; 2: too much came.
compare() {
    awk '
        { key = $1 " " $2 " " $3 }
        NR == FNR { least[key] = $4; most[key] = $5 == "" ? $4 : $5; next }
        { seen[key] = $4 }
        $4 > most[key] + 0 { print "  too much: " $0; status = 2 }
        END {
            for (key in least) {
                if (seen[key] < least[key]) { print "  missing: " key " " least[key]; status = status ? status : 1 }
            }
            exit status
        }' expected seen >difference
}

is_complete() {
    collect
    compare
    status=$?
    [ "$status" != 1 ]
}

# expect 'HOST KIND PORT-ID EVENTS [AT-MOST]'...: waits for these, and fails if others came. What comes too late for one
# step is too much in the next. The host may be "both", and the port id that of the "peer".
expect() {
    printf '%s\n' "$@" | sed 's/^both \(.*\)/vf0 \1\nvf1 \1/' |
        sed "s/^\(vf0 .*\)peer/\1$id1/; s/^\(vf1 .*\)peer/\1$id0/" >expected
    limit=$(($(seconds) + 30))
    until is_complete || [ "$(seconds)" -ge "$limit" ]; do
        usleep 100000
    done
    if [ -n "$tables" ]; then
        vrx-scope decode answers
    else
        sed 's/^/  recorded: /' seen
    fi
    if [ "$status" != 0 ]; then
        cat difference records
        fail 'the records are others than they must be'
    fi
    rm answers
}

# ---- The story ----

while read -r module; do
    insmod "/modules/$module.ko"
done </modules/order
ip link add vf0 type veth
ip link set veth0 name vf1
for interface in vf0 vf1; do
    ip link set "$interface" address "02:00:00:00:00:f${interface#vf}" mtu 2500 up
done

say 'Two hosts are made, and find each other'
make_host vf0
make_host vf1
until_is both Online Online
names0=$(names vf0) names1=$(names vf1) id0=$(port_id vf0) id1=$(port_id vf1)
echo "  vf0 is $names0, port id $id0"
echo "  vf1 is $names1, port id $id1"

say 'The agent starts, and finds both'
vrx-sca -D false >agent.log 2>&1 &
until_is vrx-scope status >status.log 2>&1
vrx-scope --json fetch | jq -r '.initiators[] | "\(.node_name) \(.port_name)"' | sort >seen
sed 's/^/  initiator: /' seen
printf '%s\n%s\n' "$names0" "$names1" | sort | cmp - seen || fail 'the initiators are not those of the hosts'
vrx-scope start

say 'The link goes down'
ip link set vf0 down
until_is both Linkdown Blocked
expect 'both link - 1' 'both rscn peer 1' 'both port_interrupt_error - 1'

say 'The link comes up, by way of offline, which a look may miss'
ip link set vf0 up
until_is both Online Online
expect 'both link - 1 2' 'both rscn peer 1'

say 'A loop initialisation is asked for at vf0: it comes back alone, and the remote ports are given up'
for host in /sys/class/fc_host/host*; do
    echo 2 >"$host/dev_loss_tmo"
done
echo 1 >"$(echo /sys/class/net/vf0/ctlr_*/host*/fc_host/host*)/issue_lip"
until_is both Online -
expect 'vf0 link - 1 2' 'both rscn peer 2'

say 'The link goes down'
ip link set vf0 down
until_is both Linkdown -
expect 'both link - 1' 'both port_interrupt_error - 1'

say 'The link comes up, with new remote ports'
ip link set vf0 up
until_is both Online Online
expect 'both link - 1 2' 'both rscn peer 1'

say 'vf0 is destroyed, and given up by vf1'
echo vf0 >/sys/bus/fcoe/ctlr_destroy
until_is state vf0 - -
until_is state vf1 Online -
# A look may see vf0 while it is taken away.
expect 'vf0 link - 1 2' 'vf0 rscn peer 1 2' 'vf1 rscn peer 2'

say 'vf0 is made again, and is the same adapter; the link goes down and up, for only then do they find each other'
make_host vf0
until_is state vf0 Online -
ip link set vf0 down
until_is both Linkdown -
ip link set vf0 up
until_is both Online Online
expect 'vf0 adapter_arrival - 1' 'vf0 link - 2 5' 'vf1 link - 2 3' 'both port_interrupt_error - 1' 'both rscn peer 1'

say 'The agent is told to end, and leaves nothing but its log'
vrx-scope stop
vrx-scope shutdown
wait $! || fail "the agent ended with status $?"
left=$(ls "$ZT_VRX_SENSOR_DIR")
[ "$left" = vrx-sca.log ] || fail "it left $left"
