# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine log`: its filters, one by one and together, and its exit status."""
from __future__ import annotations

import contextlib
import datetime
import json
import os
import re
import signal
import stat
import subprocess

from tests.command.command import (MTIME, CommandCase, environment, line, program, snapshot,
                                   write_archive, write_log)
from tests.harness import case, services, waiting
from tests.harness.paths import BOOT_NUMBER, LIVE_LOG, SYSLOG


class LogCase(CommandCase):
    def log(self, *arguments: str, status: int = 0) -> str:
        return self.check("log", *arguments, status=status).text

    def words(self, *arguments: str, status: int = 0) -> list[str]:
        """The last word of each line."""
        lines = self.log(*arguments, status=status).splitlines()
        return [text.rpartition(" ")[2] for text in lines]


class Text(LogCase):
    def test_the_verb_may_be_missing(self) -> None:
        write_log("messages.txt", line("app: one"))
        self.assertEqual(self.check().text, line("app: one"))
        self.assertEqual(self.check("-n", "1").text, line("app: one"))
        self.assertEqual(self.check("log").text, line("app: one"))

    def test_each_line_byte_for_byte(self) -> None:
        content = b"Nov 21 17:48:08 device user.err app: \xff\x00\x1b[31m \xc3\xa4\t\r\nno line\n"
        write_log("messages.txt", content)
        self.assertEqual(self.check().out, content)

    def test_a_line_may_end_with_its_file(self) -> None:
        write_archive(1, "cut")
        write_archive(2, "off")
        write_log("messages.txt", "here")
        self.assertEqual(self.log(), "cut\noff\nhere\n")

    def test_an_empty_line_is_a_line(self) -> None:
        write_log("messages.txt", "\none\n\n\ntwo\n\n")
        self.assertEqual(self.log(), "\none\n\n\ntwo\n\n")
        self.assertEqual(self.log("-c"), "6\n")

    def test_a_line_of_more_than_1_mib_is_printed_as_two(self) -> None:
        size = 1 << 20
        write_log("messages.txt", "x" * size + "\n" + "y" * (size + 1) + "\n")
        self.assertEqual(self.log(), "x" * size + "\n" + "y" * size + "\ny\n")
        self.assertEqual(self.log("-c"), "3\n")

    def test_nothing_is_written_below_perm(self) -> None:
        write_archive(1, line("app: one"))
        write_log("messages.txt", line("app: two"))
        before = snapshot(SYSLOG)
        for arguments in ((), ("-r",), ("-g", "one"), ("-c",), ("-o", "json")):
            self.log(*arguments)
        self.assertEqual(snapshot(SYSLOG), before)


class Boots(LogCase):
    """Boots 1, 2 and 5, and a live log of the current boot, 6."""

    def setUp(self) -> None:
        super().setUp()
        for boot in (1, 2, 5):
            write_archive(boot, line(f"app: {boot}a") + line(f"app: {boot}b"))
        write_log("messages.txt.0", line("app: 6a"))
        write_log("messages.txt", line("app: 6b"))

    def test_by_number(self) -> None:
        self.assertEqual(self.words("-b", "2"), ["2a", "2b"])
        self.assertEqual(self.words("-b2"), ["2a", "2b"])
        self.assertEqual(self.words("--boot=5"), ["5a", "5b"])
        self.assertEqual(self.words("-b", "6"), ["6a", "6b"])

    def test_the_current_boot(self) -> None:
        for arguments in (["-b"], ["-b", "0"], ["--boot"], ["--boot=0"], ["-b", "-r", "-r"]):
            self.assertEqual(sorted(self.words(*arguments)), ["6a", "6b"], arguments)

    def test_backwards(self) -> None:
        self.assertEqual(self.words("-b", "-1"), ["5a", "5b"])
        self.assertEqual(self.words("-b", "-2"), ["2a", "2b"])
        self.assertEqual(self.words("--boot=-3"), ["1a", "1b"])
        self.words("-b", "-4", status=1)

    def test_ranges(self) -> None:
        self.assertEqual(self.words("-b", "2..5"), ["2a", "2b", "5a", "5b"])
        self.assertEqual(self.words("-b", "3..4", status=1), [])
        self.assertEqual(self.words("-b", "2..2"), ["2a", "2b"])
        self.assertEqual(self.words("-b", "-1..0"), ["5a", "5b", "6a", "6b"])
        self.assertEqual(self.words("-b", "5..99"), ["5a", "5b", "6a", "6b"])

    def test_a_boot_that_there_is_not(self) -> None:
        for choice in ("3", "99999", "-4", "3..4"):
            result = self.check("-b", choice, status=1)
            self.assertIn("there is no such boot", result.error, choice)
        (SYSLOG / "messages.txt").unlink()
        (SYSLOG / "messages.txt.0").unlink()
        self.assertEqual(self.check("-b", "0", status=1).error, "")  # the current boot is one

    def test_usage_errors(self) -> None:
        for value in ("5..2", "0..-1", "x", "1..2..3", "1..", "..2", "1.5"):
            self.refuse(f"-b{value}")

    def test_the_running_daemons_number(self) -> None:
        BOOT_NUMBER.write_text("9\n")
        self.addCleanup(BOOT_NUMBER.unlink)
        self.assertEqual(self.words("-b", "9"), ["6a", "6b"])
        self.assertEqual(self.words("-b", "-1"), ["5a", "5b"])

    def test_the_daemons_number_is_not_that_of_a_copy(self) -> None:
        BOOT_NUMBER.write_text("9\n")
        self.addCleanup(BOOT_NUMBER.unlink)
        self.assertEqual(self.words("-D", str(SYSLOG), "-b", "6"), ["6a", "6b"])


