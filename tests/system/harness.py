"""What the system tests stand on: the daemon as a black box in a private device, its log lines as
they arrive at /dev/log, and whole folders compared at once.

A test file ends in `harness.main()`, which enters the device. It works on the real paths, so it
runs nowhere else; every test has a /perm and a /scratch of its own, and no test waits for a time,
only for events.
"""
from __future__ import annotations

import argparse
import lzma
import os
import re
import select
import signal
import socket
import subprocess
import sys
import threading
import unittest
from pathlib import Path
from typing import Callable, Sequence

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "rig"))
import device  # noqa: E402
from device import ARCHIVE, LIVE_LOG, SYSLOG  # noqa: E402

DAEMON = "/usr/sbin/vandis-moraine"
SYSLOGD_SCRIPT = Path("/etc/init.d/S01syslogd-moraine")
SYSLOGD_PID_FILE = Path("/var/run/syslogd.pid")
SCRATCH = Path("/scratch")
STAND_INS = SCRATCH / "bin"
SANITIZER_REPORT = SCRATCH / "sanitizer"

# For every wait, in seconds. Generous: it is only ever used up by a defect.
limit = 60.0

STATUS_AFTER = {signal.SIGTERM: 0, signal.SIGHUP: 1, signal.SIGINT: 2, signal.SIGQUIT: 3}

ERROR, WARNING, INFO = 3, 4, 6
Line = tuple  # (severity, text)


class Like:
    """Equal to every text that the pattern matches as a whole."""

    def __init__(self, pattern: str) -> None:
        self.pattern = pattern

    def __eq__(self, text: object) -> bool:
        return isinstance(text, str) and bool(re.fullmatch(self.pattern, text, re.DOTALL))

    def __repr__(self) -> str:
        return f"Like({self.pattern!r})"


def error(text: str | Like) -> Line:
    return (ERROR, text)


def warning(text: str | Like) -> Line:
    return (WARNING, text)


def info(text: str | Like) -> Line:
    return (INFO, text)


# The lines of an undisturbed life.
INITIALIZING = info("vandis-moraine initializing.")
ARCHIVE_SIZE = info(Like(r"Archive directory size is \d+\.\d{3} (bytes|kiB|MiB|GiB)\."))
EMPTY_ARCHIVE = info("Archive directory size is 0.000 bytes.")
RUNNING = info("vandis-moraine running.")
START_UP_FAILED = error(
    "vandis-moraine could not initialize logging rotation subsystem and will now exit.")


def caught(number: int) -> Line:
    return info(f"vandis-moraine Caught signal {int(number)}, shutting down...")


def exiting(status: int) -> Line:
    return info(f"vandis-moraine exiting with code: {status}")


def archived(source: str, boot: int = 1) -> Line:
    """`source`: the bare name of a file of the syslog folder."""
    return info(Like(
        rf"Archived '{SYSLOG}/{re.escape(source)}' to '{ARCHIVE}/messages\.{boot:03}"
        r"\.1970-\d\d-\d\d\.\d\d:\d\d:\d\d\.txt\.xz' in \d+\.\d seconds\."))


def xz_failed(path: str, wait_status: int | str) -> Line:
    """`wait_status`: a number, or a pattern."""
    return error(Like(rf"Unable to 'xz -fk {re.escape(path)}'\.  Result: {wait_status}, "
                      r"Error: '[^']*'"))


def start_settings(fast_sleep: float) -> str:
    """What /etc/default makes of `daemon_environment`, for a daemon that its init script starts."""
    environment = {**daemon_environment(fast_sleep), "PATH": f"{STAND_INS}:{os.environ['PATH']}"}
    return "".join(f"export {name}='{value}'\n" for name, value in environment.items())


def daemon_environment(fast_sleep: float = 0) -> dict[str, str]:
    """`fast_sleep`: how many times faster than 10 seconds one cycle follows another."""
    build = os.environ["MORAINE_BUILD"]
    return {
        "LD_PRELOAD": f"{build}/tests/system/libfast_sleep.so",
        "FAST_SLEEP": str(fast_sleep),
        # The preloaded library comes before the sanitizers' own.
        "ASAN_OPTIONS": f"verify_asan_link_order=0:detect_leaks=1:log_path={SANITIZER_REPORT}",
        "UBSAN_OPTIONS": f"print_stacktrace=1:log_path={SANITIZER_REPORT}",
    }


