# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Sustained load: how much log a device can write continuously when one file goes into the archive in a
check cycle. Computed from the processor time that xz takes, here and on a slower processor, and
shown by two runs at a small rotation size: one just below the limit, one well above it."""
from __future__ import annotations

import statistics
import time
from pathlib import Path

from benchmarks.measure import Row, Titled, run_tool
from benchmarks.scenery import write_log_text
from tests.harness import numbered, services
from tests.harness.paths import LIVE_LOG, SYSLOG
from tests.harness.waiting import wait_until

CYCLE_SECONDS = 10
SIZES_KIB = (128, 256, 600, 1024, 2048, 4096, 8192)
RUN_SIZE_KIB = 64
SLOW = 10  # times slower is the processor of a small device


def xz_seconds(kib: int) -> float:
    text = Path("/tmp/text")
    write_log_text(text, kib * 1024)
    return statistics.median(run_tool("floor", "compress", str(text)).processor_seconds
                             for _ in range(3))


def sustained_rate(kib: int, seconds: float) -> float:
    """In bytes a second. A cycle is a sleep and an xz. A rotation while xz runs wastes that cycle,
    since syslogd then moves the file: by the share of xz in a cycle, that is one xz more for each
    rotation."""
    return kib * 1024 / (CYCLE_SECONDS + 2 * seconds)


def measure(quick: bool) -> dict:
    progress = Titled("sustained load")
    table = []
    for kib in SIZES_KIB[:4] if quick else SIZES_KIB:
        progress.say(f"xz of {kib} KiB")
        seconds = xz_seconds(kib)
        table.append({"rotation_kib": kib, "xz_seconds": seconds,
                      "bytes_per_second": sustained_rate(kib, seconds),
                      "bytes_per_second_slow": sustained_rate(kib, SLOW * seconds)})
    progress.clear()
    return {"rows": [], "table": table}


def bytes_per_line() -> float:
    """Of a flood's line in the log, with what syslogd puts before it."""
    count = 200  # too few for a rotation
    flood = numbered.Flood(1000, limit=count)
    services.syslogd.start()
    flood.start()
    flood.join()
    if not wait_until(lambda: numbered.has_logged(count), 10):
        raise RuntimeError("syslogd has not logged the flood")
    services.syslogd.stop()
    size = LIVE_LOG.stat().st_size
    LIVE_LOG.unlink()
    return size / count


def flood(factor: float, duration: float) -> dict:
    """A flood of `factor` times the sustained rate, and the rotations that wait meanwhile."""
    progress = Titled(f"a flood of {factor:.0%} of the sustained rate")
    services.set_rotation_size(RUN_SIZE_KIB)
    rate = factor * sustained_rate(RUN_SIZE_KIB, xz_seconds(RUN_SIZE_KIB))
    line_size = bytes_per_line()
    services.syslogd.start()
    services.daemon.start()
    lines, waiting = numbered.Flood(rate / line_size), []
    start = time.monotonic()
    lines.start()
    while (elapsed := time.monotonic() - start) < duration:
        names = {path.name for path in SYSLOG.glob("messages.txt.[0-9]")}
        waiting.append((round(elapsed, 1), len(names)))
        progress.say(f"{elapsed:.0f} of {duration:.0f} s, {len(names)} rotations waiting")
        time.sleep(0.5)
    lines.stop()
    wait_until(lambda: numbered.has_logged(lines.written), 10)
    services.daemon.stop()
    services.syslogd.stop()
    progress.clear()
    verdict = numbered.judge(lines.written, [file.read() for file in numbered.log_files()])
    result = {"factor": factor, "bytes_per_second": rate, "waiting": waiting,
              "lines_written": lines.written, "lines_lost": len(verdict.lost), "rows": []}
    if factor < 1:  # It has to drain: then never more than the next two wait.
        name = f"{factor:.0%} of the sustained rate"
        most = max(number for _, number in waiting)
        result["rows"] = [
            Row("load", f"{name}: lines lost", "", [len(verdict.lost)], goal=0),
            Row("load", f"{name}: rotations waiting", "", [most], goal=2)]
    return result
