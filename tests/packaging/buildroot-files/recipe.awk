# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# A package's .mk file, as Buildroot's manual wants it.
function expected(what) {
	print FILENAME ":" NR ": expected " what ": " $0
	failed = 1
}

NR == 1 || NR == 5 { if ($0 !~ /^#+$/ || length($0) != 80) expected("80 hashes") }
NR == 3 && $0 != "# vandis-moraine" { expected("the name of the package") }
NR == 6 && $0 != "" { expected("an empty line") }
/[ \t]$/ { expected("nothing at the end") }
/[^ ]\\$/ || /[ \t][ \t]\\$/ { expected("one blank before the backslash") }
/^endef/ { inside = 0 }
inside && !/^\t/ { expected("a tab") }
/^define / { inside = 1 }
/^(define )?[A-Z0-9_]+/ {
	if (($1 == "define" ? $2 : $1) !~ /^VANDIS_MORAINE_/) expected("a variable of the package")
}
/^[^#\t]*=/ && !/^[A-Z0-9_]+ \+?= [^ ]/ { expected("one blank on each side of =") }
END { exit failed }
