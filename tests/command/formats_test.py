# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`-o json` and `-o export`, as other programs read them; `boots` and `verify`."""
from __future__ import annotations

import json
import subprocess

from tests.command.command import CommandCase, line, write_archive, write_log
from tests.harness import case
from tests.harness.paths import ARCHIVE, BOOT_NUMBER, SYSLOG

JOURNAL_REMOTE = "/lib/systemd/systemd-journal-remote"


class Json(CommandCase):
    def objects(self, *arguments: str) -> list[dict]:
        return self.check("-o", "json", *arguments).objects

    def test_all_fields_in_their_order(self) -> None:
        write_archive(13, "no line\n" + line("app[812]: text", level="user.err"))
        result = self.check("-o", "json", "-n", "1")
        self.assertEqual(result.text, (
            '{"boot":13,"file":"messages.013.1970-01-01.00:00:00.txt.xz","line":2,'
            '"time":"2026-11-21T17:48:08","host":"device","facility":"user","severity":"err",'
            '"tag":"app","pid":812,"message":"text"}\n'))

    def test_absent_fields_are_omitted(self) -> None:
        write_log("messages.txt", line("syslogd started: BusyBox v1.36.1") + line("-- MARK --") +
                  "Nov 21 17:48:08 user.info app: no host\n" + "no line\n" + "\n")
        found = self.objects()
        for item in found:
            self.assertNotIn(None, item.values())
        self.assertEqual([item["message"] for item in found],
                         ["syslogd started: BusyBox v1.36.1", "-- MARK --", "no host", "no line", ""])
        self.assertEqual([sorted({"host", "tag", "pid"} & set(item)) for item in found],
                         [["host"], ["host"], ["tag"], [], []])
        self.assertEqual(list(found[3]), ["boot", "file", "line", "message"])

    def test_a_facility_without_a_name(self) -> None:
        write_log("messages.txt", line("app: x", level="<102>"))
        self.assertEqual(self.objects()[0]["severity"], "info")

    def test_invalid_bytes(self) -> None:
        for raw, text in ((b"\xff", "\ufffd"), (b"\xc3", "\ufffd"), (b"\xe2\x82", "\ufffd\ufffd"),
                          (b"\xc0\x80", "\ufffd\ufffd"), (b"\xed\xa0\x80", "\ufffd" * 3),
                          (b"\xf4\x90\x80\x80", "\ufffd" * 4), (b"\xf0\x9f\x98\x80", "\U0001f600"),
                          (b"a\xc3\xa4\xffb", "a\u00e4\ufffdb"), (b"\0\x01\x7f\x1b", "\0\x01\x7f\x1b"),
                          (b'"\\/\t\r', '"\\/\t\r'), (b"\xe2\x80\xa8", "\u2028")):
            write_log("messages.txt", raw + b"\n")
            out = self.check("-o", "json").out
            self.assertEqual(json.loads(out.decode("utf-8"))["message"], text)

    def test_a_line_keeps_its_identity(self) -> None:
        """What follows the cursor's first dash, through rotation, archiving and renumbering."""
        content = line("app: first") + line("app: same") * 2

        def identities() -> list[str]:
            found = self.objects("--show-cursor")
            self.assertEqual([list(item)[-1] for item in found], ["cursor"] * 3)
            for number, item in enumerate(found):
                after = self.run_moraine("-c", "--after-cursor", item["cursor"])
                self.assertEqual(after.text, f"{2 - number}\n")
            return [item["cursor"].partition("-")[2] for item in found]

        wanted = []
        for path in (SYSLOG / "messages.txt", SYSLOG / "messages.txt.0",
                     ARCHIVE / "messages.105.1970-01-01.00:00:00.txt.xz",
                     ARCHIVE / "messages.005.1970-01-01.00:00:00.txt.xz"):
            write_log(path, content)
            wanted = wanted or identities()
            self.assertEqual(identities(), wanted, path)
            path.unlink()
        self.assertEqual(len(set(wanted)), 3)
        self.refuse("--show-cursor", naming="json")

    def test_a_position_without_a_clock(self) -> None:
        """Two boots begin alike: the position is in the right one, wherever its file has gone."""
        same = line("app: hello") * 3
        older, newer = same + line("app: older"), same + line("app: newer")
        first = ARCHIVE / "messages.007.1970-01-01.00:00:09.txt.xz"
        for before in ([], [(first, same + line("app: oldest"))]):
            places = ([(SYSLOG / "messages.txt.0", older), (SYSLOG / "messages.txt", newer)],
                      [(ARCHIVE / "messages.008.1970-01-01.00:00:09.txt.xz", older),
                       (SYSLOG / "messages.txt", newer)],
                      [(ARCHIVE / "messages.008.1970-01-01.00:00:09.txt.xz", older),
                       (ARCHIVE / "messages.009.1970-01-01.00:00:09.txt.xz", newer)])
            cursors = []
            for place in places:
                for path, content in before + place:
                    write_log(path, content)
                cursors = cursors or [item["cursor"] for item in self.objects("--show-cursor")]
                for number, cursor in enumerate(cursors):
                    after = self.run_moraine("-c", "--after-cursor", cursor)
                    self.assertEqual(after.text, f"{len(cursors) - 1 - number}\n", (place, number))
                for path, _ in before + place:
                    path.unlink()

    def test_jq_reads_it(self) -> None:
        write_log("messages.txt", bytes(range(256)) + b"\n" + line("app[1]: x").encode() * 100)
        done = subprocess.run(["jq", "-r", ".tag"], input=self.check("-o", "json").out,
                              capture_output=True, check=True)
        self.assertEqual(done.stdout.split(), [b"null"] * 2 + [b"app"] * 100)

    def test_a_last_line_without_a_line_feed(self) -> None:
        write_log("messages.txt", "one\ntwo")
        self.assertEqual([item["message"] for item in self.objects()], ["one", "two"])
        self.assertTrue(self.check("-o", "json").text.endswith("}\n"))