class Lines(LogCase):
    def setUp(self) -> None:
        super().setUp()
        write_archive(1, "".join(line(f"app: {number}") for number in range(1, 8)))
        write_archive(1, "".join(line(f"app: {number}") for number in range(8, 15)), minute=1)
        write_log("messages.txt", "".join(line(f"app: {number}") for number in range(15, 21)))

    def test_the_last(self) -> None:
        self.assertEqual(self.words("-n", "2"), ["19", "20"])
        self.assertEqual(self.words("-n2"), ["19", "20"])
        self.assertEqual(self.words("--lines=8"), [str(number) for number in range(13, 21)])
        self.assertEqual(len(self.words("-n")), 10)
        self.assertEqual(len(self.words("--lines")), 10)
        self.assertEqual(len(self.words("-n", "1000")), 20)
        for every in (["-n", "all"], ["-nall"], ["--lines=all"]):
            self.assertEqual(len(self.words(*every)), 20)

    def test_none(self) -> None:
        self.assertEqual(self.log("-n", "0", status=1), "")

    def test_after_filtering(self) -> None:
        self.assertEqual(self.words("-n", "2", "-g", "app: 1"), ["18", "19"])
        self.assertEqual(self.words("-b", "1", "-n", "1"), ["14"])

    def test_newest_first(self) -> None:
        self.assertEqual(self.words("-r", "-n", "3"), ["20", "19", "18"])
        self.assertEqual(self.words("-r"), [str(number) for number in range(20, 0, -1)])
        self.assertEqual(self.words("--reverse", "-g", "app: .$", "-n2"), ["9", "8"])

    def test_newest_first_of_a_file_that_is_read_several_times(self) -> None:
        lines = [line(f"app: {number}") for number in range(60_000)]  # 2.5 MiB
        lines[100:100] = [line(f"rare: {number}") for number in range(100)]
        lines[3:3] = ["\n"] * 50_000
        write_log("messages.txt", "".join(lines))
        self.assertEqual(self.log("-r", "-b", "0").splitlines(keepends=True), lines[::-1])
        for pattern in ("rare", "app: .*9$", "^$"):
            found = self.log("-r", "-b", "0", "-g", pattern).splitlines(keepends=True)
            self.assertEqual(found, [text for text in lines[::-1] if re.search(pattern, text)])
        numbers = [i for i, text in enumerate(lines, 1) if re.search("app: .*99$", text)]
        found = self.check("-r", "-g", "app: .*99$", "-o", "json").objects
        self.assertEqual([each["line"] for each in found], numbers[::-1])
        found = self.check("-r", "-g", "app: .*99$", "-C", "1", "-o", "json").objects
        self.assertEqual([each["line"] for each in found],
                         [number + i for number in numbers[::-1] for i in (1, 0, -1)
                          if number + i <= len(lines)])

    def test_counted(self) -> None:
        self.assertEqual(self.log("-c"), "20\n")
        self.assertEqual(self.log("-c", "-g", "1$"), "2\n")
        self.assertEqual(self.log("-c", "-g", "nothing", status=1), "0\n")
        self.assertEqual(self.log("-c", "-b", "1"), "14\n")
        self.assertEqual(self.log("-c", "-g", "app: 1", "-C", "3"), "11\n")
        for jobs in ("1", "2", "8"):
            self.assertEqual(self.log("--count", "-j", jobs), "20\n")


