#!/usr/bin/env python3
"""The program from the outside: processes, terminals, sockets, and what its outputs say.

Usage: program_test.py PATH-OF-CORVANE-MONITOR [CLASS[.TEST]...]
Exits with 77 when everything was skipped. Runs as any user, in any environment.
"""
import ctypes
import fcntl
import http.client
import json
import os
import pty
import re
import resource
import select
import shutil
import signal
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unicodedata
import unittest

PROGRAM = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 else sys.exit(__doc__)
os.environ["PATH"] = os.environ.get("PATH", os.defpath) + ":/usr/sbin:/sbin"
LIBC = ctypes.CDLL(None, use_errno=True)
NEW_NAMESPACE, NEW_USERS = 0x00020000, 0x10000000  # CLONE_NEWNS, CLONE_NEWUSER
BIND, PRIVATE = 4096, 16384 | 1 << 18  # MS_BIND, MS_REC | MS_PRIVATE
WITHIN_A_SECOND = 1.5  # of the promise, on a machine that has other work


def tool(name):
    path = shutil.which(name)
    if path is None:
        raise unittest.SkipTest(name + " is not installed")
    return path


def libc(call, *arguments):
    if getattr(LIBC, call)(*arguments) != 0:
        raise OSError(ctypes.get_errno(), call)


def mount(source, target, kind, flags=0, data=""):
    libc("mount", source.encode(), target.encode(), kind.encode(), flags, data.encode())


def in_namespace(change):
    """For preexec_fn: makes changes to mounts that nobody else sees."""
    user, group = os.getuid(), os.getgid()

    def enter():
        libc("unshare", NEW_NAMESPACE if user == 0 else NEW_NAMESPACE | NEW_USERS)
        if user != 0:
            for name, text in (("setgroups", "deny"), ("uid_map", f"0 {user} 1"),
                               ("gid_map", f"0 {group} 1")):
                with open("/proc/self/" + name, "w") as file:
                    file.write(text)
        mount("none", "/", "", PRIVATE)
        change()

    return enter


def read(path):
    with open(path, encoding="utf-8", errors="surrogateescape", newline="") as file:
        return file.read()


def drawn(terminal, seconds):
    """What is written within some time, or until the other side is closed."""
    end, text = time.monotonic() + seconds, b""
    while select.select([terminal], [], [], max(0, end - time.monotonic()))[0]:
        try:
            text += os.read(terminal, 65536)
        except OSError:
            break
    return text.decode(errors="replace")


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        os.chmod(self.folder, 0o755)

    def path(self, name):
        return os.path.join(self.folder, name)

    def spawn(self, *command, **settings):
        process = subprocess.Popen(command, **{
            "stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL,
            "stderr": subprocess.DEVNULL, **settings})
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start(self, *arguments, **settings):
        """The program, with its outputs in files: read them with output() and errors()."""
        names = [tempfile.mkstemp(dir=self.folder)[1] for _ in range(2)]
        with open(names[0], "wb") as out, open(names[1], "wb") as err:
            settings = {"stdout": out, "stderr": err, **settings}
            process = self.spawn(PROGRAM, *arguments, **settings)
        process.out, process.err = names
        return process

    def start_in_namespace(self, change, *arguments):
        try:
            return self.start(*arguments, preexec_fn=in_namespace(change), close_fds=False)
        except (subprocess.SubprocessError, OSError) as error:
            raise unittest.SkipTest("mounts in a namespace of its own are not possible here") from error

    @staticmethod
    def output(process):
        return read(process.out)

    @staticmethod
    def errors(process):
        return read(process.err)

    def run_program(self, *arguments, status=0, **settings):
        process = self.start(*arguments, **settings)
        self.assertEqual(status, process.wait(30), self.errors(process))
        return self.output(process), self.errors(process)

    def until(self, condition, what, seconds=15):
        end = time.monotonic() + seconds
        while not (result := condition()):
            self.assertLess(time.monotonic(), end, "in vain: " + what)
            time.sleep(0.05)
        return result

    def ends(self, process, send=None):
        """As it has to, after a signal."""
        if send is not None:
            process.send_signal(send)
        try:
            self.assertEqual(0, process.wait(WITHIN_A_SECOND))
        except subprocess.TimeoutExpired:
            self.fail("still running")

    def reports(self, process):
        """The JSON objects so far."""
        return [json.loads(line) for line in self.output(process).split("\n")[:-1]]

    def first_report(self, process):
        return self.until(lambda: self.reports(process), "a first report")[0]

    def listen(self, *arguments, address="127.0.0.1:0", **settings):
        """Starts the program; gives the process, with .scheme, .host, .port and .address"""
        process = self.start("--listen", address, *arguments, "1", **settings)
        told = self.until(lambda: re.search(r"page on (https?)://((.*):(\d+))/,",
                                            self.errors(process)), "an address")
        process.scheme, process.address, process.host, process.port = told.groups()
        return process

    @staticmethod
    def ask(process, path, method="GET", **headers):
        """Status, headers and body."""
        place = (process.host.strip("[]"), int(process.port))
        if process.scheme == "https":
            connection = http.client.HTTPSConnection(
                *place, timeout=10, context=ssl._create_unverified_context())
        else:
            connection = http.client.HTTPConnection(*place, timeout=10)
        with_dashes = {name.replace("_", "-"): value for name, value in headers.items()}
        connection.request(method, path, headers=with_dashes)
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer.status, answer.headers, body

    def until_measured(self, process):
        self.until(lambda: self.ask(process, "/report.json")[0] == 200, "a report")

    def named_process(self, name):
        """The kernel names a process by its file."""
        file = os.path.join(os.fsencode(self.folder), name)
        shutil.copy(tool("sleep"), file)
        process = self.spawn(file, "60")
        comm = f"/proc/{process.pid}/comm"
        self.until(lambda: read(comm).encode(errors="surrogateescape") == name[:15] + b"\n", comm)
        return process


