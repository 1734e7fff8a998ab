# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine pack` while syslogd rotates and the daemon archives: the lines of each download are
consecutive, and none is in it twice."""
from __future__ import annotations

import io
import lzma
import subprocess
import tarfile

from tests.command.command import environment, program
from tests.harness import case, numbered, services
from tests.harness.case import SandboxCase
from tests.harness.daemon import start_settings
from tests.harness.paths import ARCHIVE


def lines_of(download: bytes) -> list[int]:
    """The numbers in the order of the text."""
    with tarfile.open(fileobj=io.BytesIO(download)) as archive:
        texts = [lzma.decompress(archive.extractfile(member).read())
                 for member in archive if member.name.endswith(".xz")]
    return [number for text in reversed(texts) for number in numbered.numbers_in(text)]


class Running(SandboxCase):
    def test_every_download_is_consecutive(self) -> None:
        services.set_rotation_size(128)
        services.daemon.settings.write_text(start_settings(fast_sleep=100))
        services.syslogd.start()
        self.addCleanup(services.syslogd.stop)
        services.daemon.start()
        self.addCleanup(services.daemon.stop)
        flood = numbered.Flood(rate=500)  # less than a busy machine archives
        self.addCleanup(flood.stop)
        flood.start()
        self.wait_until(lambda: ARCHIVE.exists() and any(ARCHIVE.iterdir()), "an archive file")
        runs = 0
        while len(list(ARCHIVE.iterdir())) < 8:
            runs += 1
            done = subprocess.run([program(), "pack", "-o", "-", "-l", "none"], capture_output=True,
                                  env=environment())
            self.assertEqual(done.returncode, 0, done.stderr)
            found = lines_of(done.stdout)
            self.assertEqual(found, list(range(found[0], found[0] + len(found))))
            self.assertEqual(found[0], 1)
        self.assertGreater(runs, 0)


if __name__ == "__main__":
    case.main()
