# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Shows that the judge can fail: breaks the product in a copy, one guard at a time, and expects
python3 -m tests.faults to notice.

Ends with status 0 if each sabotage was noticed.
"""
from __future__ import annotations

import argparse
import dataclasses
import re
import subprocess
import sys
import time
from typing import Mapping

from tests.faults.__main__ import TARGETS
from tests.faults.endurance import is_long
from tests.harness.paths import ROOT
from tests.harness.tree import IGNORED, Tree, quietly

FOLDER = ROOT / "build/faults-sabotage"
BUILD = FOLDER / "build"


@dataclasses.dataclass(frozen=True)
class Sabotage:
    about: str
    scene: str  # the one that has to notice
    changes: Mapping[str, str]  # what the line of each guard becomes


SABOTAGES = (
    Sabotage("a failed sync of the compressed file is ignored", "rotation",
             {"sync-copy": IGNORED}),
    Sabotage("the compressed file is not synced", "rotation", {"sync-copy": ""}),
    Sabotage("a failed sync of the archive is ignored", "rotation", {"sync-archive": IGNORED}),
    Sabotage("the archive is not synced", "live-log", {"sync-archive": ""}),
    Sabotage("the source is removed before the compressed file moves", "rotation",
             {"sync-copy": "if (Futils::Sync(Compressed()) || Futils::Remove(source.Pfn())) "
                           "return Outcome::Failed;"}),
    Sabotage("an archive file is replaced by another of the same second", "leftovers",
             {"free-name": "return pfe;", "no-replace": "(void)Futils::Rename(Compressed(), dest); "
              "auto result = Futils::RenameResult::Renamed;"}),
    Sabotage("a rotation that was archived before is archived again", "twin",
             {"twin": "return std::nullopt;"}),
    Sabotage("its archive file is not synced before it goes", "twin", {"sync-twin": ""}),
    Sabotage("broken copies stay at start-up", "leftovers", {"copies": ""}),
    Sabotage("leftovers are deleted at start-up", "leftovers",
             {"leftovers": "if (pfn.extension() == Moraine::TmpExt && Futils::Remove(pfn)) "
                           "return true;"}),
    Sabotage("an exception ends the daemon", "rotation",
             {"exceptions": "} catch (const std::out_of_range& e) {"}),
    Sabotage("the status does not follow the signal", "rotation", {"exit-code": "ExitCode = 0;"}),
    Sabotage("a caught signal is not logged", "rotation",
             {"caught-signals": "while (numNoted > 1) {"}),
    Sabotage("the handler logs by itself", "storm",
             {"handler": "MainRunning = false; LogCaughtSignals();"}),
    Sabotage("signals that arrive while a command runs are missed", "rotation",
             {"command": "(void)std::signal(signal, SIG_IGN);"}),
    Sabotage("syslogd is not started again", "last-rotation", {"start-syslogd": ""}),
    Sabotage("the size limit takes the newest files", "size-limit",
             {"oldest-first": "const auto names = GetArchiveFileList(); for (const std::string& name "
                              ": std::vector<std::string>(names.rbegin(), names.rend())) {"}),
    Sabotage("a boot too many is pruned", "boot-chain",
             {"boots-at-once": "constexpr unsigned short BootsDeletedAtOnce = 101;"}),
    Sabotage("an interrupted renumbering is taken for numbers that are all in use", "pruning",
             {"gap": ""}),
    Sabotage("a download that failed counts as done", "download",
             {"download-result": "return false;"}),
    Sabotage("a descriptor is left open", "long-life", {"close-source": ""}),
)


def check_guards(tree: Tree) -> None:
    """Each is broken by a sabotage, or is a sync, which the power cuts do without."""
    broken = {name for each in SABOTAGES for name in each.changes}
    left = {name for name in tree.guards() if not name.startswith("sync-")} - broken
    if left:
        sys.exit(f"sabotage: nothing breaks these guards: {', '.join(sorted(left))}")


def build() -> bool:
    return quietly("cmake", "--build", str(BUILD), "--target", *TARGETS)


def notices(tree: Tree, sabotage: Sabotage) -> str:
    """Returns the first problem that the judge reports, or nothing."""
    with tree.broken(sabotage.changes):
        if not build():
            sys.exit(f"sabotage: '{sabotage.about}' does not compile; see SABOTAGES")
        done = subprocess.run(
            ["python3", "-m", "tests.faults", "--build", str(BUILD), "--scene", sabotage.scene,
             "--first-failure"], cwd=tree.folder, stdout=subprocess.PIPE, text=True)
    if "failures of the judge" not in done.stdout and "FAILED" not in done.stdout:
        sys.exit(f"sabotage: the fault tests could not run: {done.stdout}")
    problem = re.search(r"^FAILED (.*)\n  (.*)", done.stdout, re.MULTILINE)
    return f"{problem.group(1)}: {problem.group(2)}" if problem else ""


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tests.faults.sabotage", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", default="", metavar="TEXT", help="those with TEXT in their names")
    parser.add_argument("--short", action="store_true", help="those that take seconds")
    parser.add_argument("--list", action="store_true", help="list them and do nothing")
    arguments = parser.parse_args()
    chosen = [each for each in SABOTAGES if arguments.only in each.about
              and not (arguments.short and is_long(each.scene))]
    if arguments.list:
        print(*(f"{each.about} ({each.scene})" for each in chosen), sep="\n")
        return 0

    subprocess.run([str(ROOT / "rig/build-busybox")], check=True)
    print("Building the unchanged copy ...", flush=True)
    tree = Tree(FOLDER / "tree")
    check_guards(tree)
    configured = quietly("cmake", "-S", str(tree.folder), "-B", str(BUILD), "-G", "Ninja",
                         "-DCMAKE_BUILD_TYPE=Debug",
                         "-DCMAKE_UNITY_BUILD=ON")
    if not configured or not build():
        sys.exit("sabotage: the unchanged copy does not build; run python3 -m tests.faults first")

    missed = 0
    for each in chosen:
        start = time.monotonic()
        problem = notices(tree, each)
        missed += not problem
        print(f"{'noticed' if problem else 'MISSED'}: {each.about} "
              f"({each.scene}, {time.monotonic() - start:.0f} s)", flush=True)
        if problem:
            print(f"  {problem}", flush=True)
    print(f"{len(chosen) - missed} of {len(chosen)} noticed")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
