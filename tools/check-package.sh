#!/usr/bin/env bash
# check-package.sh BUILD_DIR: makes the Debian packages of a release build, installs them with dpkg over a copy of this
# system that is thrown away, over their predecessor too, runs what is installed, and looks for anything left behind when
# it is removed. The copy is an overlay, and needs root: in a user namespace the system's own directories belong to nobody
# who may write.
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

# packages DPKG_OPTION... [FILE...]: what they say is in /run/dpkg.log.
packages() {
    dpkg --force-unsafe-io --no-triggers "$@" >/run/dpkg.log 2>&1 || die "dpkg $*: $(cat /run/dpkg.log)"
}

# check_unit NAME BOUND DROP_IN...: how much the unit leaves to its program, by systemd's measure, with these.
check_unit() {
    local unit=$1.service bound=$2 figure drop_ins=/etc/systemd/system/$1.service.d
    shift 2
    install -d "$drop_ins"
    (($# == 0)) || install -m 0644 -t "$drop_ins" "$@"
    silent systemd-analyze verify --man=no "$unit"
    figure=$(systemd-analyze security --offline=true --no-pager "$unit" |
        sed -n 's/.*Overall exposure level for .*: \([0-9.]*\) .*/\1/p')
    awk -v figure="$figure" -v bound="$bound" 'BEGIN { exit !(figure != "" && figure <= bound) }' ||
        die "the exposure of $unit with '${*##*/}' is '$figure', more than $bound"
    printf 'exposure %s %s %s\n' "$figure" "$unit" "${*##*/}"
    rm -r "$drop_ins"
}

# start_agent LIBRARY: as the unit starts it.
start_agent() {
    local log=/var/log/vrx-sca/vrx-sca.log
    install -d -m 0700 /run/vrx-sca
    install -d -m 0750 /var/log/vrx-sca
    rm -f "$log"
    # Once the log has this line, the pipes are there.
    ZT_LIBDFC=/usr/lib/vrx-sca/$1 vrx-sca -D false -l "$log" 2>/dev/null &
    agent=$!
    grep -q -m 1 'Creating the Heartbeat Handler' < <(timeout 20 tail -n +1 -F --pid="$agent" "$log" 2>/dev/null) ||
        die "the agent does not start: $(cat "$log")"
}

stop_agent() {
    vrx-sca -s || die 'the agent is not stopped'
    wait "$agent" || die "the agent's status is $?"
}

# What tells is its answer to a Stop command.
check_agent() {
    local answer
    start_agent libdfc-sim.so
    printf 'VRX1\0\0\0\7\0\0\0\1\2' | timeout 10 tee /run/vrx-sca/vrxscacmd.fifo >/dev/null || die 'no one reads commands'
    answer=$(timeout 10 head -c 17 /run/vrx-sca/vrxscaout.fifo | od -An -v -tx1 | tr -d ' \n') ||
        die 'the agent does not answer'
    [[ $answer == 5652583100000007000000050000000000 ]] || die "the agent answers '$answer'"
    stop_agent
}

# unpack PACKAGE VERSION SETTINGS: into /run/old, as it was then, with others in its file for them.
unpack() {
    rm -rf /run/old
    dpkg-deb -R "/packages/$1"_*.deb /run/old
    sed -i "s/^Version: .*/Version: $2/" /run/old/DEBIAN/control
    sed -i '1s/.*/# As it was then./' "/run/old$3"
}

# make_predecessor VERSION PACKAGE...: vrx-sca as it was then, with the files of these packages.
make_predecessor() {
    local package
    unpack vrx-sca "$1" /etc/default/vrx-sca
    shift
    for package; do
        dpkg-deb -x "/packages/$package"_*.deb /run/old
        rm -r "/run/old/usr/share/doc/$package"
    done
    dpkg-deb -b /run/old /run/old.deb >/run/dpkg.log
}

# check_restarts TEXT: what the scripts of packages had systemctl do, but for the manager's own sake.
check_restarts() {
    local restarts
    restarts=$(grep -v daemon-reload /run/systemctl.log || :)
    [[ $restarts == "$1" ]] || die "the service manager is to '$restarts', not '$1'"
    : >/run/systemctl.log
}

# upgrade_in_order PACKAGE...: as apt does it, what a package breaks is out of order until its own turn comes.
upgrade_in_order() {
    local package files=()
    packages -i /run/old.deb
    for package; do
        files+=("/packages/$package"_*.deb)
    done
    packages --auto-deconfigure -i "${files[@]}"
    [[ $* != *libdfc-fchost* ]] || says "libdfc-fchost: $library" dpkg-query -S "$library"
    says 'vrx-scope: /usr/bin/vrx-scope' dpkg-query -S /usr/bin/vrx-scope
    silent dpkg --verify "$@"
    packages -P "$@"
}

# From the first version of vrx-sn: it is restarted, and what people have set stays.
check_sensor_upgrade() {
    unpack vrx-sn 2.3.0.5-2 /etc/vrx-sca/vrx-sn.conf
    dpkg-deb -b /run/old /run/old.deb >/run/dpkg.log
    packages -i /run/old.deb
    sed -i 's/^#keep-days=.*/keep-days=30/' /etc/vrx-sca/vrx-sn.conf
    : >/run/systemctl.log
    packages --force-confold -i /packages/vrx-sn_*.deb
    grep -qx keep-days=30 /etc/vrx-sca/vrx-sn.conf || die 'the configuration was not kept'
    check_restarts 'try-restart vrx-sn.service'
    packages -P vrx-sn
}

# From the version with all in one package, one after the other with an agent that runs with the file which changes the
# package; without the settings; at once, in both orders. From the one that had vrx-scope, in both orders.
check_upgrade() {
    local library=/usr/lib/vrx-sca/libdfc-fchost.so
    mkdir -p /run/systemd/system /run/bin /run/sys/class/fc_{host/host3,remote_ports}
    cat >/run/bin/systemctl <<'END'
#!/bin/sh
case $1 in show) cat /run/vrx-sca/vrx-sca.pid ;; *) echo "$@" >>/run/systemctl.log ;; esac
END
    chmod +x /run/bin/systemctl
    echo 0x2000000000000003 | tee /run/sys/class/fc_host/host3/{node,port}_name >/dev/null
    make_predecessor 2.3.0.5 libdfc-fchost vrx-scope

    packages -i /run/old.deb
    printf 'ZT_LIBDFC=%s\n' /opt/vendor/lib/libdfc-x.so "\"$library\"" >>/etc/default/vrx-sca
    : >/run/systemctl.log
    start_agent libdfc-fchost.so
    packages --force-confold -i /packages/vrx-sca_*.deb
    grep -qF "$library" /etc/default/vrx-sca || die 'the settings were not kept'
    grep -q 'not restarted; .* libdfc-fchost' /run/dpkg.log || die "nothing is said of the library: $(cat /run/dpkg.log)"
    check_restarts ''
    packages -i /packages/libdfc-fchost_*.deb
    check_restarts 'try-restart vrx-sca.service'
    stop_agent
    start_agent libdfc-fchost.so
    packages -r libdfc-fchost
    grep -q 'will find no library' /run/dpkg.log || die "nothing is said at the removal: $(cat /run/dpkg.log)"
    check_restarts ''
    stop_agent
    packages -P vrx-sca libdfc-fchost

    packages -i /run/old.deb
    rm /etc/default/vrx-sca
    : >/run/systemctl.log
    packages --force-confold -i /packages/vrx-sca_*.deb
    check_restarts 'try-restart vrx-sca.service'
    packages -P vrx-sca

    upgrade_in_order vrx-sca libdfc-fchost vrx-scope
    upgrade_in_order vrx-scope libdfc-fchost vrx-sca
    make_predecessor 2.3.0.5-1 vrx-scope
    upgrade_in_order vrx-sca vrx-scope
    upgrade_in_order vrx-scope vrx-sca
    check_sensor_upgrade
    rm -r /run/systemd
}

