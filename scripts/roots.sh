# Debian machines to try things on; sourced after lib.sh by scripts that have a mount namespace of
# their own.
#
# Below .deps/roots, a folder NAME is a root that debootstrap has made, or what a command has changed
# in others that lie below it. Both are made once, and anew when NAME.recipe says something else. A
# machine is an overlay of such folders; what changes in it is gone with it.

roots=$PWD/.deps/roots
scratch=
machine=

# Starts the script anew in a mount namespace of its own, so that nothing stays mounted however it
# ends: inOwnMounts ARGUMENT...
inOwnMounts() {
    [[ $(id -u) == 0 ]] || die "takes root, for mounts and chroot"
    if [[ ${SODREL_OWN_MOUNTS-} != yes ]]; then
        SODREL_OWN_MOUNTS=yes exec unshare --mount -- "$script" "$@"
    fi
    unset SODREL_OWN_MOUNTS
    mkdir -p "$roots"
    scratch=$(mktemp -d "$roots/scratch.XXXXXX")
    machine=$scratch/machine
    mkdir "$machine"
    trap 'machineDel; rm -rf --one-file-system "$scratch"' EXIT
}

# What a command prints is of interest only when it fails.
quietly() {
    "$@" >"$scratch/log" 2>&1 </dev/null || {
        cat "$scratch/log" >&2
        die "failed: $*"
    }
}

# onMachine COMMAND...
onMachine() {
    chroot "$machine" env -i DEBIAN_FRONTEND=noninteractive HOME=/root LC_ALL=C.UTF-8 \
        PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
}

# Starts a machine of these folders, the first on top; its changes go to $scratch/changes.
machineIs() {
    local lower='' name
    for name in "$@"; do
        lower+=${lower:+:}$roots/$name
    done
    mkdir "$scratch/changes" "$scratch/work"
    mount -t overlay sodrel-machine "$machine" \
        -o "volatile,lowerdir=$lower,upperdir=$scratch/changes,workdir=$scratch/work"
    mount -t proc sodrel-machine "$machine/proc"
}

machineDel() {
    if mountpoint -q "$machine"; then
        # Lazily, in case something still runs there.
        umount --recursive --lazy "$machine"
    fi
    rm -rf "$scratch/changes" "$scratch/work"
}

# Tells whether a folder has to be made, and then keeps others from making it until it is made:
# isMissing NAME RECIPE
isMissing() {
    exec {lock}>"$roots/$1.lock"
    flock "$lock" || die "cannot lock $1"
    if [[ -e $roots/$1.recipe && $(<"$roots/$1.recipe") == "$2" ]]; then
        exec {lock}>&-
        return 1
    fi
    rm -rf "${roots:?}/$1" "$roots/$1.recipe" || die "cannot remove $roots/$1"
}

# isMade NAME RECIPE
isMade() {
    echo "$2" >"$roots/$1.recipe"
    exec {lock}>&-
}

# rootIs SUITE
rootIs() {
    local suite=$1 root=$scratch/root mirror
    isMissing "$suite" debootstrap || return 0
    say "$suite: making a root (once)"
    mirror=$(debianMirror)
    [[ $mirror ]] || die "this machine has no Debian mirror among its sources"
    # Nobody needs it after a loss of power.
    mkdir -p "$root/etc/dpkg/dpkg.cfg.d"
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"
    quietly debootstrap --variant=minbase "$suite" "$root" "$mirror"
    mv "$root" "$roots/$suite"
    isMade "$suite" debootstrap
}

# Makes the folder NAME of what installing packages changes: layerIs NAME BELOW... -- DEPENDENCIES
layerIs() {
    local name=$1 below=() recipe
    shift
    while [[ $1 != -- ]]; do
        below+=("$1")
        shift
    done
    recipe=$(cd "$roots" && printf '%s\nover %s' "$2" "$(cat "${below[@]/%/.recipe}")")
    isMissing "$name" "$recipe" || return 0
    say "$name: installing $2 (once)"
    machineIs "${below[@]}"
    # An older root's package lists may be stale, which only a failure shows.
    # shellcheck disable=SC2016
    quietly onMachine sh -c '
        satisfy() { apt-get satisfy -y --no-install-recommends "$@"; }
        satisfy "$1" || { apt-get update && satisfy "$1"; }' sh "$2"
    umount --recursive "$machine"
    mv "$scratch/changes" "$roots/$name"
    machineDel
    isMade "$name" "$recipe"
}

# Makes SUITE and SUITE-user, which has what a user of the libraries has: a compiler and what finds
# libraries, but nothing of what these depend on.
userRootIs() {
    rootIs "$1"
    layerIs "$1-user" "$1" -- 'cmake, g++, make, pkgconf'
}
