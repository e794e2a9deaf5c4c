#!/usr/bin/env bash
# usage: run.sh BUILD [--tables]
# Boots a stock Debian kernel in qemu, with the programs below BUILD and tools/vm/story.sh for its init, and ends with
# status 0 if the story went as it must. The guest has nothing of this machine but its console. Everything lies in
# build/vm; the kernel's package stays there for the next time.
set -euo pipefail
umask 022 # the agent refuses a library that others may write
programs=$(cd "$1" && pwd -P)
tables=${2:-}
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
story=$PWD/tools/vm/story.sh
mkdir -p build/vm
cd build/vm

die() {
    printf 'vm: %s\n' "$1" >&2
    exit 1
}

# Seconds that are left of five minutes.
left() {
    printf '%d\n' $((SECONDS < 284 ? 285 - SECONDS : 1))
}

# Those that two Fibre Channel hosts over Ethernet need, in the order in which they are loaded.
modules=(drivers/scsi/scsi_common crypto/crc32c_generic drivers/scsi/scsi_mod drivers/scsi/scsi_transport_fc
    drivers/scsi/libfc/libfc drivers/scsi/fcoe/libfcoe drivers/scsi/fcoe/fcoe drivers/net/veth)

get_kernel() {
    local package packages=(linux-image-*.deb) files=("${modules[@]/#/*/kernel/}")
    [[ ! -d kernel ]] || return 0
    if [[ ! -f ${packages[0]} ]]; then
        package=$(apt-cache depends linux-image-amd64 | awk '/Depends: linux-image-/ && !seen++ { print $2 }')
        [[ -n $package ]] || die 'apt knows no linux-image-amd64: apt-get update?'
        printf 'vm: downloads %s\n' "$package"
        rm -rf download
        mkdir download
        (cd download && timeout --foreground -k 5 "$(left)" apt-get -q download "$package") >download.log 2>&1 ||
            die "could not download $package, apt-get update? See $PWD/download.log"
        mv download/*.deb .
        rmdir download
        packages=(linux-image-*.deb)
    fi
    rm -rf kernel.new
    mkdir kernel.new
    dpkg-deb --fsys-tarfile "${packages[0]}" |
        timeout --foreground -k 5 "$(left)" tar -x -C kernel.new --wildcards './boot/vmlinuz-*' "${files[@]/%/.ko}"
    mv kernel.new kernel
}

# The programs with the libraries that they are linked with, at the same paths as here.
make_initramfs() {
    local program module
    rm -rf root
    mkdir -p root/bin root/modules
    cp "$(command -v busybox)" root/bin/busybox
    cp "$story" root/init
    for program in "$(command -v jq)" "$programs"/{backend/scopeagent/vrx-sca,sensor/vrx-scope/vrx-scope} \
        "$programs"/libdfc/fchost/libdfc-fchost.so; do
        cp "$program" root/bin/
        ldd "$program" | awk '$2 == "=>" { print $3 } $1 ~ "^/" { print $1 }' | xargs -r cp -Lu --parents -t root
    done
    for module in "${modules[@]}"; do
        cp kernel/lib/modules/*/kernel/"$module.ko" root/modules/
    done
    printf '%s\n' "${modules[@]##*/}" >root/modules/order
    (cd root && find . -print0 | cpio -o -0 -H newc -R 0:0 --quiet) >initramfs
    rm -rf root
}

get_kernel
make_initramfs
printf 'vm: boots %s\n' kernel/boot/vmlinuz-*
# Without KVM: not every machine has one that works. A guest that panics reboots, which ends qemu.
trap 'jobs -p | xargs -r kill' EXIT
timeout --foreground -k 5 "$(left)" qemu-system-x86_64 -accel tcg -m 512 -nodefaults -display none -no-reboot \
    -serial stdio -kernel kernel/boot/vmlinuz-* -initrd initramfs \
    -append "console=ttyS0 quiet loglevel=3 panic=-1 tables=$tables ${NO_COLOR:+NO_COLOR=1}" </dev/null |
    sed -u 's/\r//g' | tee console.log &
wait $! || die "qemu failed, or took too long: see $PWD/console.log"
trap - EXIT
grep -qx 'vm: the story went as it must' console.log || die "FAILED, after $SECONDS s: see $PWD/console.log"
printf 'vm: ok (%d s)\n' "$SECONDS"
