# What the scripts share. Sourced, not run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '== %s\n' "$*"; }
stop() {
    printf 'stopped: %s\n' "$*" >&2
    exit 1
}

# Runs a command with its output in a log; shows the log's end when the command fails.
# logged NAME SENTENCE-WHEN-IT-FAILS COMMAND…
logged() {
    local name=$1 sentence=$2 log
    shift 2
    mkdir -p build/logs
    log="build/logs/$name.log"
    if ! "$@" >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        stop "$sentence The whole output is in $log."
    fi
}

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        stop "Packages are missing and can only be installed by root. Please run this as root or install sudo."
    fi
}

# What each purpose needs: to build and run; the demo; everything else that tests and checks use.
build_packages=packaging/build-packages.txt
demo_packages=packaging/demo-packages.txt
all_packages=("$build_packages" "$demo_packages" packaging/apt-packages.txt)

# Installs the packages of some lists that are missing.
install_packages() {
    local package missing=()
    while read -r package; do
        [ -n "$package" ] || continue
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done < <(cat "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${#missing[@]} packages: ${missing[*]}"
    logged apt-update "The package lists cannot be fetched." as_root apt-get update
    logged apt-install "The packages cannot be installed." as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# Configures and builds a preset; with targets, only those.
build() {
    local preset=$1 jobs
    shift
    jobs=$(nproc)
    say "building ($preset)"
    logged "configure-$preset" "The $preset build cannot be configured." cmake --preset "$preset"
    if [ $# -gt 0 ]; then
        logged "build-$preset" "The $preset build failed." \
            cmake --build --preset "$preset" -j "$jobs" --target "$@"
    else
        logged "build-$preset" "The $preset build failed." cmake --build --preset "$preset" -j "$jobs"
    fi
}

# "passed failed skipped" of a ctest JUnit file.
test_counts() {
    python3 - "$1" <<'PYTHON'
import sys
import xml.etree.ElementTree as tree

suite = tree.parse(sys.argv[1]).getroot()
tests, failed, skipped = (int(suite.get(name, 0)) for name in ("tests", "failures", "skipped"))
disabled = int(suite.get("disabled", 0))
print(tests - failed - skipped - disabled, failed, skipped + disabled)
PYTHON
}
