# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Makes one fault in one scene, and lets the judge look at what came of it.

A fault has a place and a kind. The place is a system call ("fsync#2": the second fsync of the
process) or an allocation ("malloc#17"); the kind is an errno, SIGKILL, or a stop signal. Places are
taken from a run without faults.
"""
from __future__ import annotations

import dataclasses
import re
import signal
from typing import Iterable

from tests.faults import judge, program
from tests.faults.program import STOP_SIGNALS, Call, End, Runner
from tests.faults.scenes import (CYCLE, CYCLE_AND_END, LOADING, SCENES, START_UP, SYSLOG_CALLS,
                                 WHOLE, Scene, StandInSyslogd, clean_device)
from tests.harness.paths import DAEMON

# What each call can fail with. A call that cannot fail, but has an effect, is a place to be killed.
FILE = "EIO EACCES ENOMEM"
CHANGE = "EIO ENOSPC EROFS EACCES"
DATA = "EIO ENOSPC EINTR"
ERRNOS = {
    "openat": "EIO EACCES EMFILE ENOMEM EINTR", "close": "EIO EINTR", "read": "EIO EINTR",
    "pread64": "EIO EINTR", "pipe2": "EMFILE ENFILE",
    "write": DATA, "copy_file_range": DATA, "sendfile": DATA, "fadvise64": "EINVAL",
    "getdents64": "EIO ENOMEM", "newfstatat": FILE, "fstat": FILE, "statx": FILE,
    "statfs": FILE + " EINTR", "lseek": "EINVAL", "ioctl": "EIO",
    "rename": CHANGE, "renameat2": CHANGE + " EINVAL EEXIST", "unlink": CHANGE, "rmdir": CHANGE,
    "mkdir": CHANGE, "fchmod": CHANGE,
    "fsync": "EIO ENOSPC EROFS EINTR", "flock": "ENOLCK EAGAIN", "fcntl": "EAGAIN EINVAL ENOLCK",
    "clone3": "EAGAIN ENOMEM", "vfork": "EAGAIN ENOMEM", "wait4": "EINTR ECHILD",
    "kill": "EPERM ESRCH", "clock_nanosleep": "EINTR EINVAL",
    "rt_sigaction": "", "rt_sigprocmask": "",
    "socket": "EMFILE ENOMEM", "connect": "ECONNREFUSED EACCES EINTR",
    "sendto": "ECONNREFUSED ENOBUFS EINTR",
}
# They touch neither files, nor processes, nor signals, nor the clock; allocations fail by name.
PASSIVE = ("brk", "mmap", "munmap", "mprotect", "mremap", "madvise", "futex", "getrandom",
           "rt_sigreturn", "geteuid", "prlimit64")
MARKS = ("getppid", "getpid", "gettid", "tgkill")  # calls of the preloaded library

# The thousand renames of a thousand files are one idea: of many calls alike, these many at each end.
ALIKE_AT_EACH_END = 3

ALLOCATION = "malloc"

# Behind an errno: all further calls of that name fail, too. No interruption lasts, and these calls
# are repeated until they succeed.
FROM_HERE_ON = "+"
REPEATED = ("wait4", "clock_nanosleep")

# Without them there is no log to judge.
LOGGING = ("socket", "connect", "sendto")


@dataclasses.dataclass(frozen=True)
class Fault:
    scene: str
    place: str
    kind: str

    def __str__(self) -> str:
        return f"--scene {self.scene} --call '{self.place}' --fault {self.kind}"


@dataclasses.dataclass
class Result:
    fault: Fault
    problems: list[str]
    reached: bool = True
    end: End | None = None
    notes: list[str] = dataclasses.field(default_factory=list)


class UnknownCall(Exception):
    """A system call that has no entry in ERRNOS or PASSIVE."""


def part_of_trace(scene: Scene, calls: list[Call]) -> list[Call]:
    if scene.part == LOADING:
        return []

    def places(name: str, text: str = "") -> list[int]:
        return [i for i, call in enumerate(calls) if call.name == name and text in call.text]

    main_begins, main_ends = places("getppid")
    begin = main_begins if scene.part in (START_UP, WHOLE) \
        else places("clock_nanosleep", "tv_nsec=2}")[0]
    end = places("tgkill")[0] if scene.part in (START_UP, CYCLE) else main_ends
    return [call for call in calls[begin:end] if call.name not in MARKS]


def kinds(call: Call) -> list[str]:
    """What is done at a call, stop signals left out."""
    errnos = ERRNOS[call.name].split()
    lasting = [errno + FROM_HERE_ON for errno in errnos
               if errno != "EINTR" and call.name not in REPEATED]
    return [*errnos, *lasting, "SIGKILL"]


def representatives(calls: list[Call]) -> Iterable[Call]:
    """All calls, but of more than twelve alike only the first three and the last three."""
    alike: dict[str, list[Call]] = {}
    for call in calls:
        alike.setdefault(re.sub(r"\d+", "#", call.text), []).append(call)
    for group in alike.values():
        ends = ALIKE_AT_EACH_END
        yield from group if len(group) <= 4 * ends else group[:ends] + group[-ends:]


def is_reached(fault: Fault, end: End) -> bool:
    """Of a traced program. A stop signal may come when none is delivered any more."""
    if fault.kind == "SIGKILL":
        return end.status == -signal.SIGKILL
    calls = [call.text for call in end.calls if call.key == fault.place]
    return any(fault.kind in STOP_SIGNALS or text.endswith("(INJECTED)") for text in calls)


class Laboratory:
    """The sandbox in which the scenes play."""

    def __init__(self) -> None:
        self.runner = Runner()
        self.syslogd = StandInSyslogd()
        self.runner.keep(self.syslogd.pid)

    def calls(self, scene: Scene) -> list[Call]:
        """Of a run without faults, those of the scene's part."""
        self._prepare(scene)
        end = self.runner.run(scene.program, cycles=scene.cycles, strace=())
        return part_of_trace(scene, end.calls)

    def _allocations(self, scene: Scene) -> range:
        self._prepare(scene)
        end = self.runner.run(scene.program, cycles=scene.cycles,
                              settings={"FAULTS_REPORT": program.REPORT})
        counts = [0, *(number for _, number in end.report)]  # at main, at each sleep, at the end
        begin, last = {LOADING: (0, 1), START_UP: (1, 2), CYCLE: (2, 3), CYCLE_AND_END: (2, -1),
                       WHOLE: (1, -1)}[scene.part]
        return range(counts[begin] + 1, counts[last] + 1)

    def faults(self, scene: Scene) -> list[Fault]:
        calls = self.calls(scene)
        found = []
        for call in representatives(calls):
            if call.name not in ERRNOS and call.name not in PASSIVE:
                raise UnknownCall(f"{call.text}: give {call.name} its errnos in inject.py")
            if call.name not in PASSIVE:
                found += [Fault(scene.name, call.key, kind) for kind in kinds(call)]
        if scene.signals:
            found += [Fault(scene.name, call.key, kind) for call in calls for kind in STOP_SIGNALS]
        if scene.memory:
            found += [Fault(scene.name, f"{ALLOCATION}#{number}", "ENOMEM")
                      for number in self._allocations(scene)]
        return found

    def _prepare(self, scene: Scene) -> None:
        clean_device(self.syslogd)
        self.sources = scene.prepare()

    def make(self, fault: Fault) -> Result:
        """Makes the fault, starts twice more, and judges after each."""
        scene = SCENES[fault.scene]
        self._prepare(scene)
        if fault.place.startswith(ALLOCATION + "#"):
            end = self._run_short_of_memory(scene, fault)
            reached = any(event == "failed" for event, _ in end.report)
        else:
            end = self._run_traced(scene, fault)
            reached = is_reached(fault, end)
        problems = self._judge_faulty_run(scene, fault, end) + judge.judge_lines(self.sources)
        for start in ("next", "second"):
            problems += [f"{start} start: {problem}" for problem in self._clean_run(scene)]
        if scene.program == DAEMON:
            problems += judge.judge_healed()
            # A rotation is not recognised as archived while nothing can be read.
            if not (scene.name == "twin" and fault.kind.endswith(FROM_HERE_ON)):
                problems += judge.judge_once()
        return Result(fault, problems, reached, end)

    def _run_short_of_memory(self, scene: Scene, fault: Fault) -> End:
        return self.runner.run(scene.program, cycles=scene.cycles, settings={
            "FAULTS_ALLOCATION": fault.place.split("#")[1], "FAULTS_REPORT": program.REPORT})

    def _run_traced(self, scene: Scene, fault: Fault) -> End:
        name, ordinal = fault.place.split("#")
        action = "signal" if fault.kind.startswith("SIG") else "error"
        kind = fault.kind.rstrip(FROM_HERE_ON)
        when = ordinal + (FROM_HERE_ON if fault.kind.endswith(FROM_HERE_ON) else "")
        return self.runner.run(scene.program, cycles=scene.cycles,
                               strace=("-e", f"inject={name}:{action}={kind}:when={when}"))

    def _judge_faulty_run(self, scene: Scene, fault: Fault, end: End) -> list[str]:
        if fault.kind == "SIGKILL":
            problems = judge.judge_form(end)
        elif scene.program == program.DOWNLOAD:
            problems = judge.judge_download(end, is_clean=False)
        elif fault.place.startswith(LOGGING) and fault.kind.endswith(FROM_HERE_ON):
            problems = judge.judge_silent_end(end)
        elif scene.part == LOADING:
            problems = judge.judge_loading_end(end)
        elif fault.kind in STOP_SIGNALS and end.status < 0:
            problems = judge.judge_early_death(end)
        else:
            problems = judge.judge_end(end) + judge.judge_syslogd(end)
        if end.calls and scene.program == DAEMON:
            problems += judge.judge_order(end)
            if fault.kind in STOP_SIGNALS and end.status >= 0:
                problems += judge.judge_signals(end)
        return problems

    def _clean_run(self, scene: Scene) -> list[str]:
        if scene.program == program.DOWNLOAD:
            self.runner.wait_for_orphans()
            end = self.runner.run(scene.program)
            problems = judge.judge_download(end, is_clean=True)
        else:
            SYSLOG_CALLS.unlink(missing_ok=True)
            end = self.runner.run(scene.program)
            problems = judge.judge_clean_end(end) + judge.judge_syslogd(end)
            self.runner.wait_for_orphans()
        return problems + judge.judge_lines(self.sources)
