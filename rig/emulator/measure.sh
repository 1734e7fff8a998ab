#!/bin/sh
# Prints what the daemon takes on a device: ./device --new-disk --run rig/emulator/measure.sh
log=/perm/logs/syslog
service=/etc/init.d/S90vandis-moraine
pid_file=/var/run/vandis-moraine.pid

now() {
	cut -d ' ' -f 1 /proc/uptime
}

# 200 KiB of log lines; $1: another one each time
rotation() {
	awk -v seed="$1" 'BEGIN {
		srand(seed)
		while (size < 200 * 1024) {
			line = sprintf("Jan  1 00:%02d:%02d device daemon.info pump: pressure %d kPa flow %d l/h",
				n / 60 % 60, n++ % 60, 90 + rand() * 40, rand() * 1000)
			print line
			size += length(line) + 1
		}
	}'
}

"$service" stop >/dev/null
before=$(now)
start-stop-daemon --start --background --make-pidfile --pidfile "$pid_file" \
	--exec /usr/sbin/vandis-moraine
until tail -n 1 "$log/messages.txt" | grep -q 'vandis-moraine running'; do
	usleep 10000
done
echo "$before $(now)" | awk '{ printf "start-up until the daemon runs:   %.2f s\n", $2 - $1 }'
"$service" stop >/dev/null

for number in 0 1 2; do
	rotation "$number" >"$log/messages.txt.$number"
done
"$service" start >/dev/null
pid=$(cat "$pid_file")
settings=$(tr '\0' '\n' <"/proc/$pid/environ" | sed -n 's/^XZ_DEFAULTS=//p')
XZ_DEFAULTS=$settings command time -v xz --stdout "$log/messages.txt.0" 2>/tmp/usage >/dev/null
while ls "$log"/messages.txt.? >/dev/null 2>&1; do
	sleep 1
done
sleep 1
sed -n 's/^VmHWM:[^0-9]*\(.*\)/memory of the daemon, at most:    \1/p' "/proc/$pid/status"
sed -n 's/.*Maximum resident.*: \(.*\)/memory of xz, at most:            \1 kB/p' /tmp/usage
sed -n "s/.*Archived '.*\.[012]' to .* in \(.*\) seconds\.$/archiving a rotation of 200 KiB:  \1 s/p" \
	"$log/messages.txt"
