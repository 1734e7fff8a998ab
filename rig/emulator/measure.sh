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

ready=$(uptime)
echo "Measuring (about 50 seconds)"
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

result 'power on until all services are up' "$ready s"
result 'power on until the first rotation is archived' "$first s"
result 'start of the daemon until it runs' \
	"$(echo "$started $before" | awk '{ printf "%.2f s", $1 - $2 }')"
for number in 1 0; do
	result 'archiving a rotation of 1 MiB' "$(archived_in "$number" | tail -n 1) s"
done
result 'resident memory of the daemon (VmRSS)' "$resident"
result 'resident memory of xz, at most' "${xz_memory-unknown}"
result 'size of the daemon' "$(wc -c </usr/sbin/vandis-moraine) bytes"
