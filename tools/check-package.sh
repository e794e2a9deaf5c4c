#!/usr/bin/env bash
# check-package.sh BUILD_DIR: makes the Debian package of a release build, installs it with dpkg over a copy of this
# system that is thrown away, runs what is installed, and looks for anything left behind when it is removed. The copy
# is an overlay, and needs root: in a user namespace the system's own directories belong to nobody who may write.
set -euo pipefail
umask 022

die() {
    printf 'check-package: %s\n' "$1" >&2
    exit 1
}

# In the copy. The functions from here on run in a shell that knows nothing else of this script.

# says TEXT COMMAND...: the command succeeds, and prints the text.
says() {
    local text=$1 output
    shift
    output=$("$@" 2>&1) || die "'$*' failed: $output"
    [[ $output == *"$text"* ]] || die "'$*' does not say '$text' but: $output"
}

# silent COMMAND...: the command succeeds and has nothing to say.
silent() {
    local output
    output=$("$@" 2>&1) || die "'$*' failed: $output"
    [[ -z $output ]] || die "'$*' says: $output"
}

check_unit() {
    local figure example drop_in=/etc/systemd/system/vrx-sca.service.d
    figure=$(systemd-analyze security --offline=true --no-pager vrx-sca.service |
        sed -n 's/.*Overall exposure level for .*: \([0-9.]*\) .*/\1/p')
    awk -v figure="$figure" 'BEGIN { exit !(figure != "" && figure <= 0.7) }' ||
        die "the unit's exposure is '$figure', more than 0.7"
    printf 'exposure %s\n' "$figure"
    silent systemd-analyze verify --man=no vrx-sca.service
    for example in vendor-library fchost; do
        install -D -m 0644 -t "$drop_in" "/usr/share/doc/vrx-sca/examples/$example.conf"
        silent systemd-analyze verify --man=no vrx-sca.service
        rm -r "$drop_in"
    done
}

# The agent as the unit starts it. What tells is its answer to a Stop command.
check_agent() {
    local agent log=/var/log/vrx-sca/vrx-sca.log answer
    export ZT_LIBDFC
    ZT_LIBDFC=$(dpkg-query -L vrx-sca | grep '/libdfc-sim\.so$')
    install -d -m 0700 /run/vrx-sca
    install -d -m 0750 /var/log/vrx-sca
    # Once the log has this line, the pipes are there.
    vrx-sca -D false -l "$log" 2>/dev/null &
    agent=$!
    grep -q -m 1 'Creating the Heartbeat Handler' < <(timeout 20 tail -n +1 -F --pid="$agent" "$log" 2>/dev/null) ||
        die "the agent does not start: $(cat "$log")"
    printf 'VRX1\0\0\0\7\0\0\0\1\2' | timeout 10 tee /run/vrx-sca/vrxscacmd.fifo >/dev/null || die 'no one reads commands'
    answer=$(timeout 10 head -c 17 /run/vrx-sca/vrxscaout.fifo | od -An -v -tx1 | tr -d ' \n') ||
        die 'the agent does not answer'
    [[ $answer == 5652583100000007000000050000000000 ]] || die "the agent answers '$answer'"
    vrx-sca -s || die 'the agent is not stopped'
    wait "$agent" || die "the agent's status is $?"
}

inside() {
    dpkg --force-unsafe-io -i /package.deb >/dpkg.log 2>&1 || die "dpkg -i: $(cat /dpkg.log)"
    export ZT_VRX_SENSOR_DIR=/run/vrx-sca
    says 'vrx-sca v' vrx-sca -v
    says '-D' vrx-sca -h
    says 'vrx-scope' vrx-scope --version
    says 'vrx-sim check' vrx-sim -h
    says ': ok' vrx-sim check /usr/share/vrx-sca/scenarios/*.scenario
    check_unit
    check_agent
    dpkg -r vrx-sca >/dpkg.log 2>&1 || die "dpkg -r: $(cat /dpkg.log)"
    dpkg -P vrx-sca >/dpkg.log 2>&1 || die "dpkg -P: $(cat /dpkg.log)"
    rm /package.deb /dpkg.log
}

# In namespaces of its own, with a directory to mount over.
namespace() {
    local scratch=$1 upper=$1/upper root=$1/root left
    mount -t tmpfs tmpfs "$scratch"
    mkdir "$upper" "$scratch/work" "$root"
    mount -t overlay overlay -o "lowerdir=/,upperdir=$upper,workdir=$scratch/work" "$root"
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    mount -t tmpfs tmpfs "$root/run" # no service manager runs in here
    cat >"$root/package.deb"
    chroot "$root" bash -euo pipefail -c "$(declare -f die says silent check_unit check_agent inside); inside"

    # What was written over the system, but for dpkg's own notes and those of its trigger for manual pages; of
    # directories only those that the system has not.
    left=$(cd "$upper" && find . -mindepth 1 \( -path ./var/lib/dpkg -o -path ./var/cache/man \) -prune -o \
        ! -path ./var/log/dpkg.log -print | while IFS= read -r path; do
        [[ -d $path && ! -L $path && -d /$path ]] || printf '%s\n' "$path"
    done)
    [[ -z $left ]] || die $'left behind or changed:\n'"$left"
}

if [[ ${1-} == --namespace ]]; then
    namespace "$2"
    exit
fi
(($# == 1)) || die 'usage: check-package.sh BUILD_DIR'
as_root=()
((EUID == 0)) || as_root=(sudo)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/mount"
cpack --config "$1/CPackConfig.cmake" -B "$scratch" >"$scratch/cpack.log" 2>&1 || die "cpack: $(cat "$scratch/cpack.log")"
for package in "$scratch"/vrx-sca_*.deb; do
    "${as_root[@]}" unshare --mount --pid --fork --kill-child --ipc --net \
        bash "${BASH_SOURCE[0]}" --namespace "$scratch/mount" <"$package"
done
