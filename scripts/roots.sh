# Disposable Debian machines; sourced after lib.sh by scripts that need root.
#
# build/roots/SUITE is a root folder, created once by debootstrap. A machine is an overlay of it,
# whose changes are kept in memory. Mounts are visible only to the script, so nothing of a machine
# outlives the script, however it ends.

roots=$PWD/build/roots
scratch=$roots/scratch
machine=$scratch/machine
archives=/var/cache/apt/archives

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
# pkg-config, but none of the libraries' dependencies: rootIs SUITE
rootIs() {
    local suite=$1 new=$roots/$1.new mirror lock
    # Another script may be creating it, or have been killed while doing so.
    exec {lock}>"$roots/$suite.lock"
    flock "$lock"
    if [[ ! -e $roots/$suite ]]; then
        say "$suite: creating the root folder (once)"
        mirror=$(debianMirror)
        rm -rf "$new"
        # It need not survive a loss of power.
        mkdir -p "$new/etc/dpkg/dpkg.cfg.d" "$archives/partial"
        echo force-unsafe-io >"$new/etc/dpkg/dpkg.cfg.d/unsafe-io"
        quietly debootstrap --variant=minbase --include=cmake,g++,make,pkgconf \
            --cache-dir="$archives" "$suite" "$new" "$mirror"
        mv "$new" "$roots/$suite"
    fi
    exec {lock}>&-
}

# Starts a machine of a release: machineIs SUITE
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

machineDel() {
    # Lazily, in case something still runs there.
    umount --recursive --lazy "$machine"
    rm -rf "$machine" "$scratch/changes" "$scratch/work"
}
