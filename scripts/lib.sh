# What the scripts share; sourced by each, which then runs at the repository's root.
set -euo pipefail

script="scripts/$(basename "$0")"
cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/.."

if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

say() {
    echo "$script: $*" >&2
}

die() {
    say "$*"
    exit 1
}

# Configures a preset and builds these targets of it, all of them if none is named:
# buildIs PRESET [TARGET...]
buildIs() {
    local preset=$1
    shift
    cmake --preset "$preset"
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# Copies the sources without what git ignores, also while somebody works on them: copySources FOLDER
copySources() {
    { tar -c --exclude=./.git --exclude=./build . || [[ $? == 1 ]]; } | tar -x -C "$1"
}
