#!/usr/bin/env bash
# disks.sh BUILD_DIR: the agent while real disks stand still or are full. Mounts file systems of its own, so it is for
# root. Prints a line a case; ends with status 1 at the first thing that is not as it must be.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR
. "${BASH_SOURCE%/*}/parts.sh"

build=$(cd "$1" && pwd)
PATH=$build/backend/scopeagent:$build/libdfc/sim:$build/sensor/vrx-scope:$PATH
work=$(mktemp -d)
disk=$work/disk
agents=()

cleanup() {
    fsfreeze -u "$disk" 2>/dev/null || :
    kill -9 "${agents[@]}" 2>/dev/null || :
    wait
    umount "$disk" "$work/small" 2>/dev/null || :
    rm -rf "$work"
}
trap cleanup EXIT

# start RUNTIME_DIR LOG: an agent in the foreground, with a collection begun.
start() {
    mkdir -p "$1"
    chmod 0700 "$1"
    export ZT_VRX_SENSOR_DIR=$1 ZT_LIBDFC=$build/libdfc/sim/libdfc-sim.so ZT_LIBDFC_SIM_CONTROL=$work/sim.sock
    vrx-sca -D false -l "$2" 2>"$work/stderr" &
    agents+=($!)
    within 10 'the agent does not serve' test -p "$1/vrxscaout.fifo"
    vrx-scope start >/dev/null
}

# storm SECONDS: 20,000 events a second from four threads, all of which have to be delivered and fetched.
storm() {
    local count=$((20000 * $1)) sent fetched
    vrx-sim send "storm queue-full lun=1 rate=20000 threads=4 for=$1s" 'wait storms' >/dev/null
    sent=$(vrx-sim send report | sed -n 's/.*delivered=\([0-9]*\).*/\1/p')
    fetched=$(vrx-scope fetch --ndjson | sed -n 's/.*"occurrences":\([0-9]*\).*/\1/p' | awk '{ n += $1 } END { print n }')
    ((sent >= count * 9 / 10)) || fail "a storm of $count got $sent delivered: it was held up"
    ((sent == fetched)) || fail "$sent events were delivered, $fetched fetched"
    delivered=$sent
}

# stop WITHIN: by -s. Prints how long it took.
stop() {
    local begin=${EPOCHREALTIME/./}
    vrx-sca -s || fail 'vrx-sca -s failed'
    took=$(((${EPOCHREALTIME/./} - begin) / 1000))
    ((took < $1 * 1000)) || fail "the end took $took ms"
}

(($(id -u) == 0)) || fail 'only root can mount disks'
mkdir "$disk" "$work/small"
truncate -s 64M "$work/image"
mkfs.ext4 -q "$work/image"
mount -o loop "$work/image" "$disk"
mount -t tmpfs -o size=64k none "$work/small"

start "$work/run" "$disk/log"
fsfreeze -f "$disk"
storm 5
stop 10
printf 'log on a disk that stands still: %s events in 5 s, all fetched; ended after %s ms\n' "$delivered" "$took"

start "$work/run" "$disk/log2"
grep -q 'the log file does not open' "$work/stderr" || fail 'a start without its log does not say so'
storm 1
fsfreeze -u "$disk"
within 10 'what was lost is not told' grep -q 'Starting the ScopeAgent' "$disk/log2"
stop 10
printf 'start with its log on such a disk: %s events, all fetched; the log opened when the disk moved\n' "$delivered"

start "$disk/run" "$work/log"
within 10 'no statistics' test -f "$disk/run/vrx-sca.stats"
fsfreeze -f "$disk"
storm 5
fsfreeze -u "$disk"
stop 10
printf 'runtime directory on a disk that stands still: %s events, all fetched; ended after %s ms\n' "$delivered" "$took"

start "$work/run" "$work/small/log"
storm 2
vrx-sim send 'plogi times=5000' >/dev/null
rm -f "$work/small/fill"
dd if=/dev/zero of="$work/small/fill" bs=1k 2>/dev/null || :
vrx-sim send 'plogi times=5000' >/dev/null
: >"$work/small/log"
rm -f "$work/small/fill"
within 10 'what was lost is not told' grep -q 'log records were lost: No space left on device' "$work/small/log"
stop 10
printf 'log on a full disk: %s events, all fetched; %s\n' "$delivered" \
    "$(grep -o '[0-9]* log records were lost.*' "$work/small/log" | head -n 1)"