class Grep(LogCase):
    def setUp(self) -> None:
        super().setUp()
        write_archive(1, line("app: pump-on") + line("app: Pump-off") + line("app: a.b"))
        write_log("messages.txt", line("app: axb") + line("app: (x) ee"))

    def test_an_expression(self) -> None:
        self.assertEqual(self.words("-g", "pump"), ["pump-on"])
        self.assertEqual(self.words("-g", "(on|off)$"), ["pump-on", "Pump-off"])
        self.assertEqual(self.words("-g", "a.b"), ["a.b", "axb"])
        self.assertEqual(self.words("--grep=e{2}"), ["ee"])
        self.assertEqual(self.words("-g", r"\(x\)"), ["ee"])
        self.assertEqual(self.words("-g", "^Nov 21.*[[:punct:]]x"), ["ee"])

    def test_several(self) -> None:
        self.assertEqual(self.words("-g", "pump", "-g", "axb"), ["pump-on", "axb"])

    def test_fixed_strings(self) -> None:
        self.assertEqual(self.words("-F", "-g", "a.b"), ["a.b"])
        self.assertEqual(self.words("--fixed-strings", "-g", "(x)", "-g", "on"), ["pump-on", "ee"])

    def test_ignore_case(self) -> None:
        self.assertEqual(self.words("-i", "-g", "PUMP"), ["pump-on", "Pump-off"])
        self.assertEqual(self.words("-Fig", "PUMP"), ["pump-on", "Pump-off"])

    def test_invert(self) -> None:
        self.assertEqual(self.words("-v", "-g", "pump"), ["Pump-off", "a.b", "axb", "ee"])
        self.assertEqual(self.words("-iv", "-g", "pump", "-g", "b$"), ["ee"])

    def test_nothing_matches(self) -> None:
        self.assertEqual(self.log("-g", "nothing", status=1), "")

    def test_bytes(self) -> None:
        write_log("messages.txt", b"caf\xc3\xa9\n\xff\xfe\n")
        self.assertEqual(self.check("-g", "caf..$").out, b"caf\xc3\xa9\n")
        self.assertEqual(self.check("-F", "-g", os.fsdecode(b"\xfe")).out, b"\xff\xfe\n")
        self.assertEqual(self.check("-ig", "É", status=1).out, b"")  # ASCII letters only

    def test_an_empty_expression_matches_every_line(self) -> None:
        self.assertEqual(self.log("-c", "-g", ""), "5\n")

    def test_a_bad_expression(self) -> None:
        for expression in ("(", ")", "[", "a{2,1}", "[b-a]", "[[:nothing:]]"):
            self.refuse("-g", expression)


class Context(LogCase):
    def setUp(self) -> None:
        super().setUp()
        write_archive(1, "".join(f"{number}\n" for number in range(1, 11)))
        write_log("messages.txt", "".join(f"{number}\n" for number in range(11, 21)))

    def test_before_and_after(self) -> None:
        self.assertEqual(self.log("-g", "^10$", "-C", "2"), "8\n9\n10\n11\n12\n")
        self.assertEqual(self.log("-g", "^1$", "-C1"), "1\n2\n")
        self.assertEqual(self.log("-g", "^20$", "--context=1"), "19\n20\n")

    def test_blocks(self) -> None:
        self.assertEqual(self.log("-g", "^[48]$", "-C", "1"), "3\n4\n5\n--\n7\n8\n9\n")
        self.assertEqual(self.log("-g", "^[47]$", "-C", "1"), "3\n4\n5\n6\n7\n8\n")
        self.assertEqual(self.log("-g", "^[46]$", "-C", "1"), "3\n4\n5\n6\n7\n")

    def test_lines_count_matches(self) -> None:
        self.assertEqual(self.log("-g", "^(4|8|15)$", "-C", "1", "-n", "2"),
                         "7\n8\n9\n--\n14\n15\n16\n")

    def test_none_of_it_still_separates_blocks(self) -> None:
        self.assertEqual(self.log("-g", "^([34]|8|13)$", "-C", "0"), "3\n4\n--\n8\n--\n13\n")
        self.assertEqual(self.log("-g", "^[348]$", "-C", "0", "-r", "-n2"), "8\n--\n4\n")
        self.assertEqual(self.log("-g", "^[348]$", "-C", "0", "-n2"), "4\n--\n8\n")
        self.assertEqual(self.log("-C", "0", "-n", "2"), "19\n20\n")

    def test_newest_first(self) -> None:
        self.assertEqual(self.log("-r", "-g", "^[48]$", "-C", "1"), "9\n8\n7\n--\n5\n4\n3\n")

    def test_it_comes_from_the_lines_that_the_other_filters_leave(self) -> None:
        write_log("messages.txt", line("app: 1") + line("other: 2") + line("app: 3 hit") +
                  line("other: 4") + line("app: 5"))
        self.assertEqual(self.log("-t", "app", "-g", "hit", "-C", "1"),
                         line("app: 1") + line("app: 3 hit") + line("app: 5"))

    def test_blocks_are_separated_in_text_only(self) -> None:
        objects = self.check("-g", "^[48]$", "-C", "1", "-o", "json").objects
        self.assertEqual([found["message"] for found in objects], list("345789"))


