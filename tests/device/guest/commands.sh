#!/bin/sh
# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Runs the lines that come over the console, one by one, and prints the status of each.
stty -echo
echo @ready
while read -r command; do
	[ "$command" != poweroff ] || exit 0
	eval "$command" </dev/null
	echo "@status $?"
done
