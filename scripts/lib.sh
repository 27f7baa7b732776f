# What the scripts share; sourced by each, which then runs at the repository's root.
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

# A number of ctest's JUnit report: resultCount tests|failures|skipped|disabled FILE
resultCount() {
    sed -n "s/^\t$1=\"\([0-9]*\)\"$/\1/p" "$2"
}

# How many tests of such a report could not run: notRunCount FILE
notRunCount() {
    echo $(($(resultCount skipped "$1") + $(resultCount disabled "$1")))
}

# Copies the sources without what git ignores, also while somebody works on them: copySources FOLDER
copySources() {
    { tar -c --exclude=./.git --exclude=./.deps --exclude=./build . || [[ $? == 1 ]]; } |
        tar -x -C "$1"
}