class Priority(LogCase):
    NAMES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")

    def setUp(self) -> None:
        super().setUp()
        write_log("messages.txt", "".join(
            line(f"app: {name}", level=f"local3.{name}") for name in self.NAMES) + "no line\n")

    def test_by_name_and_by_number(self) -> None:
        for number, name in enumerate(self.NAMES):
            for value in (name, str(number)):
                self.assertEqual(self.words("-p", value), list(self.NAMES[:number + 1]))

    def test_other_names(self) -> None:
        self.assertEqual(self.words("-p", "error"), self.words("-p", "err"))
        self.assertEqual(self.words("--priority=warn"), self.words("-p", "4"))
        self.assertEqual(self.words("-ppanic"), ["emerg"])

    def test_a_facility_without_a_name(self) -> None:
        write_log("messages.txt", line("app: info", level="<102>") + line("app: crit", level="<202>"))
        self.assertEqual(self.words("-p", "err"), ["crit"])
        self.assertEqual(self.words("-p", "6"), ["info", "crit"])

    def test_usage_errors(self) -> None:
        for value in ("8", "-1", "fatal", ""):
            self.refuse(f"--priority={value}")


class Tag(LogCase):
    def setUp(self) -> None:
        super().setUp()
        write_log("messages.txt", line("app: 1") + line("app[812]: 2") + line("apple: 3") +
                  line("syslogd started: BusyBox") + line("-- MARK --") + "app: 4\n" +
                  "Nov 21 17:48:08 user.info app: 5\n" + line("a-b_c.d/e: 6") + line("app:7"))

    def test_with_and_without_a_process(self) -> None:
        self.assertEqual(self.words("-t", "app"), ["1", "2", "5"])
        self.assertEqual(self.words("--tag=apple"), ["3"])
        self.assertEqual(self.words("-t", "a-b_c.d/e"), ["6"])

    def test_no_tag(self) -> None:
        self.words("-t", "syslogd", status=1)
        self.words("-t", "--", status=1)