class LogSink(threading.Thread):
    """/dev/log, read as lines arrive: severity, tag and text are what a syslogd would get."""

    FORM = re.compile(rb"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d ([^:]*): (.*)", re.DOTALL)
    USER = 1  # the facility

    def __init__(self) -> None:
        super().__init__(daemon=True)
        Path("/dev/log").unlink(missing_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind("/dev/log")
        self._ended = threading.Event()
        self._reading = threading.Lock()
        self._is_blocked = False
        self._arrival = threading.Condition()
        self._lines: list[Line] = []
        self.unexpected: list[bytes] = []
        self.start()

    def close(self) -> None:
        if self._is_blocked:  # by a test that failed before it came to unblock
            self.unblock()
        self._ended.set()
        self.join()
        self._socket.close()
        Path("/dev/log").unlink()

    def run(self) -> None:
        while not self._ended.is_set():
            if select.select([self._socket], [], [], 0.05)[0]:
                with self._reading:
                    self._receive()

    def _receive(self) -> None:
        with self._arrival:
            try:
                while True:
                    self._add(self._socket.recv(65536, socket.MSG_DONTWAIT))
            except BlockingIOError:
                self._arrival.notify_all()

    def _add(self, datagram: bytes) -> None:
        match = self.FORM.fullmatch(datagram)
        if datagram == FILLING:
            return
        if not match or match[2] != b"vandis-moraine" or int(match[1]) >> 3 != self.USER:
            self.unexpected.append(datagram)
            return
        text = match[3].decode(errors="surrogateescape")
        self._lines.append((int(match[1]) & 7, text))

    def all(self) -> list[Line]:
        """The lines so far, those that have been sent but not yet read included."""
        with self._reading:
            self._receive()
        with self._arrival:
            return list(self._lines)

    def wait_for(self, line: Line, count: int = 1) -> None:
        """Until this line has come `count` times."""
        with self._arrival:
            came = self._arrival.wait_for(lambda: self._lines.count(line) >= count, limit)
        if not came:
            raise AssertionError(f"no line {line} after {limit:.0f} s, but {self._lines[-20:]}")

    def block(self, after: int = 0) -> None:
        """From here on, `after` so many lines, who writes one has to wait in the middle of it."""
        self._reading.acquire()
        self._is_blocked = True
        sent = True
        while sent:  # One socket must not have too much under way: it takes several.
            sent = False
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as filler:
                filler.connect("/dev/log")
                try:
                    while True:
                        filler.send(FILLING, socket.MSG_DONTWAIT)
                        sent = True
                except BlockingIOError:
                    pass
        for _ in range(after):
            self._add(self._socket.recv(65536, socket.MSG_DONTWAIT))

    def unblock(self) -> None:
        self._is_blocked = False
        self._reading.release()


FILLING = b"<15>filling"


class Daemon:
    """The daemon, started by hand: its process id and exit status are seen directly."""

    def __init__(self, fast_sleep: float = 0, strace: Sequence[str] = (),
                 path: str | None = None) -> None:
        environment = {**os.environ, **daemon_environment(fast_sleep)}
        environment["PATH"] = path or f"{STAND_INS}:{os.environ['PATH']}"
        command = [DAEMON]
        if strace:
            # -D: the daemon, not strace, is the child.
            command = ["strace", "-D", "-o", str(SCRATCH / "strace"), *strace, *command]
            environment["ASAN_OPTIONS"] += ":detect_leaks=0"  # That would need ptrace itself.
        with (SCRATCH / "stderr").open("ab") as stderr:
            self._process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                             stdout=stderr, stderr=stderr, start_new_session=True)
        self.pid = self._process.pid

    def signal(self, number: int) -> None:
        os.kill(self.pid, number)

    def wait(self) -> int:
        """The exit status, once it has ended; -N if signal N killed it."""
        return self._process.wait(limit)

    @property
    def is_running(self) -> bool:
        return self._process.poll() is None

    @property
    def handles_signals(self) -> bool:
        return all(self._is_in("SigCgt", number) for number in STATUS_AFTER)

    def blocks(self, number: int) -> bool:
        return self._is_in("SigBlk", number)

    def has_pending(self, number: int) -> bool:
        """Whether a signal has been sent but not yet delivered."""
        return self._is_in("ShdPnd", number)

    def _is_in(self, signal_set: str, number: int) -> bool:
        found = re.search(rf"^{signal_set}:\s*(\w+)$", self._proc("status"), re.MULTILINE)
        return bool(found) and int(found[1], 16) & 1 << number - 1 != 0

    @property
    def waits(self) -> bool:
        """For time, for a child, or for /dev/log: whichever of them there is just then."""
        return self._proc("stat").rpartition(")")[2].split()[:1] == ["S"]

    def _proc(self, name: str) -> str:
        try:
            return Path(f"/proc/{self.pid}/{name}").read_text()
        except (FileNotFoundError, ProcessLookupError):
            return ""

    def end(self) -> None:
        """And what it runs, whatever they are at."""
        if self.is_running:
            os.killpg(self.pid, signal.SIGKILL)
            self._process.wait()


