# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# external.desc, as Buildroot's manual wants it.
/^name: [A-Za-z0-9_]+$/ { name = 1; next }
/^desc: ./ && length($0) <= length("desc: ") + 40 { desc = 1; next }
{ print FILENAME ":" NR ": not known: " $0; exit 1 }
END { exit !(name && desc) }
