# Debian machines to try things on; sourced after lib.sh by scripts that take root.
#
# build/roots/SUITE is a root that debootstrap has made, once. A machine is an overlay of it, whose
# changes are in memory. Both are mounted for the script alone, so nothing of a machine outlives it,
# however it ends.

roots=$PWD/build/roots
scratch=$roots/scratch
machine=$scratch/machine
archives=/var/cache/apt/archives

# Starts the script anew in a mount namespace of its own: inOwnMounts ARGUMENT...
inOwnMounts() {
    [[ $(id -u) == 0 ]] || die "takes root, for mounts and chroot"
    if [[ ${SODREL_OWN_MOUNTS-} != yes ]]; then
        SODREL_OWN_MOUNTS=yes exec unshare --mount -- "$script" "$@"
    fi
    unset SODREL_OWN_MOUNTS
    mkdir -p "$scratch"
    mount -t tmpfs sodrel-scratch "$scratch"
}

# Prints what a command says only when it fails.
quietly() {
    "$@" >"$scratch/log" 2>&1 </dev/null || {
        cat "$scratch/log" >&2
        die "failed: $*"
    }
}

# Where the machine fetches its own Debian release from; known even before any package list is.
debianMirror() {
    local release mirrors
    # shellcheck source=/dev/null
    release=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
    mirrors=$(apt-get update --print-uris |
        sed -nE "s#^'([^']*)/dists/($release|stable|oldstable)/.*#\1#p")
    [[ $mirrors ]] || die "this machine has no Debian mirror among its sources"
    echo "${mirrors%%$'\n'*}"
}

# Makes the root of a release, with what a user of the libraries has: a compiler and what finds
# libraries, but nothing of what these depend on.
rootIs() {
    local suite=$1 new=$roots/$1.new mirror lock
    # Somebody else may be making it, or have been killed doing so.
    exec {lock}>"$roots/$suite.lock"
    flock "$lock"
    if [[ ! -e $roots/$suite ]]; then
        say "$suite: making a root (once)"
        mirror=$(debianMirror)
        rm -rf "$new"
        # Nobody needs it after a loss of power.
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

# Gives the machine the devices and control groups that a box takes.
boxCanRun() {
    for folder in dev sys; do
        mount --rbind "/$folder" "$machine/$folder"
    done
}

# onMachine COMMAND...
onMachine() {
    chroot "$machine" env -i DEBIAN_FRONTEND=noninteractive HOME=/root LC_ALL=C.UTF-8 \
        PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
}

# installOnMachine PACKAGE...
installOnMachine() {
    # An older root's package lists may be stale, which only a failure shows.
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