class Arguments(ProgramTest):
    def test_what_is_refused(self):
        gone = str(2**22)  # beyond the kernel's largest number
        for named, *arguments in (
                ("INTERVAL: not a whole number from 1 to 86400: 0", "0"),
                ("INTERVAL: not a whole", "-1"), ("INTERVAL: not a whole", "1.5"),
                ("INTERVAL: not a whole", "86401"), ("INTERVAL: not a whole", "0x10"),
                ("COUNT: not a whole number from 1 on: 0", "1", "0"), ("not expected: 3", *"123"),
                ("not expected: --bogus", "--bogus"), ("--pid: not a whole", "--pid", "0"),
                ("--pid: not a whole", "--pid", "init"), ("--pid", "--pid"),
                (f"process {gone} does not exist", "--pid", gone),
                (f"process {gone} does not exist", "--pid", f"{os.getpid()},{gone}"),
                ("the number after it", "--pid", "1", "1149"),
                ("does not exist: /no/such", "--dir", "/no/such"), ("not exist", "--dir", ""),
                ("does not exist: /?[31m?", "--dir", "/\x1b[31m\u202e"),
                ("--pid-file: an empty name", "--pid-file", ""), ("--unit", "--unit="),
                ("not an interface's name", "--interface", "x" * 16),
                ("--interface", "--compatible", "--interface", "lo"),
                ("--cycle: not a whole", "--cycle", "0"), ("longer than", "--cycle", "5", "1"),
                ("xml (table, json)", "--format", "xml"), ("--format", "--format="),
                ("--watch excludes --listen", "--watch", "--listen", "9464"),
                ("not a log level: loud (off,", "--log-level", "loud"),
                ("--log-file requires --log-level", "--log-file", "/tmp/x")):
            with self.subTest(arguments):
                out, err = self.run_program(*arguments, status=2)
                self.assertEqual("", out)
                self.assertRegex(err, r"^corvane-monitor: .*\n$")
                self.assertIn(named, err)

    def test_without_arguments(self):
        self.assertRegex(self.run_program("--version")[0], r"^corvane-monitor \d+\.\d+\.\d+\n$")
        out, err = self.run_program(stdin=None, env={})
        # A container may have no other interface than the loopback and no disk.
        self.assertRegex(err, r"^(corvane-monitor: (network|directory /): no .*\n)*$")
        self.assertEqual(1, out.count("peaks of the last 1 s"))

    def test_what_is_watched_by_name_need_not_run(self):
        pid_file = self.path("pid")
        process = self.start("--pid-file", pid_file, "--unit", "no-such", "--format", "json", "1")
        self.assertEqual([(pid_file, False), ("no-such", False)], [
            (row["process"], row["running"]) for row in self.first_report(process)["processes"]])
        shutil.copy("/proc/self/stat", pid_file)  # begins with a number
        self.until(lambda: self.reports(process)[-1]["processes"][0]["pid"] == os.getpid(),
                   "the process that the file names")


