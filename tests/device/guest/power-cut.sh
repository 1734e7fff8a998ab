#!/bin/sh
# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# A service between syslogd and the daemon: reports on the console what happens to the log, and adds
# rotations, each safe on the disk before the daemon can see it.
[ "$1" = start ] || exit 0
log=/perm/logs/syslog
# shellcheck source=/dev/null
[ ! -e /root/settings ] || . /root/settings

print_log_lines() {
	tail -n 0 -F "$log/messages.txt" | while read -r line; do
		case "$line" in
			*vandis-moraine:*|*watch:*) echo "@log ${line#*vandis-moraine: }";;
		esac
	done
}

free_name() {
	for number in 0 1 2 3 4 5 6 7 8; do
		[ -e "$log/messages.txt.$number" ] || { echo "messages.txt.$number"; return; }
	done
	return 1
}

# add FILE NAME: puts FILE into the log folder, as NAME if that ends in .tmp, else as the next free
# rotation. Prints "@synced NAME" once it is on the disk.
add() {
	name=$2
	case "$name" in *.tmp) ;; *) name=$(free_name) || return 0;; esac
	[ ! -e "$log/$name" ] || return 0
	cp "$1" "$log/incoming"
	sync "$log/incoming"
	mv "$log/incoming" "$log/$name"
	sync
	echo "@synced $2"
}

mkdir -p "$log/archive"
for leftover in "$log"/*.xz "$log"/*.tmp; do
	[ ! -e "$leftover" ] || stat -c '@leftover %i %Z %n' "$leftover"
done
rm -f "$log/incoming"
nice -n -20 /root/watch "$log" "$log/archive"
print_log_lines &
for file in /root/rotations/*; do
	[ ! -e "$file" ] || add "$file" "${file##*/}"
done
echo @prepared
if [ -n "${SYNC_ALL_THE_TIME-}" ]; then
	while :; do sync; done &
fi
