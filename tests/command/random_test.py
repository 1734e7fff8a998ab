# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Random logs, read by the command and by a plain re-implementation of it: the same lines, in the
same order."""
from __future__ import annotations

import datetime
import os
import random
import shutil

from tests.command import random_log, reference
from tests.command.command import CommandCase
from tests.command.reference import Filter
from tests.harness import case
from tests.harness.daemon import SCRATCH

# More, or others, by the environment: MORAINE_SEEDS=1000..2000
SEEDS = os.environ.get("MORAINE_SEEDS", "1..25")
EXPRESSIONS = ("error", "Error|timeout", "^Nov", "[0-9]{3}$", "x.y", "(pump|valve).*(end|1)", "$",
               "a\\+b", "[^a-z ]+", "app(\\[[0-9]+\\])?: ", "no such")


def random_filter(choose: random.Random, boots: list[int]) -> Filter:
    found = Filter()
    if boots and choose.random() < 0.25:
        ends = sorted(choose.choices([*boots, boots[-1] + 1], k=2))
        found.boot = (max(ends[0], 1), max(ends[1], 1))
    if choose.random() < 0.6:
        found.grep = choose.sample(EXPRESSIONS, choose.choice((1, 1, 2)))
        found.fixed_strings = choose.random() < 0.2
        found.ignore_case = choose.random() < 0.3
        found.invert_match = choose.random() < 0.2
        found.context = choose.choice((None, None, 0, 1, 3))
    if choose.random() < 0.25:
        found.priority = choose.randrange(8)
    if choose.random() < 0.2:
        found.tag = choose.choice(random_log.TAGS)
    day = datetime.datetime(2024, 1, 1) + datetime.timedelta(seconds=choose.randrange(3 * 10**7))
    if choose.random() < 0.15:
        found.since = day
    if choose.random() < 0.15:
        found.until = day + datetime.timedelta(days=choose.randrange(400))
    if choose.random() < 0.4:
        found.lines = choose.choice((0, 1, 3, 10, 1000))
    found.reverse = choose.random() < 0.3
    return found


class Random(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        os.environ["TZ"] = "UTC"

    def test_the_same_lines_as_the_reference(self) -> None:
        first, _, last = SEEDS.partition("..")
        for seed in range(int(first), int(last) + 1):
            folder = SCRATCH / "log"
            random_log.make(folder, seed)
            with self.subTest(seed=seed):
                self.compare(folder, random.Random(seed))
            shutil.rmtree(folder)

    def compare(self, folder, choose: random.Random) -> None:
        files = reference.files(folder, folder / "archive")
        log = reference.lines(files)
        self.assertEqual(self.run_moraine("-D", folder).out,
                         b"".join(line.raw + b"\n" for line in log))
        self.assertEqual(self.run_moraine("boots", "--json", "-D", folder).json,
                         reference.boots(files))
        self.compare_objects(folder, log)
        boots = sorted({file.boot for file in files})
        for _ in range(12):
            self.compare_filter(folder, log, random_filter(choose, boots), choose)

    def compare_objects(self, folder, log: list[reference.Line]) -> None:
        found = self.run_moraine("-D", folder, "-o", "json").objects
        for item, line in zip(found, log, strict=True):
            expected = line.object()
            if "facility" not in expected:  # one without a name
                item.pop("facility", None)
            self.assertEqual(item, expected)

    def compare_filter(self, folder, log: list[reference.Line], wanted: Filter,
                       choose: random.Random) -> None:
        jobs = f"-j{choose.randrange(1, 4)}"
        arguments = ["-D", folder, jobs, *wanted.arguments()]
        expected = wanted.text(log)
        result = self.run_moraine(*arguments)
        self.assertEqual(result.out, expected, arguments)
        self.assertEqual(result.status, 0 if expected else 1, result.error)
        counted = self.run_moraine(*arguments, "-c")
        self.assertEqual(counted.text, f"{wanted.count}\n", arguments)


if __name__ == "__main__":
    case.main()
