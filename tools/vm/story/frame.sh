# shellcheck shell=dash
# What the parts of the story have in common: the end, waiting, hosts, and the agent.

end() {
    set +e
    if [ "$1" = 0 ]; then
        echo 'vm: the story went as it must'
    else
        printf '\nWhat is counted, and the ends of the logs:\n'
        kernel_counts
        vrx-scope stats | awk '$2 != 0'
        tail -n 20 "$ZT_VRX_SENSOR_DIR/vrx-sca.log" /tmp/*.log
        dmesg | tail -n 20
    fi
    poweroff -n -f # without writing what is left: its disk may have no path
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

# indented COMMAND...: what it prints.
indented() { "$@" | sed 's/^/  /'; }

# until_is COMMAND...: repeats it until it succeeds, for 30 seconds.
until_is() {
    limit=$(($(seconds) + 30))
    until "$@"; do
        [ "$(seconds)" -lt "$limit" ] || fail "not after 30 s: $*"
        usleep 50000
    done
}

# ---- Hosts ----

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

# A new host, that finds its like without a fabric, once it is enabled.
create_host() {
    echo "$1" >/sys/bus/fcoe/ctlr_create
    echo VN2VN >"$(echo /sys/class/net/"$1"/ctlr_*)/mode"
}
enable_host() { echo 1 >"$(echo /sys/class/net/"$1"/ctlr_*)/enabled"; }
make_host() { create_host "$1" && enable_host "$1"; }
destroy_host() {
    echo "$1" >/sys/bus/fcoe/ctlr_destroy
    until_is state "$1" - -
}

# colons HEX: as vrx-scope prints it.
colons() { echo "${1#0x}" | sed 's/../&:/g; s/:$//'; }
node_and_port() { echo "$(colons "$(host "$1" node_name)") $(colons "$(host "$1" port_name)")"; }
port_id() { host "$1" port_id | sed 's/^0x//'; }

# Behind hosts that have found each other.
know_hosts() {
    names0=$(node_and_port vf0) names1=$(node_and_port vf1) id0=$(port_id vf0) id1=$(port_id vf1)
    echo "  vf0 is $names0, port id $id0"
    echo "  vf1 is $names1, port id $id1"
}

# ---- The agent ----

# start_agent [WITH...]: starts it, by the command WITH, and the collection.
start_agent() {
    rm -f "$ZT_LIBDFC_FCHOST_LOG"
    "$@" vrx-sca -D false >agent.log 2>&1 &
    agent=$!
    until_is vrx-scope --json fetch >fetched 2>start.log
    jq -r '.initiators[] | "\(.node_name) \(.port_name)"' fetched | sort >seen
    printf '%s\n%s\n' "$names0" "$names1" | sort | cmp - seen || fail 'the initiators are not those of the hosts'
    vrx-scope start
    until_is grep -qs 'SCSI errors are' "$ZT_LIBDFC_FCHOST_LOG"
    indented cat "$ZT_LIBDFC_FCHOST_LOG"
}

# An end in order, that leaves nothing but the log.
end_agent() {
    vrx-scope stop
    vrx-scope shutdown
    wait "$agent" || fail "the agent ended with status $?"
    left=$(ls "$ZT_VRX_SENSOR_DIR")
    [ "$left" = vrx-sca.log ] || fail "it left $left"
}

# ---- Records ----

# What the agent has collected since the step began, in lines "HOST KIND DETAIL EVENTS": of an RSCN the port id, of
# SCSI the LUNs and what else the kind has, - of the others.
collect() {
    vrx-scope record answers >record.log 2>&1 || fail 'no answer from the agent'
    vrx-scope --ndjson decode answers >records
    jq -rn --arg vf0 "$names0" --arg vf1 "$names1" '
        def hex: "0123456789abcdef"[.:. + 1];
        def hex2: (. / 16 | floor | hex) + (. % 16 | hex);
        def list: map(tostring) | unique | join(",");
        def detail:
            if .kind == "rscn" then .event.port_id
            elif .kind == "check_condition" then .event
                | "\(.luns | list):\(.sense_key | hex)/\(.asc | hex2)/\(.ascq | hex2):\(.operation_codes | map(hex2) | list)"
            elif .kind == "fcp_read_check_error" then .event | "\(.lun):\(.operation_code | hex2)"
            elif .event.luns then .event.luns | list
            else "-" end
            + if [.event.remote_port_name] | inside([null, ($vf1 | split(" ")[1])]) then ""
              else ":\(.event.remote_port_name)" end;
        def counted:
            if .kind == "queue_depth_change" then .event.changes[] | ["\(.lun):\(.new_depth)", 1]
            else [detail, .occurrences] end;
        reduce inputs as $record ({};
            ($record.initiator | "\(.node_name) \(.port_name)") as $names
            | ({($vf0): "vf0", ($vf1): "vf1"}[$names] // $names) as $host
            | reduce ($record | counted) as [$detail, $count] (.;
                .[[$host, $record.kind, $detail] | join(" ")] += $count))
        | to_entries[] | "\(.key) \(.value)"' records | sort >seen
}

# How what was seen differs from what is expected. Status 0: it does not; 1: more is to come; 2: too much came.
compare() {
    awk '
        { key = $1 " " $2 " " $3 }
        NR == FNR { least[key] = $4; most[key] = $5 == "" ? $4 : $5; next }
        !(key in least) { key = $1 " " $2 " *" }
        { seen[key] += $4 }
        seen[key] > most[key] + 0 { print "  too much: " $0; status = 2 }
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

show_records() {
    if [ -n "$tables" ]; then
        vrx-scope decode answers
    else
        sed -n '1,12s/^/  recorded: /p; 13s/.*/  .../p' seen
    fi
    rm answers
}

# expect 'HOST KIND DETAIL EVENTS [AT-MOST]'...: waits for these, and fails if others came. What comes too late for one
# step is too much in the next. The host may be "both", the port id that of the "peer", and the detail *, for any.
expect() {
    printf '%s\n' "$@" | sed 's/^both \(.*\)/vf0 \1\nvf1 \1/' |
        sed "s/^\(vf0 .*\)peer/\1$id1/; s/^\(vf1 .*\)peer/\1$id0/" >expected
    limit=$(($(seconds) + 30))
    until is_complete || [ "$(seconds)" -ge "$limit" ]; do
        usleep 100000
    done
    show_records
    if [ "$status" != 0 ]; then
        cat difference records
        fail 'the records are others than they must be'
    fi
}
