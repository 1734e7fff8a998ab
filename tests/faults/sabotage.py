"""Shows that the judge can fail: breaks the product in a copy, one guard at a time, and expects
python3 -m tests.faults to notice.

Takes ten minutes. Ends with status 0 if each sabotage was noticed.
"""
from __future__ import annotations

import argparse
import dataclasses
import re
import subprocess
import sys
import time

from tests.harness.paths import ROOT
from tests.harness.tree import Tree, quietly

FOLDER = ROOT / "build/faults-sabotage"
BUILD = FOLDER / "build"
TARGETS = ("vandis-moraine", "sandbox", "faults-preload", "faults-download")


@dataclasses.dataclass(frozen=True)
class Sabotage:
    about: str
    file: str
    before: str
    after: str
    scene: str  # the one that has to notice


SABOTAGES = (
    Sabotage("a failed sync of the compressed file is ignored", "rotate/archive.cpp",
             "if (Futils::Sync(Compressed()) || Futils::Rename(Compressed(), dest)) return",
             "(void)Futils::Sync(Compressed()); if (Futils::Rename(Compressed(), dest)) return",
             "rotation"),
    Sabotage("the compressed file is not synced", "rotate/archive.cpp",
             "if (Futils::Sync(Compressed()) || Futils::Rename(", "if (Futils::Rename(", "rotation"),
    Sabotage("a failed sync of the archive is ignored", "rotate/archive.cpp",
             "if (Futils::Sync(Moraine::ArchPathAbs)) return Outcome::Failed;",
             "(void)Futils::Sync(Moraine::ArchPathAbs);", "rotation"),
    Sabotage("the archive is not synced", "rotate/archive.cpp",
             "if (Futils::Sync(Moraine::ArchPathAbs)) return Outcome::Failed;", "", "live-log"),
    Sabotage("the source is removed before the compressed file moves", "rotate/archive.cpp",
             "    // If xz has made nothing, it is the rename that says so.",
             "    (void)Futils::Remove(source.Pfn());", "rotation"),
    Sabotage("an archive file is replaced by another of the same second", "rotate/archive.cpp",
             "if (!Futils::FileExists(pfe)) return pfe;", "return pfe;", "leftovers"),
    Sabotage("broken copies stay at start-up", "rotate/startup.cpp",
             "return !source.IsTaken();", "return false;", "leftovers"),
    Sabotage("leftovers are deleted at start-up", "rotate/startup.cpp",
             "if (pfn.extension() == Moraine::TmpExt && Archive(pfn)) return true;",
             "if (pfn.extension() == Moraine::TmpExt && Futils::Remove(pfn)) return true;",
             "leftovers"),
    Sabotage("an exception ends the daemon", "daemon/main.cpp",
             "} catch (const std::exception& e) {", "} catch (const std::out_of_range& e) {",
             "rotation"),
    Sabotage("the status does not follow the signal", "daemon/stop_signals.cpp",
             "ExitCode = signal == SIGTERM ? 0 : signal;", "ExitCode = 0;", "rotation"),
    Sabotage("a caught signal is not logged", "daemon/stop_signals.cpp",
             "while (numNoted != 0) {", "while (numNoted > 1) {", "rotation"),
    Sabotage("the handler logs by itself", "daemon/stop_signals.cpp",
             "    MainRunning = false;\n}", "    MainRunning = false;\n    LogCaughtSignals();\n}",
             "storm"),
    Sabotage("signals that arrive while a command runs are missed", "futils/shell.cpp",
             "    const HeldBackSignals heldBack;\n", "", "rotation"),
    Sabotage("syslogd is not started again", "rotate/check_cycle.cpp",
             "if (Futils::System(Moraine::SyslogStartCmd)) return true;", "", "last-rotation"),
    Sabotage("the size limit takes the newest files", "rotate/size_limit.cpp",
             "    for (const std::string& name : GetArchiveFileList()) {\n"
             "        if (Signed(archDirSize)",
             "    const auto names = GetArchiveFileList();\n"
             "    for (auto it = names.rbegin(); it != names.rend(); ++it) {\n"
             "        const std::string& name = *it;\n"
             "        if (Signed(archDirSize)", "size-limit"),
    Sabotage("a boot too many is pruned", "rotate/reboot_limit.cpp",
             "BootsDeletedAtOnce = 100", "BootsDeletedAtOnce = 101", "boot-chain"),
    Sabotage("an interrupted renumbering is taken for numbers that are all in use",
             "rotate/reboot_limit.cpp", "if (gap.size != 0) return", "if (gap.size > 999) return",
             "pruning"),
    Sabotage("a download that failed counts as done", "logfileutils/download.cpp",
             "return copyFailed || tarFailed;", "return false;", "download"),
    Sabotage("a descriptor is left open", "rotate/source_file.cpp",
             "if (fd >= 0) (void)close(fd);", "if (fd > 100000) (void)close(fd);", "long-life"),
)


def build() -> bool:
    return quietly("cmake", "--build", str(BUILD), "--target", *TARGETS)


def notices(tree: Tree, sabotage: Sabotage) -> str:
    """Returns the first problem that the judge reports, or nothing."""
    original = (tree.folder / sabotage.file).read_text()
    if original.count(sabotage.before) != 1:
        sys.exit(f"sabotage: {sabotage.file} no longer has '{sabotage.before}'; see SABOTAGES")
    with tree.changed(sabotage.file, original.replace(sabotage.before, sabotage.after)):
        if not build():
            sys.exit(f"sabotage: '{sabotage.about}' does not compile; see SABOTAGES")
        done = subprocess.run(
            ["python3", "-m", "tests.faults", "--build", str(BUILD), "--scene", sabotage.scene,
             "--first-failure"], cwd=tree.folder, stdout=subprocess.PIPE, text=True)
    problem = re.search(r"^FAILED (.*)\n  (.*)", done.stdout, re.MULTILINE)
    return f"{problem.group(1)}: {problem.group(2)}" if problem else ""


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tests.faults.sabotage", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", default="", metavar="TEXT", help="those with TEXT in their names")
    parser.add_argument("--list", action="store_true", help="list them and do nothing")
    arguments = parser.parse_args()
    chosen = [each for each in SABOTAGES if arguments.only in each.about]
    if arguments.list:
        print(*(f"{each.about} ({each.scene})" for each in chosen), sep="\n")
        return 0

    print("Building the unchanged copy ...", flush=True)
    tree = Tree(FOLDER / "tree")
    configured = quietly("cmake", "-S", str(tree.folder), "-B", str(BUILD), "-G", "Ninja",
                         "-DCMAKE_BUILD_TYPE=Release")
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
