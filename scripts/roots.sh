# Disposable Debian machines; sourced after lib.sh by scripts that need root.
#
# build/roots/SUITE is a root folder, created once by debootstrap. A machine is an overlay of it,
# whose changes are kept in memory. Mounts are visible only to the script, so nothing of a machine
# outlives the script, however it ends. Root folders of other architectures are
# build/roots/SUITE-ARCHITECTURE; they need qemu and Linux 6.7 or newer.

roots=$PWD/build/roots
scratch=$roots/scratch
machine=$scratch/machine
archives=/var/cache/apt/archives
emulator=$scratch/emulator

# Restarts the script in its own mount namespace: inOwnMounts ARGUMENT...
inOwnMounts() {
    [[ $(id -u) == 0 ]] || die "not root: mounts and chroot need root"
    if [[ ${SODREL_OWN_MOUNTS-} != yes ]]; then
        SODREL_OWN_MOUNTS=yes exec unshare --mount -- "$script" "$@"
    fi
    unset SODREL_OWN_MOUNTS
    mkdir -p "$scratch"
    mount -t tmpfs sodrel-scratch "$scratch"
}

# Runs a command, and prints its output only if it fails: quietly COMMAND...
quietly() {
    "$@" >"$scratch/log" 2>&1 </dev/null || {
        cat "$scratch/log" >&2
        die "failed: $*"
    }
}

# Prints the mirror that this machine uses for its own Debian release. Needs no package lists.
debianMirror() {
    local release mirrors
    # shellcheck source=/dev/null
    release=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
    mirrors=$(apt-get update --print-uris |
        sed -nE "s#^'([^']*)/dists/($release|stable|oldstable)/.*#\1#p")
    [[ $mirrors ]] || die "this machine has no Debian mirror among its sources"
    echo "${mirrors%%$'\n'*}"
}

# Creates the root folder of a release with what users of the libraries have, a compiler, CMake and
# pkg-config, but none of the libraries' dependencies: rootIs SUITE[-ARCHITECTURE]
rootIs() {
    local suite=${1%-*} root=$roots/$1 new=$roots/$1.new foreign=() mirror lock
    # Another script may be creating it, or have been killed while doing so.
    exec {lock}>"$root.lock"
    flock "$lock"
    if [[ ! -e $root ]]; then
        say "$1: creating the root folder (once)"
        mirror=$(debianMirror)
        rm -rf "$new"
        # It need not survive a loss of power.
        mkdir -p "$new/etc/dpkg/dpkg.cfg.d" "$archives/partial"
        echo force-unsafe-io >"$new/etc/dpkg/dpkg.cfg.d/unsafe-io"
        [[ $suite == "$1" ]] || foreign=(--foreign "--arch=${1#*-}")
        quietly debootstrap "${foreign[@]}" --variant=minbase \
            --include=cmake,g++,make,pkgconf --cache-dir="$archives" "$suite" "$new" "$mirror"
        if [[ $suite != "$1" ]]; then
            # User namespaces cannot create devices, which debootstrap accepts from containers.
            mount -t proc sodrel-root "$new/proc"
            cp -a /dev/{null,zero,full,random,urandom,tty,console,ptmx} "$new/dev"
            machine=$new quietly asArchitecture container=lxc \
                /debootstrap/debootstrap --second-stage
        fi
        mv "$new" "$root"
    fi
    exec {lock}>&-
}

# Starts a machine of a release: machineIs SUITE[-ARCHITECTURE]
machineIs() {
    rootIs "$1"
    mkdir "$machine" "$scratch/changes" "$scratch/work"
    mount -t overlay sodrel-machine "$machine" \
        -o "volatile,lowerdir=$roots/$1,upperdir=$scratch/changes,workdir=$scratch/work"
    mount -t proc sodrel-machine "$machine/proc"
    mount --bind "$archives" "$machine/var/cache/apt/archives"
}

# Gives the machine the devices and control groups that a box needs.
boxCanRun() {
    for folder in dev sys; do
        mount --rbind "/$folder" "$machine/$folder"
    done
}

# What runs commands on a machine.
machineEnvironment=(env -i DEBIAN_FRONTEND=noninteractive HOME=/root LC_ALL=C.UTF-8
    PATH=/usr/sbin:/usr/bin:/sbin:/bin)

# onMachine COMMAND...
onMachine() {
    chroot "$machine" "${machineEnvironment[@]}" "$@"
}

# installOnMachine PACKAGE...
installOnMachine() {
    # The package lists of an older root folder may be stale, which only a failure shows.
    # shellcheck disable=SC2016
    quietly onMachine sh -c '
        install() { apt-get install -y --no-install-recommends "$@"; }
        install "$@" || { apt-get update && install "$@"; }' sh "$@"
}

# Prepares asArchitecture, with the qemu of the running machine: emulatorIs MULTIARCH
emulatorIs() {
    multiarch=$1
    installOnMachine qemu-user-static
    cp "$machine/usr/bin/qemu-${multiarch%%-*}-static" "$emulator"
}

emulatorDel() {
    rm -f "$emulator"
}

# Like onMachine, but if there is an emulator, the kernel runs programs of its architecture with it,
# for this command and its children only: asArchitecture COMMAND...
asArchitecture() {
    local header mask
    if [[ ! -e $emulator ]]; then
        onMachine "$@"
        return
    fi
    # An ELF header from its magic to the machine, of any ABI and type.
    header=$(head -c 20 "$machine/usr/lib/$multiarch/libc.so.6" | od -An -v -t x1 | tr -d '\n')
    mask=$(printf '\\xff%.0s' {1..7})$(printf '\\x00%.0s' {1..11})'\xff\xff'
    # The user namespace maps all users, so that packages can be installed; only a process outside
    # can write its maps. The machine is entered last: a chroot has no way to a user namespace.
    # shellcheck disable=SC2016
    REGISTRATION=":$multiarch:M::${header// /\\x}:$mask:$emulator:PF" bash -euc '
        coproc {
            read -r
            echo 0 0 65536 >"/proc/$$/uid_map"
            echo 0 0 65536 >"/proc/$$/gid_map"
            echo
        }
        exec 3<&0 4>&1 <&"${COPROC[0]}" >&"${COPROC[1]}"
        exec unshare --user --mount bash -euc '\''
            echo
            read -r
            mount -t binfmt_misc sodrel-machine "$1/proc/sys/fs/binfmt_misc"
            printf %s "$REGISTRATION" >"$1/proc/sys/fs/binfmt_misc/register"
            exec chroot "$@" <&3 >&4 3<&- 4>&-'\'' "$@"' \
        asArchitecture asArchitecture "$machine" "${machineEnvironment[@]}" "$@"
}

machineDel() {
    # Lazily, in case something still runs there.
    umount --recursive --lazy "$machine"
    rm -rf "$machine" "$scratch/changes" "$scratch/work"
}
