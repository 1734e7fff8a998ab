#!/bin/sh
# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Prints what the product takes on a device: ./device --new-disk --run rig/emulator/measure.sh
log=/perm/logs/syslog
service=/etc/init.d/S90vandis-moraine
pid_file=/var/run/vandis-moraine.pid

uptime() {
	cut -d ' ' -f 1 /proc/uptime
}

# One line of the result: what, how much
result() {
	printf '%-48s %s\n' "$1:" "$2"
}

# A MiB of log lines, as many as syslogd puts into a rotation; $1: other ones each time
rotation() {
	awk -v seed="$1" 'BEGIN {
		srand(seed)
		while (size < 1024 * 1024) {
			line = sprintf("Jan  1 00:%02d:%02d device daemon.info pump: pressure %d kPa flow %d l/h",
				n / 60 % 60, n++ % 60, 90 + rand() * 40, rand() * 1000)
			print line
			size += length(line) + 1
		}
	}'
}

archived_in() {
	sed -n "s/.*Archived '[^']*\.$1' to .* in \(.*\) seconds\.$/\1/p" "$log/messages.txt"
}

wait_for_rotation_to_go() {
	while [ -e "$log/messages.txt.$1" ]; do
		usleep 50000
	done
}

# With a group that may read the log: root's program does not serve the page.
allow_page() {
	/etc/init.d/S92moraine-page start
	echo 'LOG_GROUP=moraine-page' >>/etc/default/syslogd-moraine
	for script in S01syslogd-moraine S90vandis-moraine S92moraine-page; do
		"/etc/init.d/$script" restart
	done
}

fetch() {
	wget -q -O - "http://127.0.0.1:8514/$1"
}

# Prints when the first line of the log was there. As a browser asks, but for one thing at a time.
fetch_first_screen() {
	for file in index.html page.css page.js cgi-bin/moraine/status cgi-bin/moraine/boots; do
		fetch "$file" >/dev/null
	done
	fetch 'cgi-bin/moraine/log?lines=500&reverse=1' | {
		read -r line
		case "$line" in *'"cursor"'*) uptime;; esac
		cat >/dev/null
	}
}

seconds_since() {
	echo "$2 $1" | awk '{ printf "%.2f s", $1 - $2 }'
}

ready=$(uptime)
echo "Measuring (about a minute)"
rotation 0 >/tmp/messages.txt.0
mv /tmp/messages.txt.0 "$log"
wait_for_rotation_to_go 0
first=$(uptime)
pid=$(cat "$pid_file")
grep -q '^VmRSS:' "/proc/$pid/status" || exit 1
resident=$(sed -n 's/^VmRSS:[^0-9]*//p' "/proc/$pid/status")

for number in 0 1; do
	rotation "$number" >"/tmp/messages.txt.$number"
	mv "/tmp/messages.txt.$number" "$log"
done
settings=$(tr '\0' '\n' <"/proc/$pid/environ" | sed -n 's/^XZ_DEFAULTS=//p')
XZ_DEFAULTS=$settings xz --stdout "$log/messages.txt.0" >/dev/null &
while now=$(sed -n 's/^VmHWM:[^0-9]*//p' "/proc/$!/status" 2>/dev/null) && [ -n "$now" ]; do
	xz_memory=$now
	usleep 50000
done
wait_for_rotation_to_go 1
wait_for_rotation_to_go 0

"$service" stop >/dev/null
before=$(uptime)
start-stop-daemon --start --background --make-pidfile --pidfile "$pid_file" \
	--exec /usr/sbin/vandis-moraine
until tail -n 1 "$log/messages.txt" | grep -q 'vandis-moraine running'; do
	usleep 10000
done
started=$(uptime)

allow_page >/dev/null
fetch_first_screen >/dev/null # now BusyBox and the program are in memory
page_asked=$(uptime)
page_first=$(fetch_first_screen)
page_full=$(uptime)

result 'power on until all services are up' "$ready s"
result 'power on until the first rotation is archived' "$first s"
result 'start of the daemon until it runs' "$(seconds_since "$before" "$started")"
for number in 1 0; do
	result 'archiving a rotation of 1 MiB' "$(archived_in "$number" | tail -n 1) s"
done
result 'resident memory of the daemon (VmRSS)' "$resident"
result 'resident memory of xz, at most' "${xz_memory-unknown}"
result 'log page, until its first line' "$(seconds_since "$page_asked" "$page_first")"
result 'log page, until its first screen is full' "$(seconds_since "$page_asked" "$page_full")"
result 'size of the daemon' "$(wc -c </usr/sbin/vandis-moraine) bytes"
