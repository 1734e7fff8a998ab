# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The judge of all scenes: what has to hold whatever failed.

Nothing is lost: each line of the log is in the archive, a rotation, the live log, or a leftover that
the next start archives. No archive file is damaged. A source goes only when what was made of it is
safe on disk. The end is one that is documented, and says why. Starts after it heal.
"""
from __future__ import annotations

import re
import signal
import subprocess
import tarfile
from pathlib import Path

from tests.faults import program, scenes
from tests.faults.program import End
from tests.faults.scenes import Sources
from tests.harness import log_socket, numbered
from tests.harness.daemon import NAME
from tests.harness.paths import ARCHIVE, LIVE_LOG, SIZE_LIMIT

# Exit status, and the last line. Why a run failed stands in the lines before.
ENDS = {
    0: (f"{NAME} exiting with code: 0",),
    1: (f"{NAME} exiting with code: 1",
        f"{NAME} could not initialize logging rotation subsystem and will now exit.",
        f"{NAME} is running already: another process has locked /var/run/{NAME}.lock."),
    2: (f"{NAME} exiting with code: 2",),
    3: (f"{NAME} exiting with code: 3",),
}
SIGNAL_NUMBERS = {"SIGHUP": 1, "SIGINT": 2, "SIGQUIT": 3, "SIGTERM": 15}
CAUGHT = re.compile(rf"{NAME} Caught signal (\d+), shutting down\.\.\.")


def caught_signals(end: End) -> list[int]:
    matches = (CAUGHT.fullmatch(line.text) for line in end.lines)
    return [int(match.group(1)) for match in matches if match]


def judge_form(end: End) -> list[str]:
    problems = []
    if end.hung:
        problems.append(f"it hung: no end within {program.HANG_SECONDS} s")
    problems += [f"malformed entry in the log: {raw!r}" for raw in end.malformed]
    return problems


def judge_end(end: End) -> list[str]:
    """Of a daemon that was not killed."""
    problems = judge_form(end)
    if end.last_line not in ENDS.get(end.status, ()):
        problems.append(f"status {end.status} with the last line '{end.last_line}'"
                        f"{', output: ' + end.output.strip() if end.output else ''}")
        return problems
    caught = caught_signals(end)
    by_signal = {15: 0}.get(caught[-1], caught[-1]) if caught else None
    has_reason = any(line.severity <= log_socket.WARNING and "will now exit" not in line.text
                     for line in end.lines)
    if end.status != by_signal and not (end.status == 1 and has_reason):
        problems.append(f"status {end.status} without a reason in the log")
    return problems


def judge_early_death(end: End) -> list[str]:
    """Of a daemon that a stop signal killed: it may not have installed its handlers yet."""
    first = f"{NAME} initializing."
    is_early = all(line.text == first for line in end.lines)
    return judge_form(end) + ([] if is_early else ["a stop signal killed it"])


def judge_silent_end(end: End) -> list[str]:
    """Of a daemon that had no log."""
    return judge_form(end) + ([] if end.status in ENDS else [f"status {end.status}"])


def judge_loading_end(end: End) -> list[str]:
    """Of a daemon that had no memory before main: it could do without, or the C++ library has aborted
    it, with a message on standard error only."""
    is_out_of_memory = end.status == -signal.SIGABRT and "std::bad_alloc" in end.output
    if is_out_of_memory and not end.lines:
        return []
    return judge_end(end)


def judge_signals(end: End) -> list[str]:
    """Of a traced daemon: the log names exactly the signals that were delivered."""
    delivered = [SIGNAL_NUMBERS[name] for name in end.delivered]
    caught = caught_signals(end)
    return [] if caught == delivered else [f"signals {delivered} delivered, {caught} logged"]


# What is logged at Error, or above, though nothing has failed.
NO_LIVE_LOG = f"GetFileSize({LIVE_LOG}) exception: "
SYSLOGD_STOPPED = "Syslog had to be stopped to deal with its last possible rotation."


def judge_clean_end(end: End) -> list[str]:
    """Of a start to which nothing happens."""
    problems = judge_end(end)
    if end.status != 0:
        problems.append(f"status {end.status} instead of 0")
    problems += [f"it logged '{line.text}'" for line in end.lines if line.severity <= log_socket.ERROR
                 and not line.text.startswith((NO_LIVE_LOG, SYSLOGD_STOPPED))]
    return problems


def judge_lines(sources: Sources) -> list[str]:
    files = [file.read() for file in numbered.log_files()
             if file.place != "archive" or not scenes.is_filler(file.path)]
    problems = [f"{file.path} is damaged" for file in files if file.is_safe and file.damaged]
    problems += judge_by_xz([file.path for file in files if file.place == "archive"])
    verdict = numbered.judge(sources.written, files)
    lost = [number for number in verdict.lost if number not in sources.may_go]
    if lost:
        problems.append(f"lines {', '.join(numbered.ranges(lost))} are lost ({verdict})")
    return problems


def judge_by_xz(archive: list[Path]) -> list[str]:
    if not archive:
        return []
    done = subprocess.run(["xz", "-t", "--", *map(str, archive)], stderr=subprocess.PIPE, text=True)
    if done.returncode != 0 and not done.stderr:
        return [f"xz -t ended with status {done.returncode}"]
    return [f"xz -t: {line}" for line in done.stderr.splitlines()]


def judge_healed() -> list[str]:
    """After the last clean start."""
    problems = [f"{file.path} is still there" for file in numbered.log_files()
                if file.place == "leftovers"]
    size = sum(path.stat().st_size for path in ARCHIVE.iterdir())
    if size >= SIZE_LIMIT:
        problems.append(f"the archive has {size} bytes")
    boots = [int(path.name.split(".")[1]) for path in ARCHIVE.iterdir()]
    if max(boots, default=0) > 999:
        problems.append(f"the archive has boot number {max(boots)}")
    return problems


def judge_once() -> list[str]:
    """After the last clean start."""
    files = [file.read() for file in numbered.log_files()]
    duplicated = numbered.Verdict((), files).duplicated
    return [f"{duplicated} lines are there twice"] if duplicated else []


RENAME = re.compile(r'rename(at2)?\((AT_FDCWD[^,]*, )?"(?P<of>[^"]*)", '
                    r'(AT_FDCWD[^,]*, )?"(?P<to>[^"]*)"')
REMOVAL = re.compile(r'unlink\("(?P<path>/perm/logs/syslog/[^"/]*)"\)')
SYNC = re.compile(r"f(data)?sync\(\d+<(?P<path>[^>]*)>\)")


def judge_order(end: End) -> list[str]:
    """Of a traced daemon: a power cut may come at any moment, so a source may be removed only once
    the compressed file was synced, then named in the archive, and then the archive synced. If an
    earlier run has archived it, the archive has to be synced all the same."""
    problems = []
    synced: set[str] = set()  # compressed files, and the archive
    # Sources with an archive file: whether they may go. None: never, its content was not synced.
    waiting: dict[str, bool | None] = {}
    for call in end.calls:
        if not call.succeeded:
            continue
        if call.name in ("clone", "clone3", "vfork"):
            synced &= {str(ARCHIVE)}  # xz writes anew
        elif sync := SYNC.match(call.text):
            synced.add(sync.group("path"))
            if sync.group("path") == str(ARCHIVE):
                waiting = {path: None if may_go is None else True
                           for path, may_go in waiting.items()}
        elif rename := RENAME.match(call.text):
            of, to = rename.group("of", "to")
            if to.startswith(f"{ARCHIVE}/") and not of.startswith(f"{ARCHIVE}/"):
                waiting[of[:-len(".xz")]] = False if of in synced else None
            elif of in waiting:
                waiting[to] = waiting.pop(of)
        elif removal := REMOVAL.match(call.text):
            path = removal.group("path")
            may_go = waiting.get(path, str(ARCHIVE) in synced)
            if not path.endswith(".xz") and not may_go:
                problems.append(f"{path} was removed before its archive file was safe on disk")
    return problems


def judge_syslogd(end: End) -> list[str]:
    """A daemon that goes on has started syslogd again."""
    calls = scenes.SYSLOG_CALLS.read_text().split() if scenes.SYSLOG_CALLS.exists() else []
    if end.status == 0 and calls and calls[-1] != "start":
        return [f"syslogd was left stopped (its init script was called with {calls})"]
    return []


DOWNLOAD = Path("/tmp/syslog.tar")
FAILED, NO_MEMORY = 255, 254  # exit statuses of the program that downloads
NO_LISTING = "Exception in GetFilesInDir(/perm/logs/syslog/archive)"


def judge_download(end: End, *, is_clean: bool) -> list[str]:
    """The result is the number of logs packed, and they are there; or failure, and a reason."""
    problems = judge_form(end)
    if is_clean and end.status != 4:
        problems.append(f"{end.status} logs packed instead of 4")
    if end.status == NO_MEMORY:
        return problems
    if end.status == FAILED:
        has_reason = any(line.severity <= log_socket.WARNING for line in end.lines)
        return problems + ([] if has_reason else ["it failed without a reason in the log"])
    if end.status < 0:
        return problems + [f"killed by signal {-end.status}, output: {end.output.strip()}"]
    if end.status == 1 and any(line.text.startswith(NO_LISTING) for line in end.lines):
        return problems  # the result for an archive that cannot be listed, whatever was packed
    return problems + judge_tar(end.status)


def judge_tar(expected: int) -> list[str]:
    if expected == 0:
        return []
    try:
        with tarfile.open(DOWNLOAD) as tar:
            files = {member.name: tar.extractfile(member) for member in tar}
            contents = {name: file.read() for name, file in files.items() if file is not None}
    except (OSError, tarfile.TarError) as error:
        return [f"{DOWNLOAD}: {error}"]
    problems = []
    if len(contents) != expected:
        problems.append(f"{DOWNLOAD} has {sorted(contents)}, not {expected} logs")
    for name, content in contents.items():
        done = subprocess.run(["xz", "-dc"], input=content, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)
        source = ARCHIVE / name
        is_whole = content == source.read_bytes() if source.exists() \
            else done.stdout == LIVE_LOG.read_bytes()
        if done.returncode != 0 or not is_whole:
            problems.append(f"{name} in {DOWNLOAD} is not what was packed")
    return problems
