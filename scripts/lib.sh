# Code shared by the scripts. A script that sources it runs in the root of the repository.
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

# Configures a preset and builds the named targets, or all of them:
# buildIs PRESET [TARGET...]
buildIs() {
    local preset=$1
    shift
    cmake --preset "$preset"
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# Copies the sources without ignored files, even while they are being edited: copySources FOLDER
copySources() {
    { tar -c --exclude=./.git --exclude=./build . || [[ $? == 1 ]]; } | tar -x -C "$1"
}
