// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/help.h"

#include <algorithm>
#include <iterator>

namespace Tool {

namespace {

constexpr std::string_view Overview =
    R"(Usage: moraine [log] [OPTION]...   prints the log, oldest line first
       moraine boots [OPTION]...   prints a row for each boot
       moraine status [--json]     reports health, what is kept, and free space
       moraine verify [OPTION]...  decompresses and checks every archive file
       moraine pack [OPTION]...    writes the log to a tar file
       moraine delete [OPTION]...  deletes archive files
       moraine help [VERB]
       moraine --version

Reads the system log across boots: the archive, the rotations that wait to be archived, and what
syslogd writes, as one text. -D PATH reads a copy or a download instead.

Examples:
  moraine -n 50                     the last 50 lines
  moraine -b -1 -p err              errors of the previous boot
  moraine -g 'pump.*timeout' -C 3   with three lines around each match
  moraine -f                        the last lines, then new ones as they arrive
  moraine boots                     which boots there are

moraine VERB --help, or moraine help VERB, lists the options of a verb; "moraine log --help" those
for reading. man moraine explains them.
)";

constexpr std::string_view Log = R"(Usage: moraine [log] [OPTION]...

Prints the log, oldest line first. A line must pass all filters.

Which lines:
  -b, --boot [N]          only boot N: a number of the archive, 0 (or nothing) for the current one,
                          -1 for the previous one; N..M is a range
  -n, --lines [N]         only the last N lines (10), or all
  -g, --grep RE           only lines that match the extended regular expression; if repeated, any
  -F, --fixed-strings     -g takes plain strings
  -i, --ignore-case       -g ignores the case of ASCII letters
  -v, --invert-match      only lines that -g does not match
  -C, --context N         N lines before and after each match
  -A, --after-context N   only the lines after it
  -B, --before-context N  only the lines before it
  -p, --priority LEVEL    emerg, alert, crit, err, warning, notice, info, debug (or 0 to 7), and all
                          that is more serious
  -t, --tag TAG           only lines of this program
  -S, --since TIME        "2026-11-21 17:48:08", 2026-11-21, 17:48, today, yesterday, -2h, -30min,
  -U, --until TIME        -3d
  -f, --follow            the last lines, then new ones as they arrive
      --cursor-file FILE  only lines behind the one that FILE names; leaves the last one there, so
                          that each line is printed once in a series of calls
      --after-cursor C    only lines behind the one with this cursor
      --show-cursor       with -o json: each object has its line's cursor

How:
  -r, --reverse           newest line first
  -c, --count             only their number
  -o, --output FORMAT     text, json (an object a line) or export (for systemd-journal-remote)
      --color WHEN        auto, always or never
      --no-pager          does not call $PAGER
  -j, --jobs N            decompresses at most N files at a time

From where:
  -D, --directory PATH    a copied folder, a download, or - for a download on standard input

Examples:
  moraine -p warning -S today
  moraine -D device-logs-20261121-174808.tar -t sshd -g 'Failed|Invalid'

The status is 0 if something was printed, 1 if no line passed, 2 if something could not be read.
)";

constexpr std::string_view Boots = R"(Usage: moraine boots [OPTION]...

Prints a row for each boot, oldest first: offset and number for -b, the number of its files, their
size, and its first and last time stamp.

  -D, --directory PATH    a copied folder, a download, or - for a download on standard input
      --json              an array of objects

Examples:
  moraine boots
  moraine boots -D device-logs-20261121-174808.tar --json
)";

constexpr std::string_view Status = R"(Usage: moraine status [--json]

Reports whether the log is kept as it should be, what is kept, and how much room there is. The
status is 0 if all is well; else 1, with a line for each reason that says what to do.

      --json              one object

Examples:
  moraine status
  moraine status >/dev/null || /etc/init.d/S90vandis-moraine start
)";

constexpr std::string_view Verify = R"(Usage: moraine verify [OPTION]...

Decompresses every archive file and checks that it is complete, intact by its own checksums, and
named correctly. Prints a line for each file that fails. The status is 1 if one does, 2 if one
could not be read.

  -D, --directory PATH    a copied folder, a download, or - for a download on standard input
      --json              one object

Examples:
  moraine verify
  moraine verify -D /media/usb/syslog --json
)";

constexpr std::string_view Pack = R"(Usage: moraine pack [OPTION]...

Writes the log to a tar file, newest first: what is not archived yet, compressed; the files of the
archive; and a manifest. Needs neither tar nor xz nor room for temporary files.

  -o, --output FILE       the tar file, - is standard output (HOST-logs-YYYYMMDD-HHMMSS.tar)
      --force             replaces an existing file
  -l, --limit SIZE        of the tar file: 500K, 15M, 2G or none (15M)
      --newest, --oldest  archive files only, starting from that end
      --files N           at most N archive files
      --boots N           of at most N boots
  -b, --boot [N]          only these boots, as for moraine log
      --dry-run           prints the members and the total size, and writes nothing

Examples:
  moraine pack -b -1 -o /media/usb/crash.tar
  ssh device moraine pack -l none -o - > device.tar
)";

constexpr std::string_view Delete =
    R"(Usage: moraine delete --oldest|--newest --files N|--boots N [OPTION]...
       moraine delete -b N [OPTION]...

Deletes archive files and prints their names and sizes. The daemon is stopped for that and started
again afterwards. Other files in the archive stay.

      --oldest, --newest  starting from that end
      --files N           at most N files
      --boots N           of at most N boots
  -b, --boot [N]          only these boots, as for moraine log
      --yes               does not ask; required where there is no terminal
      --dry-run           prints what would be deleted

Examples:
  moraine delete --oldest --boots 10 --dry-run
  moraine delete -b 3..7 --yes
)";

struct VerbHelp {
    std::string_view verb;
    std::string_view text;
};

constexpr VerbHelp Verbs[]{{"log", Log},       {"boots", Boots}, {"status", Status},
                           {"verify", Verify}, {"pack", Pack},   {"delete", Delete}};

}  // namespace

std::string_view Help(std::string_view verb) {
    const auto* const found = std::find_if(std::begin(Verbs), std::end(Verbs),
                                           [&](const VerbHelp& help) { return help.verb == verb; });
    return found == std::end(Verbs) ? Overview : found->text;
}

}  // namespace Tool