class Export(CommandCase):
    def import_log(self, *arguments: str) -> list[dict]:
        """What `journalctl` shows of the log after systemd-journal-remote has imported it."""
        exported = self.check("-o", "export", *arguments).out
        journal = self.folder / "imported.journal"
        done = subprocess.run([JOURNAL_REMOTE, "-o", str(journal), "-"], input=exported,
                              capture_output=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        shown = subprocess.run(["journalctl", f"--file={journal}", "-o", "json", "--all"],
                               capture_output=True, check=True)
        return [json.loads(row) for row in shown.stdout.splitlines()]

    def test_each_line_once_and_in_order(self) -> None:
        write_archive(1, "".join(line(f"app[7]: {number}") for number in range(500)))
        write_archive(2, "".join(line(f"app: {number}") for number in range(500, 700)))
        write_log("messages.txt", line("pump: 700", level="local3.crit"))
        found = self.import_log()
        self.assertEqual([item["MESSAGE"] for item in found], [str(n) for n in range(701)])
        self.assertEqual(len({item["_BOOT_ID"] for item in found}), 3)
        self.assertEqual(found[0]["SYSLOG_PID"], "7")
        last = found[-1]
        self.assertEqual((last["PRIORITY"], last["SYSLOG_FACILITY"], last["SYSLOG_IDENTIFIER"],
                          last["_HOSTNAME"]), ("2", "19", "pump", "device"))

    def test_lines_of_any_form(self) -> None:
        write_log("messages.txt", b"no line\n\n\x00\x01bytes \xff\n" + line("app: last").encode())
        self.assertEqual(len(self.import_log()), 4)

    def test_the_time(self) -> None:
        write_log("messages.txt", line("app: x"))
        item, = self.import_log()
        self.assertEqual(int(item["__REALTIME_TIMESTAMP"]) // 1_000_000, 1795283288)


class Boots(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        write_archive(1, line("app: a", time="Nov 20 08:01:22"))
        write_archive(4, line("app: b", time="Nov 21 09:00:00"), minute=1)
        write_archive(4, "no line\n" + line("app: c", time="Nov 21 10:00:00") + "no line\n", minute=2)
        write_archive(6, "no line\n")
        write_log("messages.txt.0", line("app: d", time="Nov 21 17:00:00"))
        write_log("messages.txt", line("app: e", time="Nov 21 17:48:08"))

    def test_json(self) -> None:
        found = self.check("boots", "--json").json
        self.assertEqual(list(found[0]),
                         ["offset", "boot", "files", "bytes", "first", "last", "current"])
        self.assertEqual(
            [(row["offset"], row["boot"], row["files"], row["first"], row["last"], row["current"])
             for row in found],
            [(-3, 1, 1, "2026-11-20T08:01:22", "2026-11-20T08:01:22", False),
             (-2, 4, 2, "2026-11-21T09:00:00", "2026-11-21T10:00:00", False),
             (-1, 6, 1, None, None, False),
             (0, 7, 2, "2026-11-21T17:00:00", "2026-11-21T17:48:08", True)])
        sizes = sum(path.stat().st_size for path in ARCHIVE.glob("messages.004*"))
        self.assertEqual(found[1]["bytes"], sizes)

    def test_the_table_says_the_same(self) -> None:
        lines = self.check("boots").lines
        for offset, boot, row in zip((-3, -2, -1, 0), (1, 4, 6, 7), lines[-4:]):
            self.assertRegex(row, rf"^\s*{offset}\s+{boot}\s")

    def test_the_current_boot_counts_its_archived_files_too(self) -> None:
        BOOT_NUMBER.write_text("6\n")
        try:
            row = self.check("boots", "--json").json[-1]
        finally:
            BOOT_NUMBER.unlink()
        self.assertEqual((row["boot"], row["files"], row["current"], row["offset"]), (6, 3, True, 0))

    def test_without_a_current_log(self) -> None:
        (SYSLOG / "messages.txt").unlink()
        (SYSLOG / "messages.txt.0").unlink()
        found = self.check("boots", "--json").json
        self.assertEqual([row["offset"] for row in found], [-3, -2, -1])
        self.assertFalse(any(row["current"] for row in found))

    def test_no_boots(self) -> None:
        for path in [*ARCHIVE.iterdir(), *SYSLOG.glob("messages.*")]:
            path.unlink()
        self.assertEqual(self.run_moraine("boots", "--json").json, [])


class Verify(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        self.texts = [line(f"app: {number}") * 1000 for number in range(3)]
        self.paths = [write_archive(number + 1, text) for number, text in enumerate(self.texts)]

    def test_an_intact_archive(self) -> None:
        (ARCHIVE / "notes.txt").write_text("foreign")
        write_log("messages.txt", "waiting")
        found = self.check("verify", "--json").json
        self.assertEqual(found, {
            "files": 3, "bytes": sum(path.stat().st_size for path in self.paths),
            "text_bytes": sum(map(len, self.texts)), "lines": 3000, "damaged": []})
        self.assertEqual(len(self.check("verify").lines), 1)

    def test_each_kind_of_damage(self) -> None:
        raw = self.paths[1].read_bytes()
        flipped = bytearray(raw)
        flipped[len(raw) // 2] ^= 4
        for content in (raw[:-1], raw[:20], b"", bytes(flipped), b"text" * 30, raw + b"x"):
            self.paths[1].write_bytes(content)
            result = self.check("verify", status=1)
            self.assertEqual(len(result.lines), 2)
            self.assertIn(self.paths[1].name, result.lines[0])
            damaged, = self.check("verify", "--json", status=1).json["damaged"]
            self.assertEqual(damaged["file"], self.paths[1].name)
            self.assertNotEqual(damaged["reason"], "")

    def test_nothing_is_intact_that_was_not_checked(self) -> None:
        result = self.check("verify", "-D", "missing", status=2)
        self.assertNotIn("intact", result.text)
        self.paths[0].unlink()
        self.paths[0].symlink_to(self.paths[1])
        self.assertNotIn("intact", self.check("verify", status=2).text)

    def test_an_empty_archive_and_a_single_line(self) -> None:
        for path in self.paths:
            path.unlink()
        self.assertRegex(self.check("verify").text, "^no archive files, .*, no lines: nothing to check\n$")
        write_archive(1, "one\n")
        self.assertRegex(self.check("verify").text, "^1 archive file, .*, 1 line: all intact\n$")

    def test_a_misnamed_file_fails(self) -> None:
        self.paths[0].rename(ARCHIVE / "messages.x.txt.xz")
        result = self.check("verify", "--json", status=1)
        self.assertEqual([item["file"] for item in result.json["damaged"]], ["messages.x.txt.xz"])


if __name__ == "__main__":
    case.main()
