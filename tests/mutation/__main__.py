# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Makes small changes in a copy of the product, one at a time, and reports those that the tests do
not notice.

A change is a comparison with another boundary, a negated condition, a dropped statement, another
constant, or another text. It is noticed if the tests of a folder that it can reach fail; if not, the
system tests are asked, too. A change that does not compile is not counted. Changes that are known to
make no difference stand in tests/mutation/equivalent, each with its reason.
"""
from __future__ import annotations

import argparse
import dataclasses
import os
import random
import re
import sys
import time

from tests.harness.paths import ROOT
from tests.harness.tree import Tree, quietly

FOLDER = ROOT / "build/mutation"
BUILD = FOLDER / "build"
EQUIVALENT = ROOT / "tests/mutation/equivalent"
# Each knows those before it.
FOLDERS = ("util", "logging", "futils", "logfileutils", "rotate", "daemon")

BOUNDARIES = {"<=": "<", ">=": ">", "<": "<=", ">": ">=", "==": "!=", "!=": "==",
              "&&": "||", "||": "&&", "++": "--", "+=": "-="}
# Comparisons stand between blanks in formatted code; template brackets do not.
OPERATOR = re.compile(r" (<=|>=|<|>|==|!=|&&|\|\||\+=) |(\+\+)")
CONDITION = re.compile(r"\b(if|while) \((?!!?constexpr)(.*)\)(?= \{| return| continue| break| \+\+|$)")
CALL = re.compile(r"^\s+(\(void\))?[A-Za-z_:.\->]+\(.*\);(  //.*)?$"
                  r"|^\s+[A-Za-z_:.\[\]]+ [-+]?= .*;(  //.*)?$"
                  r"|^\s+(\+\+|--)?[a-z]\w*(\+\+|--)?;$")
NUMBER = re.compile(r"(?<![\w.\"%#])(\d+)(?=[^\w.\"]|U?L?\b)(?!\.\d)")
TEXT = re.compile(r'"((?:[^"\\]|\\.)+)"')


NO_STATEMENT = ("//", "#", "static_assert", "using ", "namespace", "template", "case ")


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str
    line: int  # from 1
    kind: str
    before: str
    after: str

    def __str__(self) -> str:
        return (f"{self.file}:{self.line} ({self.kind})\n"
                f"  - {self.before.strip()}\n  + {self.after.strip()}")

    @property
    def key(self) -> str:
        return f"{self.file}: {self.before.strip()} => {self.after.strip()}"


def replaced(line: str, match: re.Match[str], group: int, text: str) -> str:
    return line[:match.start(group)] + text + line[match.end(group):]


def changes(line: str) -> list[tuple[str, str]]:
    """The kinds of change that fit a line of code, with the line that each makes of it."""
    code = line.split("  //")[0]
    if code.lstrip().startswith(NO_STATEMENT):
        return []
    found = []
    outside_texts = TEXT.sub(lambda match: "\0" * len(match.group(0)), code)
    for match in OPERATOR.finditer(outside_texts):
        group = 1 if match.group(1) else 2
        found.append(("boundary", replaced(line, match, group, BOUNDARIES[match.group(group)])))
    for match in CONDITION.finditer(code):
        found.append(("negated", replaced(line, match, 2, f"!({match.group(2)})")))
    if CALL.match(line):
        found.append(("dropped", ""))
    for match in NUMBER.finditer(outside_texts):
        found.append(("constant", replaced(line, match, 1, str(int(match.group(1)) + 1))))
    for match in TEXT.finditer(code):
        if match.group(1) not in ("rb", "wb", "r"):
            found.append(("text", replaced(line, match, 1, "?" + match.group(1)[1:])))
    return found


def mutants() -> list[Mutant]:
    """Exits if a change that is known to make no difference is none of this product's."""
    equivalent = {line.split("  # ")[0] for line in EQUIVALENT.read_text().splitlines()}
    found = []
    for folder in FOLDERS:
        for path in sorted((ROOT / folder).glob("*.cpp")):
            name = str(path.relative_to(ROOT))
            for number, line in enumerate(path.read_text().splitlines(), 1):
                found += [Mutant(name, number, kind, line, after) for kind, after in changes(line)]
    stale = equivalent - {mutant.key for mutant in found}
    if stale:
        sys.exit(f"mutation: {EQUIVALENT} names what is no change: {', '.join(sorted(stale))}")
    return [mutant for mutant in found if mutant.key not in equivalent]


