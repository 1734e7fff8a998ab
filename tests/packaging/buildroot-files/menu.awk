# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# A package's Config.in, as Buildroot's manual wants it.
function expected(what) {
	print FILENAME ":" NR ": expected " what ": " $0
	failed = 1
}

BEGIN { count = split("bool default depends select help", order, " ") }
/[ \t]$/ { expected("nothing at the end") }
/^\t  / {
	if (length($0) > length("\t  ") + 62) expected("62 characters of help")
	next
}
/^ / { expected("a tab") }
/^(menuconfig|config|comment)/ { reached = 0 }
/^\t[a-z]/ {
	for (i = 1; i <= count && $1 != order[i]; i++) ;
	if (i < reached) expected("the order bool, default, depends, select, help")
	reached = i
}
END { exit failed }
