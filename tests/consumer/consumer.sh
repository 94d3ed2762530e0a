#!/usr/bin/env bash
# A ten-line host outside the tree, built in the three ways that users have, and run.
# usage: consumer.sh SOURCE_FOLDER BUILD_FOLDER
set -euo pipefail
source_dir=$1
build_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

check() {
    local way=$1 output
    shift
    output=$("$@")
    [[ $output =~ ^CPU\ [0-9]+\ of\ [1-9][0-9]*\ %,\ memory\ [0-9]+\ of\ [1-9][0-9]*\ MiB$ ]] ||
        { echo "$way: unexpected output: $output"; exit 1; }
    echo "$way: $output"
}

build() {
    if ! { cmake -S "$1" -B "$work/build-$2" "${@:3}" && cmake --build "$work/build-$2"; } \
        >"$work/log" 2>&1; then
        cat "$work/log"
        echo "$2: the build failed"
        exit 1
    fi
}

cp "$source_dir/examples/minimal_host.cpp" "$work"
project() {
    printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(consumer CXX)' "$@" \
        'add_executable(consumer minimal_host.cpp)' \
        'target_link_libraries(consumer corvane::monitor corvane::host)' >"$work/CMakeLists.txt"
}

# Installed, and moved to another folder afterwards: the package must not know where it was made.
cmake --install "$build_dir" --prefix "$work/made" >/dev/null
mv "$work/made" "$work/moved"
project 'find_package(corvane_monitor 1.0 REQUIRED COMPONENTS host)'
build "$work" package -DCMAKE_PREFIX_PATH="$work/moved"
check package "$work/build-package/consumer"

PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name corvane_host.pc)")
export PKG_CONFIG_PATH
read -ra flags < <(pkg-config --cflags --libs corvane_host)
c++ -std=c++17 "$work/minimal_host.cpp" "${flags[@]}" -o "$work/with-pkg-config"
check pkg-config "$work/with-pkg-config"

# As a subproject: the host when it is asked for, and never the tests.
project 'set(CORVANE_BUILD_HOST ON)' "add_subdirectory($source_dir corvane)"
build "$work" subproject
check add_subdirectory "$work/build-subproject/consumer"
[[ -z $(find "$work/build-subproject" -name '*_test*' -print -quit) ]] ||
    { echo 'add_subdirectory: tests were built'; exit 1; }

# By itself the library needs nothing and brings neither tests nor program nor install rules.
printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(consumer CXX)' \
    "add_subdirectory($source_dir corvane)" >"$work/CMakeLists.txt"
build "$work" bare
[[ -z $(find "$work/build-bare" \( -name '*corvane_host*' -o -name corvane-monitor \) -print -quit) ]] ||
    { echo 'add_subdirectory: the host was built unasked'; exit 1; }
cmake --install "$work/build-bare" --prefix "$work/nothing" >/dev/null
[[ ! -e $work/nothing ]] || { echo 'add_subdirectory: something was installed unasked'; exit 1; }

# Absolute folders, as some distributions give them.
cmake -S "$source_dir" -B "$work/build-absolute" -DCORVANE_BUILD_HOST=OFF -DCORVANE_BUILD_TESTS=OFF \
    -DCMAKE_INSTALL_PREFIX="$work/abs" -DCMAKE_INSTALL_INCLUDEDIR="$work/abs/inc" \
    -DCMAKE_INSTALL_LIBDIR="$work/abs/lib64" >/dev/null
cmake --build "$work/build-absolute" >/dev/null && cmake --install "$work/build-absolute" >/dev/null
PKG_CONFIG_PATH="$work/abs/lib64/pkgconfig" pkg-config --cflags --libs corvane_monitor >"$work/flags"
grep -q -- "-I$work/abs/inc/corvane_monitor -L$work/abs/lib64 -lcorvane_monitor" "$work/flags" ||
    { echo "absolute folders: $(cat "$work/flags")"; exit 1; }
echo 'absolute folders: right'
