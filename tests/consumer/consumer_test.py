#!/usr/bin/env python3
"""The examples, built in the ways that users have, and run: consumer_test.py SOURCE BUILD"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.request

SOURCE, BUILD = sys.argv.pop(1), sys.argv.pop(1)
WORK = pathlib.Path(tempfile.mkdtemp())
unittest.addModuleCleanup(shutil.rmtree, WORK)
OTHERS = ["CLI11", "Curses", "GTest", "OpenSSL", "Python3"]  # what the program and the tests need

# Installs the packages on a copy of the system that is gone when this ends, and shows no service
# manager. $1: an empty folder, $2: the packages' folder, $3...: what to do with them.
INSTALLED = """set -eu
mount -t tmpfs none "$1"
for dir in /etc /usr /var; do
    mkdir -p "$1$dir/new" "$1$dir/work"
    mount -t overlay none -o "lowerdir=$dir,upperdir=$1$dir/new,workdir=$1$dir/work" $dir
done
[ ! -d /run/systemd ] || mount -t tmpfs none /run/systemd
dpkg -i "$2"/*.deb
shift 2
"$@"
corvane-monitor --version
test -e /etc/systemd/system/multi-user.target.wants/corvane-monitor.service
dpkg -P corvane-monitor libcorvane-monitor-dev
test ! -e /etc/default/corvane-monitor"""


def run(*command, fails=False, **environment):
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          env={**os.environ, **environment})
    assert (done.returncode != 0) == fails, f"{command}: {done.stdout[-8000:]}"
    return done.stdout


def build(name, *options, missing=OTHERS, around=(), **more):
    """Configures and builds tests/consumer, in a way that works inside of `around`, too."""
    options += tuple(f"-DCMAKE_DISABLE_FIND_PACKAGE_{package}=ON" for package in missing)
    return run(*around, "sh", "-ec", 'cmake -G Ninja -S "$0/tests/consumer" -B "$1" '
               '-DEXAMPLES="$0/examples" "$@" && cmake --build "$1" --target ${TARGET-all}',
               SOURCE, WORK / name, *options, **more)


class Consumer(unittest.TestCase):
    def check(self, name):
        self.assertRegex(run(WORK / name / "own_log"), r"^memory \d+ of [1-9]\d* MiB, disk .*\n"
                         r"monitor \[300\] \S*monitor_physical_util_memory.cpp:\d+ .*pid: 0\.\n$")
        self.assertRegex(run(WORK / name / "minimal_host"), r"^CPU \d+ of [1-9]\d* %, memory \d+ of")
        self.check_server(WORK / name / "server")

    def check_server(self, server, **environment):
        with subprocess.Popen([server, WORK, "127.0.0.1:0", "3"], env={**os.environ, **environment},
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as process:
            port = re.fullmatch(r"metrics on port (\d+)\n", process.stdout.readline())[1]
            report = json.loads(process.stdout.readline())
            self.assertGreater(report["processes"][0]["busiest_thread_peak_percent"], 10)
            metrics = urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics").read().decode()
            for line in ("corvane_watched_process_thread_busy_peak_ratio{.*} 0?[.1]", "corvane_up 1",
                         f'corvane_directory_size_bytes{{.*directory="{WORK}".*}} [1-9]',
                         "corvane_memory_used_bytes [1-9]", 'corvane_collector_success{.*"network"}'):
                self.assertRegex(metrics, f"(?m)^{line}")
            process.stdin.close()
        self.assertEqual(process.returncode, 0)

    def check_pkg_config(self, prefix):
        folder = next(prefix.rglob("pkgconfig"))
        flags = run("pkg-config", "--cflags", "--libs", "corvane_metrics", "prometheus-cpp-pull",
                    PKG_CONFIG_PATH=str(folder)).split()
        run("c++", "-std=c++17", f"{SOURCE}/examples/server.cpp", "-o", WORK / "server", *flags)
        self.check_server(WORK / "server", LD_LIBRARY_PATH=str(folder.parent))

    def test_subproject(self):
        source = f"-DCORVANE_SOURCE={SOURCE}"
        build("alone", source, missing=[*OTHERS, "spdlog", "nlohmann_json", "prometheus-cpp"])
        run("cmake", "--install", WORK / "alone", "--prefix", WORK / "nothing")
        self.assertFalse((WORK / "nothing").exists())
        build("host", source, "-DCORVANE_BUILD_HOST=ON", missing=[*OTHERS, "prometheus-cpp"],
              TARGET="help")  # can be configured; the host itself is built below
        build("all", source, "-DCORVANE_BUILD_METRICS=ON", "-DCORVANE_INSTALL=ON",
              "-DBUILD_SHARED_LIBS=ON")
        for name in ("*_test*", "corvane-monitor"):  # which may be a folder's name, too
            self.assertFalse([path for path in (WORK / "all").rglob(name) if path.is_file()])
        self.check("all")
        run("cmake", "--install", WORK / "all", "--prefix", WORK / "shared")
        self.check_pkg_config(WORK / "shared")

    def test_package(self):
        run("cmake", "--install", BUILD, "--prefix", WORK / "made")
        (WORK / "made").rename(WORK / "moved")  # the package must not know where it was made
        prefix = f"-DCMAKE_PREFIX_PATH={WORK}/moved"
        self.assertRegex(build("lacking", prefix, missing=["prometheus-cpp"], fails=True),
                         r"'metrics'\s+needs\s+the\s+package\s+prometheus-cpp")
        build("package", prefix)
        self.check("package")
        self.check_pkg_config(WORK / "moved")

    def test_debian_packages(self):
        if not shutil.which("dh") or not shutil.which("lintian"):
            self.skipTest("debhelper or lintian is not installed")
        run(f"{SOURCE}/scripts/package", WORK / "packages")
        if os.geteuid() != 0 or subprocess.run(["unshare", "-m", "true"]).returncode != 0:
            self.skipTest("the packages were built, not installed: that takes root and a mount namespace")
        (WORK / "scratch").mkdir()
        build("debian", around=["unshare", "-m", "sh", "-c", INSTALLED, "sh", WORK / "scratch",
                                WORK / "packages"], missing=[])
        self.check("debian")


unittest.main(verbosity=2)