class Time(LogCase):
    def setUp(self) -> None:
        super().setUp()
        write_log("messages.txt", line("app: 1", time="Nov 20 00:00:00") +
                  line("app: 2", time="Nov 21 17:48:07") + line("app: 3", time="Nov 21 17:48:08") +
                  "no line\n" + line("app: 4", time="Nov 21 17:48:09"))

    def test_both_include_their_second(self) -> None:
        self.assertEqual(self.words("-S", "2026-11-21 17:48:08"), ["3", "4"])
        self.assertEqual(self.words("-U", "2026-11-21 17:48:08"), ["1", "2", "3"])
        self.assertEqual(self.words("--since=2026-11-21 17:48:08", "--until=2026-11-21 17:48:08"),
                         ["3"])

    def test_a_date_means_its_first_second(self) -> None:
        self.assertEqual(self.words("-S", "2026-11-21"), ["2", "3", "4"])
        self.assertEqual(self.words("-U", "2026-11-20"), ["1"])

    def test_a_line_of_another_form_is_excluded(self) -> None:
        self.assertNotIn("no line", self.log("-S", "1990-01-01"))

    def test_by_the_clock(self) -> None:
        now = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)

        def at(**ago: float) -> str:
            time = now - datetime.timedelta(**ago)
            return line(f"app: {next(iter(ago.items()))}",
                        time=f"{time:%b} {time.day:2} {time:%H:%M:%S}")

        old, hours, minutes, seconds = at(days=5), at(hours=5), at(minutes=10), at(seconds=1)
        write_log("messages.txt", old + hours + minutes + seconds, now.timestamp())
        self.assertEqual(self.log("-S", "-30min"), minutes + seconds)
        self.assertEqual(self.log("-S", "-6h"), hours + minutes + seconds)
        self.assertEqual(self.log("--since=-3d"), hours + minutes + seconds)
        self.assertEqual(self.log("-U", "-2h"), old + hours)
        self.assertEqual(self.log("-U", "yesterday"), old)
        self.assertIn(seconds, self.log("-S", "yesterday"))
        midnight = now.replace(hour=0, minute=0, second=0)
        today = [text for text, ago in ((hours, 5 * 3600), (minutes, 600), (seconds, 1))
                 if (now - midnight).total_seconds() >= ago]
        self.assertEqual(self.log("-S", "today"), "".join(today))
        self.assertEqual(self.log("-S", "00:00"), "".join(today))

    def test_usage_errors(self) -> None:
        for value in ("x", "2026-13-01", "2026-11-31", "25:00", "17:60", "-3x", "2026-11-21 17",
                      "", "tomorrowish"):
            self.refuse(f"--since={value}")

    def test_the_year_is_the_latest_that_fits(self) -> None:
        write_log("messages.txt", line("app: last", time="Dec 31 23:59:59") +
                  line("app: new", time="Jan  1 00:00:01"), 1767225605)  # 2026-01-01 00:00:05
        times = [found["time"] for found in self.check("-o", "json").objects]
        self.assertEqual(times, ["2025-12-31T23:59:59", "2026-01-01T00:00:01"])

    def test_one_day_later_than_the_file_is_this_year(self) -> None:
        for time, year in (("Nov 22 17:48:08", 2026), ("Nov 22 17:48:09", 2025)):
            write_log("messages.txt", line("app: x", time=time), MTIME)
            found, = self.check("-o", "json").objects
            self.assertEqual(found["time"][:4], str(year))

    def test_february_29_is_in_a_leap_year(self) -> None:
        write_log("messages.txt", line("app: x", time="Feb 29 12:00:00"))
        found, = self.check("-o", "json").objects
        self.assertEqual(found["time"], "2024-02-29T12:00:00")

    def test_the_archive_keeps_the_time_of_the_rotation(self) -> None:
        write_archive(1, line("app: x"), mtime=MTIME - 365 * 86400)
        self.assertEqual(self.log("-S", "2025-11-21", "-U", "2025-11-22"), line("app: x"))


class Together(LogCase):
    def test_a_line_must_pass_all_filters(self) -> None:
        write_archive(1, line("app: yes", level="user.err") + line("app: no", level="user.info") +
                      line("other: yes", level="user.err"))
        write_archive(2, line("app: yes", level="user.err"))
        self.assertEqual(self.log("-b", "1", "-t", "app", "-p", "err", "-g", "yes"),
                         line("app: yes", level="user.err"))

    def test_several_letters_in_one_word(self) -> None:
        write_log("messages.txt", "a\nB\nb\n")
        self.assertEqual(self.log("-rig", "b"), "b\nB\n")
        self.assertEqual(self.log("-ring", "b", status=2), "")


class Options(LogCase):
    def test_usage_errors(self) -> None:
        write_log("messages.txt", "text\n")
        for arguments in (["--nothing"], ["-Z"], ["what"], ["-n", "-1"], ["-nx"], ["-C", "x"],
                          ["-C"], ["-g"], ["-p"], ["-t"], ["-S"], ["-o", "xml"], ["--color=pink"],
                          ["-j", "x"], ["--count=5"], ["-f", "-D", "."], ["log", "log"]):
            self.refuse(*arguments)

    def test_a_message_names_the_option(self) -> None:
        self.refuse("--nothing", naming="--nothing")
        self.refuse("-n", "-1", naming="-1")

    def test_help(self) -> None:
        for verb in ("log", "boots", "status", "verify", "pack", "delete"):
            text = self.check(verb, "--help").text
            self.assertEqual(self.check("help", verb).text, text)
            self.assertIn(f"moraine {'[log]' if verb == 'log' else verb}", text)
            examples = text.split("Examples:\n")[1].split("\n\n")[0].splitlines()
            self.assertEqual(len(examples), 2, verb)
        overview = self.check("help").text
        self.assertEqual(self.check("--help").text, overview)
        for verb in ("log", "boots", "status", "verify", "pack", "delete", "help"):
            self.assertIn(verb, overview)

    def test_version(self) -> None:
        self.assertRegex(self.check("--version").text, r"\A\S+ \d+\.\d+\.\d+\n\Z")

    def test_an_unknown_verb(self) -> None:
        self.refuse("shred", naming="shred")
        self.refuse("help", "shred", naming="shred")

    def test_what_others_call_it(self) -> None:
        """A habit from journalctl or grep gets the name of what does the same."""
        for habit, naming in (("-u", "-t TAG"), ("-k", "-t kernel"), ("-e", "-g RE"), ("-xe", "-n N"),
                              ("--max-count=3", "-n N"), ("--file=x", "-D PATH"),
                              ("--list-boots", "moraine boots"), ("timeout", "-g RE"),
                              ("list-boots", "moraine boots"), ("stat", "moraine status"),
                              ("show", "moraine log"), ("tail", "-n N"), ("-V", "moraine --version"),
                              ("-q", ">/dev/null"), ("-a", "-n all"), ("--no-hostname", "-o json"),
                              ("--utc", "-o export"), ("--json", "-o json")):
            self.refuse(habit, naming=naming)
        self.refuse("delete", "-y", naming=": use --yes")
        self.assertNotIn("-t TAG", self.check("boots", "-u", status=2).error)
        write_log("messages.txt", line("app: one") + line("other: two"))
        self.assertEqual(self.words("--identifier=app"), ["one"])


    def test_a_copy_without_its_option(self) -> None:
        copy = self.folder / "log.tar"
        copy.touch()
        for arguments in ([copy], ["log", copy], ["boots", copy], ["verify", "--json", copy]):
            self.refuse(*arguments, naming=f": use -D {copy}")
        self.assertNotIn("-D", self.check("status", copy, status=2).error)

    def test_a_verb_behind_options(self) -> None:
        self.refuse("-n5", "boots", naming="the verb comes first")

    def test_an_empty_path(self) -> None:
        for verb in ("log", "boots"):
            self.refuse(verb, "-D", "", naming="--directory")