# as_reader GROUP COMMAND...: as a user who is in no other group.
as_reader() {
    setpriv --reuid=65534 --regid=65534 --groups="$1" "${@:2}"
}

# The sensor as the unit starts it: root with one right, of the group. Who is in the group reads while it runs and behind
# its end, and who is not does not.
check_history() {
    local sensor moment
    export ZT_LIBDFC_SIM=/usr/share/vrx-sca/scenarios/link-flap.scenario
    start_agent libdfc-sim.so
    install -d -m 0750 -g vrx-sn /run/vrx-sn /var/lib/vrx-sn
    (
        umask 027
        RUNTIME_DIRECTORY=/run/vrx-sn exec setpriv --regid=vrx-sn --clear-groups --bounding-set=-all,+net_admin --no-new-privs \
            vrx-sn
    ) 2>/run/vrx-sn.err &
    sensor=$!
    for ((moment = 0; moment < 100; ++moment)); do
        [[ ! $(as_reader vrx-sn vrx-scope --ndjson history 2>&1) == *'"link'* ]] || break
        read -rt 0.2 <> <(:) || :
    done
    ((moment < 100)) || die "there is no history: $(cat /run/vrx-sn.err)"
    kill "$sensor"
    wait "$sensor" || die "the status of vrx-sn is $?: $(cat /run/vrx-sn.err)"
    stop_agent
    says '"link' as_reader vrx-sn vrx-scope --ndjson history
    ! as_reader nogroup vrx-scope history >/dev/null 2>&1 || die 'anybody reads the history'
    rm /run/vrx-sn.err
}

# The packages of the sensor's side, and that a user of the group reads the history.
check_sensor() {
    packages -i /packages/vrx-scope_*.deb /packages/vrx-sn_*.deb
    says 'vrx-scope' vrx-scope --version
    says 'vrx-sn' vrx-sn --version
    says 'vrx-hostsim' vrx-hostsim --version
    check_unit vrx-sn 1.6
    check_history
    packages -i /packages/vrx-sn_*.deb
}