class DeviceCase(unittest.TestCase):
    """A test on a device that was just made: /perm is empty but for /perm/logs/syslog, and nothing
    runs."""

    maxDiff = None

    def setUp(self) -> None:
        require_device()
        self.mount("-t", "tmpfs", "-o", "size=2147483648,mode=0755", "tmpfs", "/perm")
        SCRATCH.mkdir(exist_ok=True)
        self.mount("-t", "tmpfs", "tmpfs", str(SCRATCH))
        STAND_INS.mkdir()
        SYSLOG.mkdir(parents=True)
        self.addCleanup(self._check_sanitizers)
        self.addCleanup(self._remove_run_files)

    def _check_sanitizers(self) -> None:
        reports = [path.read_text() for path in SCRATCH.glob(f"{SANITIZER_REPORT.name}.*")]
        self.assertEqual(reports, [], "\n".join(reports))

    def _remove_run_files(self) -> None:
        for path in (SYSLOGD_PID_FILE, Path("/var/run/vandis-moraine.pid"),
                     Path("/etc/default/syslogd-moraine"), Path("/etc/default/vandis-moraine")):
            if path.is_dir():
                path.rmdir()
            path.unlink(missing_ok=True)

    def mount(self, *arguments: str) -> None:
        """Until the end of the test. The last argument is where."""
        subprocess.run(["mount", *arguments], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", arguments[-1]], check=True)

    def remount(self, options: str) -> None:
        """Changes the /perm of this test."""
        # With the source, too: else mount(8) repeats the options that it finds, among them owners
        # that an ordinary user's device does not know.
        subprocess.run(["mount", "-o", f"remount,{options}", "tmpfs", "/perm"], check=True)

    def wait_until(self, condition: Callable[[], object], what: str) -> None:
        if not device.wait_until(lambda: bool(condition()), limit):
            self.fail(f"waited {limit:.0f} s for this: {what}")

    def stand_in(self, name: str, script: str) -> None:
        """Puts a shell script before the device's program of this name, for the daemon."""
        write_script(STAND_INS / name, script)

    def slow_xz(self) -> Gate:
        """From here on `xz` waits at a gate before it compresses."""
        gate = Gate("xz")
        self.stand_in("xz", f"{gate.script}\nexec /usr/bin/xz \"$@\"")
        return gate

    def init_script(self, script: str) -> None:
        """Replaces syslogd's init script."""
        write_script(SCRATCH / "init-script", script)
        self.mount("--bind", str(SCRATCH / "init-script"), str(SYSLOGD_SCRIPT))


class BlackBoxCase(DeviceCase):
    """No syslogd runs: the test reads /dev/log itself."""

    def setUp(self) -> None:
        super().setUp()
        write(LIVE_LOG)
        self.log = LogSink()
        self.addCleanup(self._close_log)
        self.daemons: list[Daemon] = []
        self.addCleanup(lambda: [daemon.end() for daemon in self.daemons])

    def _close_log(self) -> None:
        self.log.close()
        self.assertEqual(self.log.unexpected, [], "came to /dev/log, but is no line of the daemon")

    def start(self, fast_sleep: float = 0, strace: Sequence[str] = (),
              path: str | None = None) -> Daemon:
        """Starts the daemon. Without `fast_sleep` only a stop signal brings a cycle about."""
        self.daemons.append(Daemon(fast_sleep, strace, path))
        return self.daemons[-1]

    def start_and_wait(self, fast_sleep: float = 0, strace: Sequence[str] = (),
                       path: str | None = None) -> Daemon:
        """The same, and waits until it sleeps for the first time."""
        count = self.log.all().count(RUNNING)
        daemon = self.start(fast_sleep, strace, path)
        self.log.wait_for(RUNNING, count + 1)
        self.wait_until(lambda: daemon.waits, "the daemon sleeps")
        return daemon

    def stop(self, daemon: Daemon, number: int = signal.SIGTERM) -> int:
        """Sends a stop signal and returns the exit status."""
        daemon.signal(number)
        return self.wait(daemon)

    def deliver(self, daemon: Daemon, *numbers: int) -> None:
        """Sends signals so that they are delivered in this order."""
        for number in numbers:
            daemon.signal(number)
            self.wait_until(lambda: not daemon.has_pending(number), "the signal is delivered")

    def wait(self, daemon: Daemon) -> int:
        try:
            return daemon.wait()
        except subprocess.TimeoutExpired:
            self.fail(f"the daemon still runs after {limit:.0f} s, with these lines: "
                      f"{self.log.all()[-20:]}")

    def run_once(self) -> list[Line]:
        """The lines of a life that consists of start-up and, if that succeeds, one cycle."""
        first = len(self.log.all())
        daemon = self.start()
        self.wait_until(lambda: not daemon.is_running or
                        RUNNING in self.log.all()[first:] and daemon.waits, "the daemon sleeps")
        if daemon.is_running:
            daemon.signal(signal.SIGTERM)
        self.status = self.wait(daemon)
        return self.log.all()[first:]


class Gate:
    """A place in a shell script that only a test lets it pass."""

    def __init__(self, name: str) -> None:
        self._reached = SCRATCH / f"{name}.reached"
        self._open = SCRATCH / f"{name}.open"
        self.script = (f"touch {self._reached}\n"
                       f"until [ -e {self._open} ]; do sleep 0.02; done")

    @property
    def is_reached(self) -> bool:
        return self._reached.exists()

    def open(self) -> None:
        self._open.touch()


def write_script(path: Path, script: str) -> None:
    path.write_text(f"#!/bin/sh\n{script}\n")
    path.chmod(0o755)


def write(path: Path | str, content: str | bytes = "") -> Path:
    """A bare name is one of the syslog folder."""
    path = SYSLOG / path
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content.encode() if isinstance(content, str) else content)
    return path