class Figures(ProgramTest):
    def test_figures_are_the_kernels(self):
        busy = self.spawn(sys.executable, "-c", "while True: pass")
        arguments = ("--cores", "--dir", "/", "--pid", f"{busy.pid}", "1", "2")
        last = json.loads(self.run_program("--format", "json", *arguments)[0].split("\n")[1])
        cores = read("/proc/stat").count("\ncpu")
        self.assertEqual((cores, cores), (last["cpu"]["core_number"], len(last["cpu"]["cores"])))
        row = last["processes"][0]
        self.assertIn(row["cpu_peak_percent"], range(1, 121))
        self.assertIn(row["busiest_thread_peak_percent"], range(1, 101))
        resident = int(re.search(r"VmRSS:\s+(\d+)", read(f"/proc/{busy.pid}/status"))[1])
        self.assertAlmostEqual(resident / 1024, row["resident_mib"], delta=1)
        total = int(re.search(r"MemTotal:\s+(\d+)", read("/proc/meminfo"))[1])
        self.assertEqual(total // 1024, last["memory"]["total_mib"])
        self.assertIn(last["memory"]["used_mib"], range(row["resident_mib"], total // 1024))
        space, root = os.statvfs("/"), last["directories"][0]
        self.assertEqual(space.f_blocks * space.f_frsize, root["total_bytes"])
        self.assertAlmostEqual(space.f_bavail * space.f_frsize, root["available_bytes"],
                               delta=2**31)
        self.assertEqual(set(os.listdir("/sys/class/net")) - {"lo", "bonding_masters"},
                         {row["name"] for row in last["network"]["interfaces"]})

    def test_traffic_and_writes_show(self):
        folder = "." if os.access(".", os.W_OK) else self.folder
        name = self.enterContext(tempfile.NamedTemporaryFile(dir=folder)).name
        file = os.open(name, os.O_WRONLY | os.O_DSYNC)  # past the cache
        arguments = ("--dir", folder, "--format", "json", "1", "3")
        strict = self.start("--interface", "lo", *arguments)
        compatible = self.start("--compatible", *arguments)
        begin, count = time.monotonic(), 0
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            while strict.poll() is None or compatible.poll() is None:
                sender.sendto(bytes(972), ("127.0.0.1", 9))  # 1000 with the headers of UDP and IP
                os.pwrite(file, bytes(4096), 0)
                count += 1
        os.close(file)
        each_second = count / (time.monotonic() - begin) / 2  # others want the machine, too
        loopback, = self.reports(strict)[-1]["network"]["interfaces"]
        for direction in ("receive", "transmit"):
            self.assertGreater(loopback[direction + "_packets_per_second"], each_second)
            self.assertGreater(loopback[direction + "_bytes_per_second"], 1000 * each_second)
        for process in (strict, compatible):
            row = self.reports(process)[-1]["directories"][0]
            if not os.path.exists(f"/sys/class/block/{row['disk']}"):
                self.skipTest(folder + " is on no disk")
            self.assertGreater(row["operations_per_second"], each_second)
            self.assertIn(row["busy_percent"], range(1, 101))

    def apart(self, namespaces, script):
        """The reports of a program ("$0") that a shell starts in namespaces of their own."""
        done = subprocess.run([tool("unshare"), *namespaces, "sh", "-c", script, PROGRAM],
                              cwd=self.folder, stdout=subprocess.PIPE, timeout=60)
        if done.returncode in (1, 77):
            self.skipTest("namespaces of its own, or what it makes in them, are not possible here")
        self.assertEqual(0, done.returncode)
        return [json.loads(line) for line in done.stdout.splitlines()]

    def test_an_interface_of_any_name(self):
        report = self.apart(["-n"], 'ip link add ens9 type veth peer name "a,b" || exit 77; '
                                    '"$0" --format json || exit 2')[0]
        self.assertEqual(["a,b", "ens9"], sorted(
            row["name"] for row in report["network"]["interfaces"]))

    def test_directories_on_every_file_system(self):
        """Written to, where a disk is expected; arrays are left to the made-up machines."""
        cases = {
            "a b": ("loop", "truncate -s 16M 1 && mkfs.ext4 -q 1 && mount -o loop 1 'a b'"),
            "btrfs": ("loop", "truncate -s 128M 2 && mkfs.btrfs -q 2 && mount -o loop 2 btrfs"),
            "btrfs/deep": ("loop", "mountpoint btrfs"),
            "dm": ("dm-", "truncate -s 16M 3 && mkfs.ext4 -q 3 && losetup /dev/loop7 3 && dmsetup "
                   "create corvane --table '0 32768 linear /dev/loop7 0' && mount /dev/mapper/corvane "
                   "dm; dmsetup remove --deferred corvane; losetup -d /dev/loop7; mountpoint dm"),
            "overlay": ("", "mkdir u w && mount -t overlay -o lowerdir=/usr,upperdir=u,workdir=w x "
                        "overlay"),
            "tmpfs": ("", "true"), "/proc": ("", "true")}
        script = 'mount -t tmpfs none . && cd "$PWD" || exit 77\n'
        for path, (disk, make) in cases.items():
            script += f"if mkdir -p '{path}' && {{ {make}; }} >&2; then set -- \"$@\" --dir '{path}'\n"
            if disk:
                script += f"while dd if=/dev/zero of='{path}/x' count=9 oflag=sync; do :; done &"
            script += "\nfi\n"
        report = self.apart(["-m", "-p", "-f", "--mount-proc"], script + '"$0" "$@" --format json 1 2 || exit 2')[-1]
        for row in report["directories"]:
            disk = cases.pop(row["directory"])[0]
            with self.subTest(row):
                self.assertEqual(disk, (row["disk"] or "")[:len(disk) or None])
                self.assertEqual(disk != "", (row["operations_per_second"] or 0) > 10)
                self.assertNotIn("disk_io:" + row["directory"], report["failed"])
        print("left out, this machine cannot make it:", *cases)

    def test_a_hidden_process_is_not_said_to_have_gone(self):
        report = self.apart(["-m"], 'mount -t proc -o hidepid=2 proc /proc && cp "$0" copy || '
                            'exit 77; setpriv --reuid=9 --regid=9 --clear-groups ./copy --pid 1 '
                            '--format json || exit 2')[0]
        self.assertIn("process_cpu:1", report["failed"])
        self.assertNotIn("not exist", str(report))

    def test_a_pid_that_is_used_again(self):
        reports = self.apart(["-p", "-f", "--mount-proc"], r"""
            ln -s "$(command -v sh)" "GC Thread#0"
            burn() {
                echo 99 >/proc/sys/kernel/ns_last_pid || exit 77
                "./GC Thread#0" -c "while :; do :; done" &
                [ $! = 100 ] || exit 77
            }
            echo 100 >pid; burn; "$0" --pid-file pid --format json 1 6 & program=$!
            sleep 2.5; kill -9 100; wait 100; burn; wait $program || exit 2""")
        self.assertEqual(["GC Thread#0"] * 6, [row["processes"][0]["command"] for row in reports])
        for report in reports:
            row = report["processes"][0]
            for figure in (row["cpu_peak_percent"], row["busiest_thread_peak_percent"]):
                self.assertIn(figure, range(1, 110) if report is reports[-1] else
                              [None, *range(1, 110)])

    def test_a_process_that_ends_while_it_is_read(self):
        strace, watched = tool("strace"), self.spawn(tool("sleep"), "60")
        if subprocess.run([strace, "-o", "/dev/null", tool("true")], capture_output=True).returncode:
            self.skipTest("processes may not be traced here")
        for name in ("comm", "stat", "status"):
            process = self.spawn(strace, "-f", "-o", "/dev/null", "-P", f"/proc/{watched.pid}/{name}",
                                 "-e", "inject=read:error=ESRCH:when=1", PROGRAM, "--pid",
                                 f"{watched.pid}")
            self.assertEqual(0, process.wait(30))

    def test_a_core_that_goes_and_comes_back(self):
        switch = "/sys/devices/system/cpu/cpu1/online"
        if not os.access(switch, os.W_OK):
            self.skipTest("cores cannot be switched off here")
        self.addCleanup(subprocess.run, f"echo 1 >{switch}", shell=True)
        process = self.start("--cores", "--format", "json", "1")
        cores = len(self.first_report(process)["cpu"]["cores"])
        for state, number in (("0", cores - 1), ("1", cores)):
            with open(switch, "w", encoding="ascii") as file:
                file.write(state)
            self.until(lambda: self.reports(process)[-1]["cpu"]["core_number"] == number, "a core")
        for report in self.reports(process):
            self.assertEqual([], report["failed"])


class Ending(ProgramTest):
    def assert_signals_end(self, start):
        signals = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT)
        processes = [start() for _ in signals]
        time.sleep(2.5)
        for number, process in zip(signals, processes):
            with self.subTest(number.name):
                self.assertIsNone(process.poll(), self.errors(process))
                self.ends(process, number)
        return processes

    def test_signals_between_reports(self):
        for process in self.assert_signals_end(lambda: self.start("--format", "json", "1")):
            self.assertIn(len(self.reports(process)), (1, 2, 3), "its output is whole")

    def test_signals_while_a_directory_hangs(self):
        folder = self.path("hangs")
        os.mkdir(folder)

        def hang():
            device = os.open("/dev/fuse", os.O_RDWR)  # which nobody reads, until the program ends
            os.set_inheritable(device, True)
            mount("none", folder, "fuse", 0, f"fd={device},rootmode=40000,user_id=0,group_id=0")

        for process in self.assert_signals_end(lambda: self.start_in_namespace(
                hang, "--dir", folder, "--dir", "/", "--format", "json", "1")):
            report = self.reports(process)[0]
            hangs, answers = report["directories"]
            self.assertEqual((None, None), (hangs["total_bytes"], hangs["busy_percent"]))
            for family in (f"disk_space:{folder}", f"disk_io:{folder}"):
                self.assertIn("answer", report["reasons"][family])
                self.assertIn(family, report["failed"])
            self.assertGreater(answers["total_bytes"], 0)
            self.assertIsNotNone(report["memory"]["used_mib"])

    def test_signals_while_a_file_of_the_kernel_hangs(self):
        fifo = self.path("fifo")
        os.mkfifo(fifo)
        self.assert_signals_end(lambda: self.start_in_namespace(
            lambda: mount(fifo, "/etc/mtab", "", BIND), "--compatible", "1"))

    def test_signals_while_nobody_reads_the_output(self):
        reader, writer = os.pipe2(os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        while select.select([], [writer], [], 0)[1]:
            os.write(writer, bytes(4096))
        os.set_blocking(writer, True)
        self.assert_signals_end(lambda: self.start("1", stdout=writer))
        os.close(writer)

    def test_output_that_cannot_be_written(self):
        for arguments in (("1",), ("--format", "json"), ("--help",), ("--version",)):
            with self.subTest(arguments), open("/dev/full", "wb") as full:
                err = self.run_program(*arguments, status=1, stdout=full)[1]
                self.assertRegex(err, r"(^|\n)corvane-monitor: cannot write .*No space left.*\n$")
        reader, writer = os.pipe()
        os.close(reader)
        err = self.run_program("1", status=1, stdout=writer)[1]
        os.close(writer)
        self.assertRegex(err, r"(^|\n)corvane-monitor: cannot write .*Broken pipe\n$")
        err = self.run_program("1", "1", status=1, preexec_fn=lambda: os.close(1))[1]
        self.assertRegex(err, r"Bad file descriptor\n$")

    def test_without_descriptors(self):
        with open(PROGRAM, "rb") as program:
            if b"__ubsan_" in program.read():
                self.skipTest("the sanitizer needs descriptors of its own")
        processes = [self.start(*output, "1") for output in
                     (("--format", "json"), ("--listen", "127.0.0.1:0"))]
        self.first_report(processes[0])
        for process in processes:
            resource.prlimit(process.pid, resource.RLIMIT_NOFILE, (0, 0))
        before = [self.used_seconds(process) for process in processes]
        time.sleep(3)
        for process, used in zip(processes, before):
            self.assertLess(self.used_seconds(process) - used, 0.6, "it spins")
            self.assertIsNone(process.poll())
        last = self.reports(processes[0])[-1]
        self.assertIsNone(last["memory"]["used_mib"])
        self.assertIn("memory", last["failed"])
        for process in processes:
            self.ends(process, signal.SIGTERM)

    @staticmethod
    def used_seconds(process):
        fields = read(f"/proc/{process.pid}/stat").rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Names(ProgramTest):
    HOSTILE = (b'\x1b[2J"\\\n\xff', b"\xc2\x9b31m\x9b\r", b"a b\x1b[31m\x9d", b"\n",
               "<b>\u202e&".encode())

    def setUp(self):
        super().setUp()
        self.directories = [os.path.join(os.fsencode(self.folder), name) for name in (
            b'\x1b]0;title\x07a"\\\n\xff\xc2\x9b31m', "\u6f22".encode() * 40,
            b"e" + "\u0301".encode() * 60, "a\u202eb\u200bc\u2028<script>".encode())]
        for directory in self.directories:
            os.mkdir(directory)
        self.arguments = []
        for name in self.HOSTILE:
            self.arguments += ["--pid", f"{self.named_process(name).pid}"]
        for directory in self.directories:
            self.arguments += ["--dir", directory]

    def assert_harmless(self, text):
        for character in text.replace("\n", ""):
            self.assertNotIn(unicodedata.category(character), ("Cc", "Cf", "Cs", "Zl", "Zp"),
                             repr(text))

    def test_table_notes_and_log(self):
        out, err = self.run_program(*self.arguments, "--log-level", "trace", "1", "2")
        self.assert_harmless(out + err)
        self.assertIn(' ?[2J"', out)
        for line in out.split("\n"):
            widths = [0 if unicodedata.combining(character) else
                      1 + (unicodedata.east_asian_width(character) in "WF") for character in line]
            self.assertLessEqual(sum(widths), 80, line)
        self.assertEqual(2 * len(self.directories), out.count(self.folder[:20]))

    def test_terminal(self):
        for environment, sequence in (({"NO_COLOR": "1"}, "none"), ({}, r"\x1b\[(0|1|31)m")):
            leader, follower = pty.openpty()
            process = self.spawn(PROGRAM, *self.arguments, stdout=follower, env=environment)
            os.close(follower)
            text = drawn(leader, 30).replace("\r\n", "\n")
            os.close(leader)
            self.assertEqual(0, process.wait(10))
            self.assertRegex(text, "peaks of")
            self.assert_harmless(re.sub(sequence, "", text))

    def test_json(self):
        out = self.run_program(*self.arguments, "--format", "json")[0]
        self.assertTrue(out.isascii() and out[:-1].isprintable())
        report = json.loads(out)
        self.assertEqual([name.decode(errors="replace") for name in self.HOSTILE],
                         [row["command"] for row in report["processes"]])
        self.assertEqual([name.decode(errors="replace") for name in self.directories],
                         [row["directory"] for row in report["directories"]])

    def test_metrics(self):
        process = self.listen(*self.arguments)
        self.until_measured(process)
        text = self.ask(process, "/metrics")[2].decode()
        self.assertEqual(len(self.directories), text.count("\ncorvane_directory_size_bytes{"))
        err = self.run_program("--listen", process.address, status=1)[1]
        self.assertRegex(err, r"^corvane-monitor: cannot listen on .*\n$")
        self.ends(process, signal.SIGTERM)
        check = subprocess.run([tool("promtool"), "check", "metrics"], input=text.encode(),
                               capture_output=True)
        self.assertEqual((0, b"", b""), (check.returncode, check.stdout, check.stderr))


class Log(ProgramTest):
    def test_thresholds_and_file(self):
        watched = self.spawn(tool("sleep"), "2")
        arguments = ("--pid", f"{watched.pid}", "--compatible", "1", "4", "--log-level")
        processes = {level: self.start(*arguments, level) for level in
                     ("off", "fatal", "error", "trace")}
        to_file = self.start(*arguments, "error", "--log-file", self.path("log"))
        watched.wait()
        seen = {}
        for level, process in processes.items():
            self.assertEqual(0, process.wait(10))
            seen[level] = set(re.findall(r"(?m)^\S+ \S+ ([A-Z]+) \S*src/", self.errors(process)))
        self.assertEqual((set(), set(), {"ERROR"}), (seen["off"], seen["fatal"], seen["error"]))
        self.assertLessEqual(seen["error"], seen["trace"])
        self.assertEqual(0, to_file.wait(10))
        self.assertNotIn("ERROR", self.errors(to_file))
        self.assertRegex(read(self.path("log")), r" ERROR \S*src/.*\n$")
        err = self.run_program("--log-level", "error", "--log-file", self.folder, status=1)[1]
        self.assertRegex(err, r"^corvane-monitor: .*" + self.folder)


class LiveView(ProgramTest):
    def open_view(self, *arguments, rows=30, width=100):
        """The view on a terminal of its own; gives (process, terminal)."""
        leader, follower = pty.openpty()
        self.addCleanup(os.close, leader)
        self.resize(leader, rows, width)
        self.before = termios.tcgetattr(follower)
        process = self.spawn(PROGRAM, "--watch", "--dir", "/", *arguments, stdin=follower,
                             stdout=follower, stderr=follower, start_new_session=True,
                             preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
                             env={"TERM": "xterm", "LC_ALL": "C.UTF-8"})
        os.close(follower)
        return process, leader

    @staticmethod
    def resize(terminal, rows, width):
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, width, 0, 0))

    def test_starts_resizes_quits(self):
        busy = self.spawn(sys.executable, "-c", "while True: pass")
        process, terminal = self.open_view("--pid", f"{busy.pid}")
        text = drawn(terminal, 2.5)
        for part in ("CPU", "Memory", f"{busy.pid}"):
            self.assertIn(part, text)
        self.resize(terminal, 12, 40)

        def fits():
            places = re.findall(r"\x1b\[(\d+)(?:;\d+)?[Hd]", drawn(terminal, 0.7))
            return places and all(int(row) <= 12 for row in places)

        self.until(fits, "a smaller screen")
        os.write(terminal, b"q")
        self.ends(process)
        self.assertIn("\x1b[?1049l", drawn(terminal, 0.2), "the screen from before")
        self.assertEqual(self.before, termios.tcgetattr(terminal))

    def test_signals_and_a_lost_terminal(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            process, terminal = self.open_view()
            drawn(terminal, 1.5)
            if number is signal.SIGINT:
                os.write(terminal, b"\x03")
                self.ends(process)
            else:
                self.ends(process, number)
            self.assertEqual(self.before, termios.tcgetattr(terminal))
        process, terminal = self.open_view()
        drawn(terminal, 1.5)
        with open(os.devnull) as null:
            os.dup2(null.fileno(), terminal)  # closes the last descriptor of the terminal
        self.ends(process)

    def test_no_terminal(self):
        self.assertIn("needs a terminal", self.run_program("--watch", status=1)[1])
        leader, follower = pty.openpty()
        for kind in ("dumb", "no-such-terminal"):
            err = self.run_program("--watch", stdin=follower, stdout=follower, status=1,
                                   env={"TERM": kind})[1]
            self.assertIn("TERM", err)
        os.close(leader)
        os.close(follower)


def main():
    outcome = unittest.main(exit=False, verbosity=2).result
    for test, reason in outcome.skipped:
        print(f"skipped: {test}: {reason}")
    nothing_ran = outcome.testsRun > 0 and len(outcome.skipped) == outcome.testsRun
    sys.exit(not outcome.wasSuccessful() or (77 if nothing_ran else 0))


if __name__ == "__main__":
    main()
