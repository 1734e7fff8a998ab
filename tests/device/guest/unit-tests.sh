#!/bin/sh
# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Runs the test programs. Each makes itself a sandbox, by a change of the root, which the root
# that a kernel unpacks at boot does not allow: so a copy of it on a tmpfs comes first.
new_root=/tmp/root
mkdir "$new_root"
mount -t tmpfs -o mode=0755 tmpfs "$new_root"
cd "$new_root" || exit 1
for folder in /*; do
	case "$folder" in
		/dev|/perm|/proc|/run|/sys|/tmp) mkdir ".$folder";;
		*) cp -a "$folder" .;;
	esac
done
mkdir -p ".$(cat root/build-folder)"  # the programs expect it
mount -t devtmpfs devtmpfs dev
mount -t proc proc proc

# One process for each test, as ctest does it: each begins with a device of its own.
list() {
	chroot . "$1" --gtest_list_tests |
		awk '/^[^ ]+\.$|^[^ ]+\.  #/ { suite = $1 } /^  / { print suite $1 }'
}

status=0
passed=0
for program in root/tests/*; do
	for name in $(list "/$program"); do
		if chroot . "/$program" --gtest_brief=1 --gtest_filter="$name" >output 2>&1; then
			passed=$((passed + 1))
		else
			status=1
			grep -v '^\[==' output
		fi
	done
done
echo "@passed $passed"
exit $status
