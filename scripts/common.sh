# shellcheck shell=bash disable=SC2034
# Shared by ./run, ./test and the scripts. Sourced from the root of the repository.

say() { printf '%s\n' "$*" >&2; }
fail() { say "$(basename "$0"): $*"; exit 1; }

PATH=$PATH:/usr/sbin:/sbin  # which an ordinary user's lacks

# What the build needs stands in debian/control.
mapfile -t BUILD_PACKAGES < <(
    sed -n '/^Build-Depends:/,/^[A-Z][^B]/s/^ \([a-z0-9.+-]*\).*/\1/p' debian/control | grep -v debhelper)
BUILD_PACKAGES+=(g++)
PACKAGE_PACKAGES=(build-essential debhelper lintian)
TEST_PACKAGES=("${PACKAGE_PACKAGES[@]}" libgtest-dev libgmock-dev clang libclang-rt-dev
    python3 strace openssl chromium chromium-driver
    iproute2 mount e2fsprogs btrfs-progs dmsetup)
LINT_PACKAGES=(clang-format clang-tidy cppcheck doxygen shellcheck pyflakes3)

# Runs apt-get as root and shows its progress in steps. What else it says is shown when it fails; it
# has a place of its own, because apt does not wait for a reader of its progress.
as_root_apt_get() {
    local sudo=() log=build/apt.log
    if ((EUID != 0)); then
        command -v sudo >/dev/null || fail "needs root or sudo for apt-get $*"
        sudo=(sudo)
    fi
    mkdir -p build
    rm -f "$log"
    # shellcheck disable=SC2016
    if ! "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive sh -c 'log=$1; shift; exec apt-get -qq -y \
        -o APT::Status-Fd=3 -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@" \
        3>&1 >"$log" 2>&1 </dev/null' sh "$log" "$@" |
        awk -F: -v command="$1" '
            command == "update" { next }
            { step = ($1 == "dlstatus" ? "download" : "installation") " " int($3 / 10) * 10 " %" }
            step != last { print "  " step; fflush(); last = step }' >&2; then
        tail -n 20 "$log" >&2
        fail "apt-get $* failed: $log"
    fi
}

# Installs the Debian packages that are missing; says nothing when none is.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    say "== installing, which can take minutes: ${missing[*]}"
    as_root_apt_get update
    as_root_apt_get install --no-install-recommends "${missing[@]}"
}

# Puts Prometheus and its promtool on the PATH. The package is unpacked, not installed: that would
# leave a server running on the machine.
need_prometheus() {
    local folder=$PWD/build/prometheus
    command -v prometheus >/dev/null && command -v promtool >/dev/null && return
    if [[ ! -x $folder/usr/bin/promtool ]]; then
        say "== fetching Prometheus"
        mkdir -p "$folder"
        (cd "$folder" && rm -f ./*.deb && { apt-get download -qq prometheus >/dev/null 2>&1 ||
            { as_root_apt_get update && apt-get download -qq prometheus >/dev/null; }; }
            apt-get download -qq promtool >/dev/null 2>&1 # of its own in newer releases only
            for package in ./*.deb; do dpkg-deb -x "$package" .; done)
        [[ -x $folder/usr/bin/promtool ]] || fail "could not fetch the package prometheus"
    fi
    PATH=$PATH:$folder/usr/bin
}

# Configures a preset and builds all of it, or the targets named; says nothing when there is
# nothing to do, and otherwise what failed.
build_preset() {
    local preset=$1 log=build/$1.log build=(cmake --build --preset "$1" ${2:+--target "${@:2}"})
    mkdir -p build
    if cmake --preset "$preset" >"$log" 2>&1; then
        "${build[@]}" -- -n | grep -q 'no work to do' && return
        say "== building: $preset"
        "${build[@]}" >>"$log" 2>&1 && return
    fi
    grep -E -A 8 'error|Error|FAILED' "$log" | head -n 60 >&2 || tail -n 40 "$log" >&2
    fail "the build of preset '$preset' failed: $log"
}
