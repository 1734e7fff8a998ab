# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""How often a program that fails is started again."""
from __future__ import annotations

import os
import signal
from pathlib import Path

from tests.harness import case
from tests.harness.init_case import TICK, SupervisorCase, numbers

STARTS = Path("/scratch/starts")
NOTED = Path("/scratch/noted")
# The supervisor reads the clock when it has started a program, which must not move it before.
WAIT = "until [ $(wc -l </scratch/noted) -ge $(wc -l </scratch/starts) ]; do :; done"
HOUR, DAY = 3600, 86400


class RestartDelays(SupervisorCase):

    def setUp(self) -> None:
        super().setUp()
        STARTS.touch()
        NOTED.touch()

    def starts(self, run: str = "exit 1", end: int = 2 * DAY, **settings: str) -> list[int]:
        """Returns when a program was started, in seconds since its first start, up to `end`."""
        supervisor = self.supervise(
            'case "$1" in\n'
            '    run) read -r now _ </proc/uptime; echo $now >>/scratch/starts\n'
            f'        {WAIT}; {run};;\n'
            '    started) echo >>/scratch/noted;;\nesac', **settings)
        self.wait_until(lambda: self.times()[-1:] > [end], "the time is over")
        os.killpg(supervisor, signal.SIGKILL)
        return [time for time in self.times() if time < end]

    @staticmethod
    def times() -> list[int]:
        times = numbers(STARTS)
        return [time - times[0] for time in times]

    @staticmethod
    def delays(times: list[int]) -> list[int]:
        return [after - before for before, after in zip(times, times[1:])]

    def test_a_program_that_always_fails(self) -> None:
        times = self.starts()
        self.assertEqual(self.delays(times)[:8], [60, 120, 240, 480, 960, 1920, HOUR, HOUR])
        self.assertEqual(set(self.delays(times)[8:]), {HOUR})
        first_day = [time for time in times if time < DAY]
        self.assertEqual(len(first_day) - 1, 28)  # restarts
        self.assertEqual(len(times) - len(first_day), 24)

    def test_syslogd(self) -> None:
        """Its first restart is immediate."""
        times = self.starts(FIRST_RESTART="0", end=DAY)
        self.assertEqual(self.delays(times)[:4], [0, 60, 120, 240])

    def test_other_settings(self) -> None:
        times = self.starts(end=200, FIRST_RESTART="7", RESTART_SECONDS="7", RESTART_MAX_SECONDS="20")
        self.assertEqual(self.delays(times)[:5], [7, 14, 20, 20, 20])

    def test_an_hour_without_a_failure(self) -> None:
        """Then the delays begin anew: once every hour and a minute is the most that a program that
        fails can be started again."""
        times = self.starts(run=f"set -- {HOUR}; {TICK}; exit 1")
        self.assertEqual(set(self.delays(times)), {HOUR + 60})

    def test_just_under_an_hour(self) -> None:
        times = self.starts(run=f"set -- {HOUR - 1}; {TICK}; exit 1")
        self.assertEqual(self.delays(times)[:7],
                         [HOUR - 1 + delay for delay in (60, 120, 240, 480, 960, 1920, HOUR)])

    def test_one_good_hour_in_between(self) -> None:
        times = self.starts(run=f"[ $(wc -l </scratch/starts) -ne 5 ] || {{ set -- {HOUR}; {TICK}; }}\n"
                                "        exit 1")
        self.assertEqual(self.delays(times)[:7], [60, 120, 240, 480, HOUR + 60, 120, 240])


if __name__ == "__main__":
    case.main()
