#!/usr/bin/env bash
# usage: run.sh BUILD [--kernel 6.1|6.12] [--tables] [PART...]
# Boots a stock Debian kernel in qemu, with the programs below BUILD and tools/vm/story.sh for its init, and ends with
# status 0 if the story, or those parts of it, went as it must. The guest has nothing of this machine but its console.
# Everything lies in build/vm/KERNEL; the kernel's package stays there for the next time.
set -euo pipefail
umask 022 # the agent refuses a library that others may write
programs=$(cd "$1" && pwd -P)
shift
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts=$PWD/tools/vm
kernel=6.1
tables=
seconds=900

die() {
    printf 'vm: %s\n' "$1" >&2
    exit 1
}

while (($# != 0)) && [[ $1 == -* ]]; do
    case $1 in
        --kernel) kernel=${2:-} && shift ;;
        --tables) tables=yes ;;
        *) die "unknown option $1" ;;
    esac
    shift
done
case $kernel in
    6.1) meta=linux-image-amd64 ;;
    6.12) meta=linux-image-6.12-amd64 ;;
    *) die 'the kernels are 6.1 and 6.12' ;;
esac
parts=$*
mkdir -p "build/vm/$kernel"
cd "build/vm/$kernel"

# Seconds that are left.
left() {
    printf '%d\n' $((SECONDS < seconds - 1 ? seconds - SECONDS : 1))
}

# What the story loads, and where it and what it needs may lie.
modules=(crc32c_generic crct10dif_generic fcoe veth sd_mod sg tcm_fc target_core_user scsi_debug dm-multipath
    dm-service-time scsi_dh_alua ext4)
folders=(block crypto lib fs/configfs fs/ext4 fs/jbd2 fs/mbcache drivers/md/dm- drivers/scsi drivers/target drivers/uio
    drivers/net/veth)

# Debian's multipath, and what it goes by, with the libraries that a system without it may lack.
multipath=(multipath-tools udev dmsetup libaio1 libbsd0 libedit2 libjson-c5 libkmod2 libmd0 liburcu8)

# download PACKAGE...: from the archive into here.
download() {
    printf 'vm: downloads %s\n' "$*"
    rm -rf download
    mkdir download
    (cd download && timeout --foreground -k 5 "$(left)" apt-get -q download "$@") >download.log 2>&1 ||
        die "could not download $*, apt-get update? See $PWD/download.log"
    mv download/*.deb .
    rmdir download
}

get_kernel() {
    local package packages=(linux-image-*.deb) files=("${folders[@]/#/*/kernel/}")
    [[ $(cat kernel/folders 2>/dev/null) != "${folders[*]}" ]] || return 0
    if [[ ! -f ${packages[0]} ]]; then
        package=$(apt-cache depends "$meta" | awk '/Depends: linux-image-/ && !seen++ { print $2 }')
        [[ -n $package ]] || die "apt knows no $meta: apt-get update?"
        download "$package"
        packages=(linux-image-*.deb)
    fi
    rm -rf kernel kernel.new
    mkdir kernel.new
    dpkg-deb --fsys-tarfile "${packages[0]}" | timeout --foreground -k 5 "$(left)" \
        tar -x -C kernel.new --wildcards './boot/vmlinuz-*' '*/modules.builtin' "${files[@]/%/*}"
    find kernel.new -name '*.ko.xz' -exec xz -d {} +
    busybox depmod -b "$PWD/kernel.new" "$(basename kernel.new/lib/modules/*)"
    echo "${folders[*]}" >kernel.new/folders
    mv kernel.new kernel
}

# Documents and the data of devices that the guest has not are left out.
get_multipath() {
    local file
    [[ ! -d multipath ]] || return 0
    download "${multipath[@]}"
    rm -rf multipath.new
    for file in "${multipath[@]}"; do
        dpkg-deb -x "$file"_*.deb multipath.new
    done
    rm -rf multipath.new/{etc,usr/share,usr/include} multipath.new/{,usr/}lib/udev/hwdb*
    mv multipath.new multipath
}

# The files of the modules and of those that they need. One that this kernel has not got is built in, or not needed.
module_files() {
    awk -v wanted="${modules[*]}" '
        BEGIN { split(wanted, names, " "); for (at in names) is_wanted[names[at]] = 1 }
        {
            name = $1
            sub(/.*\//, "", name)
            sub(/\.ko:$/, "", name)
            sub(/:$/, "", $1)
            if (name in is_wanted) for (at = 1; at <= NF; ++at) print $at
        }' lib/modules/*/modules.dep | sort -u
}

# Those of this system, at the same paths as here; the others lie in the packages.
libraries_of() {
    LD_LIBRARY_PATH=multipath/lib:multipath/lib/x86_64-linux-gnu:multipath/usr/lib/x86_64-linux-gnu ldd "$1" |
        awk '$2 == "=>" { print $3 } $1 ~ "^/" { print $1 }' | grep '^/' | xargs -r cp -Lu --parents -t root
}

# The programs, with the libraries that they are linked with.
make_initramfs() {
    local program
    rm -rf root
    mkdir -p root/bin
    cp "$(command -v busybox)" root/bin/busybox
    cp -r "$scripts"/story.sh root/init
    cp -r "$scripts/story" root/
    cp -a multipath/. root/
    for program in "$(command -v jq)" "$(command -v setpriv)" "$(PATH=$PATH:/usr/sbin command -v bpftool)" \
        "$programs"/{backend/scopeagent/vrx-sca,sensor/vrx-sn/vrx-sn,sensor/vrx-scope/vrx-scope,tools/vm/zt-vm-scsi} \
        "$programs"/libdfc/fchost/libdfc-fchost.so; do
        cp "$program" root/bin/
        libraries_of "$program"
    done
    for program in multipath/{sbin/multipathd,sbin/dmsetup,bin/udevadm,lib/udev/scsi_id}; do
        libraries_of "$program"
    done
    (
        cd kernel
        module_files | sed "s|^|$(echo lib/modules/*)/|" | xargs cp --parents -t ../root lib/modules/*/modules.dep
    )
    (cd root && find . -print0 | cpio -o -0 -H newc -R 0:0 --quiet) >initramfs
    rm -rf root
}

get_kernel
get_multipath
make_initramfs
printf 'vm: boots %s\n' kernel/boot/vmlinuz-*
# Without KVM: not every machine has one that works. A guest that panics reboots, which ends qemu.
trap 'jobs -p | xargs -r kill' EXIT
timeout --foreground -k 5 "$(left)" qemu-system-x86_64 -accel tcg -smp 2 -m 1024 -nodefaults -display none -no-reboot \
    -serial stdio -kernel kernel/boot/vmlinuz-* -initrd initramfs \
    -append "console=ttyS0 quiet loglevel=3 panic=-1 tables=$tables parts=${parts// /,} ${NO_COLOR:+NO_COLOR=1}" \
    </dev/null | sed -u 's/\r//g' | tee console.log &
wait $! || die "qemu failed, or took too long: see $PWD/console.log"
trap - EXIT
grep -qx 'vm: the story went as it must' console.log || die "FAILED, after $SECONDS s: see $PWD/console.log"
printf 'vm: ok (%d s)\n' "$SECONDS"
