#!/bin/busybox sh
# shellcheck shell=dash
# The init of the guest that run.sh boots: two Fibre Channel hosts over a pair of Ethernet interfaces, vf0 and vf1, that
# see each other; the agent with libdfc-fchost.so; what happens to the hosts and to SCSI commands, and the records that
# it must give. Below, a host is called by its interface. The parts lie in story/; tables and parts come from run.sh.
set -eu
/bin/busybox mkdir -p /proc /sys /dev /tmp /run
/bin/busybox --install -s /bin
export PATH=/bin ZT_VRX_SENSOR_DIR=/run/vrx-sca ZT_LIBDFC=/bin/libdfc-fchost.so
export ZT_LIBDFC_FCHOST_PERIOD=0.25 ZT_LIBDFC_FCHOST_LOG=/tmp/library.log
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /run
mount -t tracefs tracefs /sys/kernel/tracing
mkdir /run/vrx-sca
cd /tmp

# shellcheck source=/dev/null
. /story/frame.sh
# shellcheck source=/dev/null
. /story/target.sh

modprobe -a crc32c_generic fcoe veth
ip link add vf0 type veth
ip link set veth0 name vf1
for interface in vf0 vf1; do
    ip link set "$interface" address "02:00:00:00:00:f${interface#vf}" mtu 2500 up
done

[ -n "$parts" ] || parts=links,answers,outage,storm,processors,ways,kills,cost
for part in $(echo "$parts" | tr , ' '); do
    # shellcheck source=/dev/null
    . "/story/$part.sh"
done
