# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Packages of the device's architecture, from the machine's own package sources: fetched and
unpacked below the build folder, never installed. Needs no root rights.

Lists, cache and the record of installed packages are private to the folder, so that the machine's
own apt learns nothing of another architecture. Signatures are checked as always.
"""
from __future__ import annotations

import os
import subprocess
from pathlib import Path
from typing import Sequence

ARCHITECTURE = "arm64"

# Nothing of the machine's hooks: they are meant for the machine's own packages.
CONFIGURATION = """\
APT::Architecture "{architecture}";
#clear APT::Architectures;
APT::Architectures {{ "{architecture}"; }};
APT::Sandbox::User "root";
APT::Install-Recommends "false";
#clear APT::Update;
Dir::State "{folder}";
Dir::State::Lists "{folder}/lists";
Dir::State::status "{folder}/status";
Dir::Cache "{folder}/cache";
"""


class FetchError(RuntimeError):
    pass


class Packages:
    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._configuration = folder / "apt.conf"

    def update(self) -> None:
        """Reads the lists of packages. Judged by what follows: not all of the machine's sources
        need have this architecture, or be within reach."""
        for name in ("lists/partial", "cache/archives/partial"):
            (self._folder / name).mkdir(parents=True, exist_ok=True)
        (self._folder / "status").touch()
        self._configuration.write_text(
            CONFIGURATION.format(architecture=ARCHITECTURE, folder=self._folder))
        self._run("apt-get", "-qq", "update")

    def with_dependencies(self, names: Sequence[str]) -> list[str]:
        done = self._run("apt-get", "--simulate", "install", *names)
        if done.returncode != 0:
            raise self._error(f"cannot find {' '.join(names)}", done)
        return [line.split()[1] for line in done.stdout.splitlines() if line.startswith("Inst ")]

    def dependency(self, name: str, prefix: str) -> str:
        """The one among the dependencies of the package `name` that begins with `prefix`."""
        done = self._run("apt-cache", "depends", name)
        for line in done.stdout.splitlines():
            if line.strip().startswith(f"Depends: {prefix}"):
                return line.split()[-1]
        raise self._error(f"cannot find {name}", done)

    def unpack(self, names: Sequence[str], into: Path) -> None:
        """`into` appears last, complete."""
        fetched = self._folder / "fetched"
        fetched.mkdir(exist_ok=True)
        for left_over in fetched.iterdir():
            left_over.unlink()
        done = self._run("apt-get", "-qq", "download", *names, folder=fetched)
        files = sorted(fetched.glob("*.deb"))
        if done.returncode != 0 or len(files) != len(names):
            raise self._error(f"cannot fetch {' '.join(names)}", done)
        unpacked = self._folder / "unpacked"
        subprocess.run(["rm", "-rf", str(unpacked), str(into)], check=True)
        for file in files:
            subprocess.run(["dpkg-deb", "--extract", str(file), str(unpacked)], check=True)
            file.unlink()
        for link in unpacked.rglob("*"):
            if link.is_symlink() and os.readlink(link).startswith("/"):  # in the device
                target = os.path.relpath(f"{unpacked}{os.readlink(link)}", link.parent)
                link.unlink()
                link.symlink_to(target)
        unpacked.rename(into)

    def _run(self, *command: str, folder: Path | None = None) -> subprocess.CompletedProcess[str]:
        environment = {**os.environ, "APT_CONFIG": str(self._configuration), "LC_ALL": "C"}
        return subprocess.run(command, cwd=folder, env=environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    @staticmethod
    def _error(what: str, done: subprocess.CompletedProcess[str]) -> FetchError:
        return FetchError(
            f"{what}:\n{done.stderr.strip()}\nThe packages come from the sources in /etc/apt, "
            f"which must have {ARCHITECTURE} packages, as Debian's own have. Connect and try "
            "again.")
