# shellcheck shell=bash disable=SC2034
# Shared by ./run, ./test and .ci/run. Sourced from the root of the repository.

say() { printf '%s\n' "$*" >&2; }
fail() { say "$(basename "$0"): $*"; exit 1; }

# Installs the Debian packages that are missing; says nothing when none is.
need_packages() {
    local missing=() package log sudo=()
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    if ((EUID != 0)); then
        command -v sudo >/dev/null || fail "needs root or sudo to install: ${missing[*]}"
        sudo=(sudo)
    fi
    say "installing: ${missing[*]}"
    log=$(mktemp)
    if ! { "${sudo[@]}" apt-get update -qq && "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        fail "could not install: ${missing[*]}"
    fi
    rm -f "$log"
}

# Configures a preset and builds all of it, or the targets named; says nothing but what failed.
build_preset() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } \
        >"$log" 2>&1; then
        grep -E -A 8 'error|Error|FAILED' "$log" | head -n 60 >&2 || tail -n 40 "$log" >&2
        rm -f "$log"
        fail "the build of preset '$preset' failed"
    fi
    rm -f "$log"
}

BUILD_PACKAGES=(g++ cmake ninja-build libspdlog-dev libcli11-dev nlohmann-json3-dev
    prometheus-cpp-dev libncurses-dev libmicrohttpd-dev libgnutls28-dev libcrypt-dev zlib1g-dev
    pkg-config libjs-dygraphs)