def write_sparse(path: Path | str, size: int) -> Path:
    path = write(path)
    os.truncate(path, size)
    return path


def archive_name(boot: int, time_stamp: str = "1970-01-01.00:00:01") -> str:
    return f"messages.{boot:03}.{time_stamp}.txt.xz"


def content_of(folder: Path) -> dict[str, str]:
    """Name to content of all that is in a folder: "NAME/" for a folder, "NAME@" for a link, which
    has its target as content, "NAME" for a file."""
    found = {}
    for path in folder.iterdir():
        if path.is_symlink():
            found[f"{path.name}@"] = os.readlink(path)
        elif path.is_dir():
            found[f"{path.name}/"] = ""
        else:
            found[path.name] = text_of(path.read_bytes())
    return found


def archive(except_for: Sequence[str] = ()) -> list[tuple[int, str]]:
    """Boot number and text of each archive file, the oldest first. Where the source had a hole,
    its size stands."""
    return [(int(path.name.split(".")[1]), text_of(lzma.decompress(path.read_bytes())))
            for path in sorted(ARCHIVE.iterdir()) if path.name not in except_for]


def text_of(content: bytes) -> str:
    text = content.decode(errors="surrogateescape")
    return re.sub("\0{100,}", lambda hole: f"[{len(hole[0])} zeros]", text)


def log_lines() -> list[str]:
    """The text of each line of the daemon that a syslogd has written, the oldest first."""
    form = re.compile(rb"^\w{3} [ \d]\d \S+ \S+ user\.\w+ vandis-moraine: (.*)$", re.MULTILINE)
    lines: list[str] = []
    for file in device.log_files():
        try:
            content = file.path.read_bytes()
        except FileNotFoundError:  # archived meanwhile
            continue
        if file.place == "archive":
            content = lzma.decompress(content)
        lines += [line.decode(errors="surrogateescape") for line in form.findall(content)]
    return lines


def require_device() -> None:
    # What this does to /perm and /dev/log must never happen to a machine.
    if socket.gethostname() != "device" or os.getpid() != 2:
        raise RuntimeError("this runs only inside a private device, which harness.main() enters")


def main() -> None:
    """Enters a private device and runs the tests of the file that was called."""
    global limit
    parser = argparse.ArgumentParser(
        description=sys.modules["__main__"].__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--build", type=Path, default=device.ROOT / "build/dev",
                        help="folder in which the daemon was built (build/dev)")
    parser.add_argument("--busybox", type=Path, default=device.ROOT / "build/busybox/busybox",
                        help="made by rig/build-busybox (build/busybox/busybox)")
    parser.add_argument("--limit", type=float, default=limit,
                        help="seconds that a test waits for an event (60)")
    parser.add_argument("tests", nargs="*", metavar="CLASS[.TEST]", help="run these only")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if not arguments.inside:
        enter_device(arguments)

    require_device()
    limit = arguments.limit
    os.environ["MORAINE_BUILD"] = str(arguments.build)
    unittest.main(argv=[sys.argv[0], *arguments.tests], verbosity=2, failfast=False)


def enter_device(arguments: argparse.Namespace) -> None:
    build, busybox = arguments.build.resolve(), arguments.busybox.resolve()
    for path, remedy in ((busybox, "run rig/build-busybox"),
                         (build / "vandis-moraine", "build it, as CONTRIBUTING.md says"),
                         (build / "tests/system/libfast_sleep.so", "build all targets")):
        if not path.exists():
            sys.exit(f"{path} is missing: {remedy}")
    argv = ["python3", "-B", str(Path(sys.argv[0]).resolve()), "--inside", "--build", str(build),
            "--limit", str(arguments.limit), *arguments.tests]
    # Writable, for coverage data.
    line = device.command(build, busybox, argv, options=["--bind-rw", str(build)])
    sys.stdout.flush()
    os.execv(line[0], line)