# ask_web PATH: with what every Debian system has.
ask_web() {
    perl -MIO::Socket::UNIX -e 'my $web = IO::Socket::UNIX->new($ARGV[0]) or exit 1;
        print $web "GET $ARGV[1] HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"; $web->flush; print <$web>' \
        /run/vrx-web/vrx-web.socket "$1"
}

# Behind the end of the sensor whose history it shows. What its user may write is its socket, and no more.
check_web() {
    local web moment writable
    local user=(setpriv --reuid=vrx-web --regid=vrx-web --groups=vrx-sn --bounding-set=-all --no-new-privs)
    packages -i /packages/vrx-web_*.deb
    says 'vrx-web' vrx-web --version
    check_unit vrx-web 1.0
    install -d -m 0750 -o vrx-web -g vrx-web /run/vrx-web
    "${user[@]}" vrx-web --listen /run/vrx-web/vrx-web.socket 2>/run/vrx-web.err &
    web=$!
    for ((moment = 0; moment < 100; ++moment)); do
        [[ ! $(ask_web / 2>&1) == *'200 OK'* ]] || break
        read -rt 0.2 <> <(:) || :
    done
    ((moment < 100)) || die "vrx-web does not answer: $(cat /run/vrx-web.err)"
    says '"link' ask_web /api/v1/records
    says '503 ' ask_web /healthz # the sensor has ended
    says 'scopeagent_sensor_up 0' ask_web /metrics
    writable=$("${user[@]}" find /var/lib/vrx-sn /run/vrx-sn /run/vrx-sca /etc/vrx-sca -writable ! -type l 2>/dev/null) || :
    [[ -z $writable ]] || die "the user of vrx-web may write $writable"
    kill "$web"
    wait "$web" || die "the status of vrx-web is $?: $(cat /run/vrx-web.err)"
    rm -r /run/vrx-web.err /run/vrx-web
    packages -i /packages/vrx-web_*.deb
}

# depends PACKAGE
depends() {
    dpkg-query -W -f "\${Depends}\n" "$1"
}

inside() {
    local agent examples=/usr/share/doc/libdfc-fchost/examples
    export PATH=/run/bin:$PATH ZT_VRX_SENSOR_DIR=/run/vrx-sca
    export ZT_LIBDFC_FCHOST_SYSFS=/run/sys ZT_LIBDFC_FCHOST_LOG=/run/fchost.log
    check_upgrade

    packages -i /packages/vrx-sca_*.deb
    says 'vrx-sca v' vrx-sca -v
    says '-D' vrx-sca -h
    says 'vrx-sim check' vrx-sim -h
    says ': ok' vrx-sim check /usr/share/vrx-sca/scenarios/{,incidents/}*.scenario
    check_unit vrx-sca 0.7
    check_unit vrx-sca 2.8 /usr/share/doc/vrx-sca/examples/vendor-library.conf
    check_agent
    packages -i /packages/libdfc-fchost_*.deb
    check_unit vrx-sca 1.7 "$examples/fchost.conf"
    check_unit vrx-sca 2.1 "$examples"/fchost{,-perf}.conf
    grep -v CAP_SYS_ADMIN "$examples/fchost-perf.conf" >/run/fchost-perfmon.conf
    check_unit vrx-sca 1.8 "$examples/fchost.conf" /run/fchost-perfmon.conf
    says libbpf depends libdfc-fchost
    [[ $(depends vrx-sca) =~ ^libc6\ [^,]*,\ libgcc-s1\ [^,]*,\ libstdc\+\+6\ [^,]*$ ]] ||
        die "vrx-sca depends on more than the language: $(depends vrx-sca)"
    check_sensor
    check_web
    packages -r vrx-sca
    packages -P libdfc-fchost vrx-sca vrx-scope vrx-web vrx-sn
    rm -r /packages
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
    mkdir "$root/packages"
    tar -x -C "$root/packages"
    chroot "$root" bash -euo pipefail -c "$(declare -f); inside"

    # What was written over the system, but for dpkg's own notes, those of its trigger for manual pages, and the copies of
    # the lists of users and groups; of directories only those that the system has not, of files those that are others now.
    left=$(cd "$upper" && find . -mindepth 1 \( -path ./var/lib/dpkg -o -path ./var/cache/man \) -prune -o \
        ! -path ./var/log/dpkg.log ! -path './etc/*-' -print | while IFS= read -r path; do
        [[ -d $path && ! -L $path && -d /$path ]] || cmp -s "$path" "/$path" || printf '%s\n' "$path"
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
(cd "$scratch" && tar -c -- *.deb) | "${as_root[@]}" unshare --mount --pid --fork --kill-child --ipc --net \
    bash "${BASH_SOURCE[0]}" --namespace "$scratch/mount"
