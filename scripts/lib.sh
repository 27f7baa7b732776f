# What the scripts share: the repository's root as the current folder, and a way to give up.
set -euo pipefail

script="scripts/$(basename "$0")"
cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/.."

say() {
    echo "$script: $*" >&2
}

die() {
    say "$*"
    exit 1
}

# Where the machine fetches its own Debian release from; known even before any package list is.
debianMirror() {
    local release mirrors
    # shellcheck source=/dev/null
    release=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
    mirrors=$(apt-get update --print-uris |
        sed -nE "s#^'([^']*)/dists/($release|stable|oldstable)/.*#\1#p")
    echo "${mirrors%%$'\n'*}"
}
