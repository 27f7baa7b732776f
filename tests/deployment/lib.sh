# Code shared by the tests of docs/deployment.md, which source it: TEST BUILD, where BUILD is the
# build folder. The test runs in a box with polkit, the journal, sshd and a stand-in web.service.
set -eEuo pipefail
trap 'echo "$0: line $LINENO: failed: $BASH_COMMAND" >&2' ERR

project=$(realpath "$(dirname "$(realpath "$0")")/../..")
build=$1
failures=0

# Outside a box, boots one and reruns the test in it: inBox ARGUMENT... of the test
inBox() {
    [[ ${2-} == inside ]] ||
        exec "$project/tests/deployment/with-packages" "$build/tools/systemd-box" --timeout 60 \
            --units "$project/examples/own-service/units" --units "$project/tests/systemd/units" \
            -- "$0" "$build" inside
}

compare() { # expected, got
    diff --unified --label expected --label got <(echo "$1") <(echo "$2") ||
        failures=$((failures + 1))
}

# expect OUTPUT STATUS COMMAND...
expect() {
    local output status=0
    output=$("${@:3}" 2>&1) || status=$?
    compare "$1; $2" "$output; $status"
}

# Installs the libraries and the examples, because other users may not see the build.
installExamples() {
    cp -P "$build"/src/*/lib*.so* /usr/local/lib/
    ldconfig
    find "$build/examples" -maxdepth 1 -type f -executable -exec cp -t /usr/local/bin {} +
    PATH=/usr/local/bin:$PATH
}

# Makes units of the machine, which the box hides, known to systemd: machineUnits UNIT...
machineUnits() {
    cp "${@/#//lib/systemd/system/}" /run/systemd-box/units/
    systemctl daemon-reload
}

# Installs polkitd, which the bus starts on demand.
installPolkit() {
    # As the installation of the package does.
    systemd-sysusers polkitd.conf
    install -d -o polkitd -m 700 /etc/polkit-1/rules.d
    systemctl reload dbus.service
    machineUnits polkit.service
}
