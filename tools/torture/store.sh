#!/usr/bin/env bash
# store.sh BUILD_DIR: vrx-sn while the disk of its history stands still for a minute, is full, and is read-only, each
# in a storm. Mounts a file system of its own, so it is for root. Prints a line a case; ends with status 1 at the first
# thing that is not as it must be.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR
. "${BASH_SOURCE%/*}/parts.sh"

build=$(cd "$1" && pwd)
PATH=$build/backend/scopeagent:$build/libdfc/sim:$build/sensor/vrx-scope:$build/sensor/vrx-sn:$PATH
work=$(mktemp -d -p /dev/shm)
disk=$work/disk
store=$disk/history.db
sensor=
agent=

cleanup() {
    fsfreeze -u "$disk" 2>/dev/null || :
    for process in $sensor $agent; do
        kill -9 "$process" 2>/dev/null || :
    done
    wait
    umount "$disk" 2>/dev/null || :
    rm -rf "$work"
}
trap cleanup EXIT

sensor_starts() {
    vrx-sn --store "$store" --every 0.1 --fold 1 2>>"$work/lines" &
    sensor=$!
}

sensor_ends() {
    local begin=$SECONDS
    kill "$sensor"
    wait "$sensor" || fail "vrx-sn ended with $?: $(tail -n 3 "$work/lines")"
    took=$((SECONDS - begin))
    ((took <= $1)) || fail "the end took $took s"
}

# query SQL: the one value that it gives.
query() {
    sqlite3 -readonly "$store" "$1"
}

delivered() {
    vrx-sim send report | sed -n 's/.*delivered=\([0-9]*\).*/\1/p'
}

# storm SECONDS: 20,000 events a second of four kinds.
storm() {
    local kind
    for kind in queue-full port-busy check-condition plogi; do
        vrx-sim send "storm $kind boards=2 rate=5000 times=$((5000 * $1))" >/dev/null
    done
}

# The agent holds nothing.
is_fetched() {
    [[ $(vrx-scope stats | awk '$1 == "held_events" { print $2 }') == 0 ]]
}

is_balanced() {
    local sum
    sum=$(query 'SELECT (SELECT coalesce(sum(occurrences), 0) FROM records) + (SELECT coalesce(sum(events), 0) FROM losses)')
    ((sum == $(delivered)))
}

# is_over WHAT: all that was sent is in the history, and nothing of it as lost.
is_over() {
    vrx-sim send 'wait storms' >/dev/null
    within 30 "$1: what was sent is not in the history: $(tail -n 3 "$work/lines")" is_balanced
    (($(query 'SELECT count(*) FROM losses') == 0)) || fail "$1: something was lost"
    grep -q 'over after .*the history is not written' "$work/lines" || fail "$1: its end is not told"
    printf '%s: %s events, all in the history; %s\n' "$1" "$(delivered)" \
        "$(sed -n 's/.*\(the history is not written: .*\)/\1/p' "$work/lines" | head -n 1)"
    : >"$work/lines"
}

(($(id -u) == 0)) || fail 'only root can mount disks'
mkdir "$disk" "$work/run"
truncate -s 64M "$work/image"
mkfs.ext4 -q "$work/image"
mount -o loop "$work/image" "$disk"
export ZT_VRX_SENSOR_DIR=$work/run ZT_LIBDFC=$build/libdfc/sim/libdfc-sim.so ZT_LIBDFC_SIM_CONTROL=$work/sim.sock
chmod 0700 "$work/run"
vrx-sca -D false -d 0 2>"$work/stderr" &
agent=$!
sensor_starts
within 10 'vrx-sn does not collect' grep -q 'fetching from' "$work/lines"
within 10 'there is no history' test -s "$store"
storm 1
vrx-sim send 'wait storms' >/dev/null
within 10 'nothing is stored' is_balanced

seconds=${ZT_TORTURE_SECONDS:-60}
fsfreeze -f "$disk"
storm "$seconds"
vrx-sim send 'wait storms' >/dev/null
within 5 'it does not fetch' is_fetched
grep -q 'stands still' "$work/lines" || fail 'a disk that stands still is not told'
fsfreeze -u "$disk"
is_over "a disk that stands still for $seconds s"

storm 3
dd if=/dev/zero of="$disk/fill" bs=4k 2>/dev/null || :
storm 5
within 20 'a full disk is not told' grep -q 'no room' "$work/lines"
rm "$disk/fill"
is_over 'a full disk'

# What is open for writing keeps a disk from being read-only, unless the disk fails: so vrx-sn starts with it.
sensor_ends 10
mount -o remount,ro "$disk"
sensor_starts
storm 5
within 20 'a read-only disk is not told' grep -q 'is read-only' "$work/lines"
mount -o remount,rw "$disk"
is_over 'a read-only disk'

fsfreeze -f "$disk"
storm 2
vrx-sim send 'wait storms' >/dev/null
begin=$SECONDS
kill "$sensor"
within 12 'SIGTERM does not end it while its disk stands still' grep -q 'are not in the history' "$work/lines"
took=$((SECONDS - begin))
fsfreeze -u "$disk"
wait "$sensor" || fail "vrx-sn ended with $?"
sensor_starts
vrx-sim send 'wait storms' >/dev/null
within 30 'what was left is not told' is_balanced
printf 'an end while the disk stands still: after %s s; %s events told as lost by the next one\n' "$took" \
    "$(query "SELECT coalesce(sum(events), 0) FROM losses WHERE reason = 'unstored'")"
sensor_ends 10