def build() -> bool:
    return quietly("cmake", "--build", str(BUILD))


def passes(folder: str) -> bool:
    """Whether the tests of the folder and of those that know it pass, and the system tests."""
    reached = "|".join(FOLDERS[FOLDERS.index(folder):])
    ctest = ["ctest", "--test-dir", str(BUILD), "--parallel", str(os.cpu_count()),
             "--stop-on-failure", "--timeout", "60", "--no-tests=error"]
    return (quietly(*ctest, "-L", "unit", "-R", rf"^({reached})\.", timeout=600)
            and quietly(*ctest, "-L", "system", timeout=900))


def judge(tree: Tree, mutant: Mutant) -> str:
    """"noticed", "not noticed", or "invalid" for one that does not compile."""
    lines = (tree.folder / mutant.file).read_text().splitlines(keepends=True)
    lines[mutant.line - 1] = mutant.after + "\n"
    with tree.changed(mutant.file, "".join(lines)):
        if not build():
            return "invalid"
        return "not noticed" if passes(mutant.file.split("/")[0]) else "noticed"


def try_all(tree: Tree, chosen: list[Mutant]) -> int:
    """Returns how many were not noticed."""
    counts = {"noticed": 0, "not noticed": 0, "invalid": 0}
    start = time.monotonic()
    for done, mutant in enumerate(chosen, 1):
        result = judge(tree, mutant)
        counts[result] += 1
        if result == "not noticed":
            print(f"NOT NOTICED {mutant}", flush=True)
        if done % 10 == 0:
            print(f"{done} of {len(chosen)}, {time.monotonic() - start:.0f} s", flush=True)
    print(f"{counts['noticed']} of {counts['noticed'] + counts['not noticed']} changes noticed "
          f"({counts['invalid']} did not compile)")
    return counts["not noticed"]


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="python3 -m tests.mutation", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sample", type=int, default=100, metavar="N",
                        help="try N changes, chosen at random (100)")
    parser.add_argument("--all", action="store_true", help="try every change")
    parser.add_argument("--seed", type=int, default=1, help="of the choice (1)")
    parser.add_argument("--only", default="", metavar="TEXT",
                        help="changes whose FILE:LINE begins with TEXT, all of them")
    parser.add_argument("--list", action="store_true", help="print the changes and try none")
    return parser.parse_args()


def main() -> int:
    arguments = parse_arguments()
    chosen = [mutant for mutant in mutants()
              if f"{mutant.file}:{mutant.line}".startswith(arguments.only)]
    if not arguments.only and not arguments.all and not arguments.list:
        chosen = random.Random(arguments.seed).sample(chosen, min(arguments.sample, len(chosen)))
    if arguments.list:
        print("\n".join(map(str, chosen)), f"\n{len(chosen)} changes")
        return 0

    print("Building the unchanged copy ...", flush=True)
    tree = Tree(FOLDER / "tree")
    configured = quietly("cmake", "-S", str(tree.folder), "-B", str(BUILD), "-G", "Ninja",
                         "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-g0")
    if not (configured and build() and passes(FOLDERS[0])):
        print("mutation: the unchanged copy does not pass; run ./test first", file=sys.stderr)
        return 2
    return 1 if try_all(tree, chosen) else 0


if __name__ == "__main__":
    sys.exit(main())