class Ends(LogCase):
    def test_no_log_is_status_1(self) -> None:
        self.assertEqual(self.log(status=1), "")

    def test_a_closed_pipe(self) -> None:
        write_log("messages.txt", line("app: text") * 100_000)
        process = subprocess.Popen([program()], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env=environment())
        process.stdout.readline()
        process.stdout.close()
        self.assertEqual(process.stderr.read(), b"")
        process.stderr.close()
        self.assertEqual(process.wait(waiting.limit), -signal.SIGPIPE)

    def test_a_closed_standard_output(self) -> None:
        write_log("messages.txt", line("app: text"))
        result = self.check(status=2, stdout=None, preexec_fn=lambda: os.close(1))
        self.assertNotEqual(result.error, "")

    def test_a_full_standard_output(self) -> None:
        write_archive(1, line("app: older"))
        write_log("messages.txt", line("app: text"))
        with open("/dev/full", "wb") as full:
            for arguments in (["log"], ["boots"], ["status"], ["status", "--json"], ["verify"], ["help"],
                              ["pack", "--dry-run"], ["delete", "--oldest", "--files=1", "--dry-run"],
                              ["delete", "--oldest", "--files=1", "--yes"]):
                result = self.check(*arguments, status=2, stdout=full)
                self.assertIn("standard output: No space left on device", result.error, arguments)

    def test_interrupted(self) -> None:
        process = subprocess.Popen([program(), "-f"], stdout=subprocess.PIPE, env=environment())
        write_log("messages.txt", line("app: text"))
        process.stdout.readline()
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(waiting.limit), 130)
        process.stdout.close()


class CursorFile(LogCase):
    """A series of calls with --cursor-file prints each line once."""

    def setUp(self) -> None:
        super().setUp()
        self.cursor = self.folder / "cursor"
        write_log("messages.txt", "1\n2\n")

    def append(self, text: str) -> None:
        with LIVE_LOG.open("a") as file:
            file.write(text)

    def check_series(self) -> None:
        """Remembers the place, and continues there."""
        self.assertEqual(self.log("--cursor-file", "cursor"), "1\n2\n")
        self.append("3\n")
        self.assertEqual(self.log("--cursor-file", "cursor"), "3\n")
        self.assertEqual(self.log("--cursor-file", "cursor", status=1), "")

    def test_an_existing_file_keeps_its_mode_and_owner(self) -> None:
        self.cursor.touch()
        self.cursor.chmod(0o640)
        with contextlib.suppress(OSError):  # an ordinary user's sandbox knows no other
            os.chown(self.cursor, 1, 2)
        before = self.cursor.stat()
        self.check_series()
        after = self.cursor.stat()
        for field in ("st_mode", "st_uid", "st_gid"):
            self.assertEqual(getattr(after, field), getattr(before, field), field)
        self.assertNotEqual(after.st_ino, before.st_ino)  # it is replaced in one step

    def test_an_unfinished_line_of_the_live_log_is_for_a_later_call(self) -> None:
        self.append("3")
        for order in ((), ("-r",), ("-n", "all"), ("-j", "1")):
            cursor = "-".join(("cursor", *order))
            self.assertEqual(sorted(self.words("--cursor-file", cursor, *order)), ["1", "2"], order)
        self.log("--cursor-file", "cursor", status=1)
        self.assertEqual(self.log("-n", "1", "--cursor-file", "other"), "2\n")
        self.append(" more\n4\n")
        self.assertEqual(self.log("--cursor-file", "cursor"), "3 more\n4\n")

    def test_a_line_that_is_never_finished_is_printed_once(self) -> None:
        self.append("3")
        self.assertEqual(self.log("--cursor-file", "cursor"), "1\n2\n")
        LIVE_LOG.rename(SYSLOG / "messages.txt.tmp")
        write_log("messages.txt", "4\n5")
        self.assertEqual(self.log("--cursor-file", "cursor"), "3\n4\n")
        write_archive(1, "1\n2\n3")
        (SYSLOG / "messages.txt.tmp").unlink()
        self.append("\n")
        self.assertEqual(self.log("--cursor-file", "cursor"), "5\n")

    def test_an_unfinished_line_in_a_download(self) -> None:
        def download(name: str) -> str:
            self.check("pack", "-o", name)
            return name

        self.append("3")
        self.assertEqual(self.log("-D", download("1.tar"), "--cursor-file", "cursor"), "1\n2\n")
        self.append(" more\n")
        self.assertEqual(self.log("-D", download("2.tar"), "--cursor-file", "cursor"), "3 more\n")

    def test_an_unfinished_line_has_no_cursor(self) -> None:
        self.append("3")
        found = self.check("-o", "json", "--show-cursor").objects
        self.assertEqual([item["message"] for item in found], ["1", "2"])
        self.assertEqual(self.log("-c", "--after-cursor", found[0]["cursor"]), "2\n")

    def test_a_new_file_is_as_the_umask_says(self) -> None:
        self.check("--cursor-file", "cursor", umask=0o027)
        self.assertEqual(self.cursor.stat().st_mode & 0o777, 0o640)

    def test_links_are_followed(self) -> None:
        other = self.folder / "other"
        other.mkdir()
        (other / "second").symlink_to(other / "target")
        self.cursor.symlink_to("other/second")
        self.check_series()
        self.assertTrue(self.cursor.is_symlink())
        self.assertEqual(sorted(path.name for path in other.iterdir()), ["second", "target"])

    def test_a_node_is_written_to(self) -> None:
        os.mkfifo(self.cursor)
        reader = os.open(self.cursor, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.log("--cursor-file", "cursor")
        self.assertTrue(self.cursor.is_fifo())
        self.assertIn(b"-", os.read(reader, 1000))
        self.log("--cursor-file", "/dev/null")
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))

    def test_a_file_with_other_content_stays(self) -> None:
        self.cursor.write_text("precious")
        result = self.check("--cursor-file", "cursor", status=2)
        self.assertEqual((result.out, self.cursor.read_text()), (b"1\n2\n", "precious"))
        self.assertIn("cursor: there is no cursor in it", result.error)

    def test_files_of_other_names_stay(self) -> None:
        (self.folder / "victim").write_text("precious")
        (self.folder / "cursor.tmp").symlink_to("victim")
        self.check_series()
        self.assertEqual((self.folder / "victim").read_text(), "precious")
        self.assertEqual(len(list(self.folder.iterdir())), 3)

    def test_nothing_is_left_behind_where_it_cannot_be_written(self) -> None:
        full = self.folder / "full"
        full.mkdir()
        self.mount("-t", "tmpfs", "-o", "size=4096", "tmpfs", str(full))
        (full / "ballast").write_bytes(bytes(4096))
        result = self.check("--cursor-file", "full/cursor", status=2)
        self.assertIn("full/cursor: No space left on device", result.error)
        self.assertEqual([path.name for path in full.iterdir()], ["ballast"])


class Follow(LogCase):
    def follow(self, *arguments: str) -> subprocess.Popen:
        process = subprocess.Popen([program(), "-f", *arguments], stdout=subprocess.PIPE,
                                   env=environment(), text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def append(self, text: str) -> None:
        with LIVE_LOG.open("a") as file:
            file.write(text)

    def rotate(self) -> None:
        services.rotate()
        LIVE_LOG.touch()

    def test_the_last_ten_then_each_once(self) -> None:
        write_archive(1, "".join(f"{number}\n" for number in range(15)))
        write_log("messages.txt", "15\n")
        lines = self.follow().stdout
        for number in range(6, 16):
            self.assertEqual(lines.readline(), f"{number}\n")
        self.append("16\n17\n")
        self.assertEqual([lines.readline(), lines.readline()], ["16\n", "17\n"])

    def test_across_rotations_and_a_new_live_log(self) -> None:
        write_log("messages.txt", "0\n")
        lines = self.follow("-n", "1").stdout
        self.assertEqual(lines.readline(), "0\n")
        for number in range(1, 30):
            self.append(f"{number}\n")
            if number % 3 == 0:
                self.rotate()
            self.assertEqual(lines.readline(), f"{number}\n")

    def test_an_unfinished_line_is_waited_for(self) -> None:
        write_log("messages.txt", "0\n")
        lines = self.follow().stdout
        self.assertEqual(lines.readline(), "0\n")
        self.append("begin")
        self.append(" end\n")
        self.assertEqual(lines.readline(), "begin end\n")

    def test_a_live_log_that_cannot_be_opened_is_waited_for(self) -> None:
        write_log("messages.txt.0", "0\n")
        LIVE_LOG.symlink_to(write_log("elsewhere", "no part of it\n"))
        lines = self.follow().stdout
        self.assertEqual(lines.readline(), "0\n")
        write_log("new", "1\n").rename(LIVE_LOG)
        self.assertEqual(lines.readline(), "1\n")

    def test_context_from_before_a_rotation(self) -> None:
        write_log("messages.txt", "match 0\n")
        lines = self.follow("-o", "json", "-g", "match", "-C", "3").stdout
        self.assertIn("match 0", lines.readline())
        self.append("1\n2\n3\n")
        self.rotate()
        self.append("match 4\n")
        for text in ("1", "2", "3", "match 4"):
            found = json.loads(lines.readline())
            self.assertEqual((found["file"], found["message"]), ("messages.txt", text))

    def test_context_from_both_sides_of_what_was_there_at_first(self) -> None:
        for lines in ([], ["-n", "1"]):
            write_log("messages.txt", "1\nmatch 2\n3\n4\n5\n")
            output = self.follow("-g", "match", "-C", "2", *lines).stdout
            self.assertEqual([output.readline() for _ in range(4)], ["1\n", "match 2\n", "3\n", "4\n"])
            self.append("match 6\n")
            self.assertEqual([output.readline() for _ in range(2)], ["5\n", "match 6\n"])

            write_log("messages.txt", "1\n2\n3\nmatch 4\n")
            output = self.follow("-g", "match", "-C", "2", *lines).stdout
            self.assertEqual([output.readline() for _ in range(3)], ["2\n", "3\n", "match 4\n"])
            self.append("5\n6\n7\nmatch 8\n")
            self.assertEqual([output.readline() for _ in range(4)], ["5\n", "6\n", "7\n", "match 8\n"])

    def test_the_current_boot_across_a_renumbering(self) -> None:
        BOOT_NUMBER.write_text("999\n")
        self.addCleanup(BOOT_NUMBER.unlink)
        write_log("messages.txt", "0\n")
        lines = self.follow("-b", "0").stdout
        self.assertEqual(lines.readline(), "0\n")
        BOOT_NUMBER.write_text("2\n")
        self.rotate()
        self.append("1\n")
        self.assertEqual(lines.readline(), "1\n")

    def test_a_new_archive_file_with_the_inode_of_one_that_was_deleted(self) -> None:
        old = write_archive(1, "0\n")
        write_log("messages.txt", "1\n")
        lines = self.follow().stdout
        self.assertEqual([lines.readline(), lines.readline()], ["0\n", "1\n"])
        old.rename(old.with_name("messages.001.1970-01-01.00:01:00.txt.xz"))
        write_archive(1, "2\n", minute=1)
        write_log("new", "3\n").rename(LIVE_LOG)
        self.assertEqual([lines.readline(), lines.readline()], ["2\n", "3\n"])

    def test_filters_hold(self) -> None:
        write_log("messages.txt", line("app: 1") + line("app: 2"))
        lines = self.follow("-t", "app", "-g", "[13]$").stdout
        self.assertEqual(lines.readline(), line("app: 1"))
        self.append("".join(line(f"app: {number}") + line("x: 1") for number in range(1, 4)))
        self.assertEqual([lines.readline(), lines.readline()], [line("app: 1"), line("app: 3")])


if __name__ == "__main__":
    case.main()
