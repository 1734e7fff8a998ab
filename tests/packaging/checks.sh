#!/bin/sh
# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Sourced by the steps of ./run, and by other scripts here. A step is a list of checks; each says what
# holds, and what was found where it does not. The first that fails ends the step.

if [ "${1-}" = --help ]; then
    echo "A step of tests/packaging/run (see its --help). ${usage:-Takes no arguments.}"
    echo
    sed -n '2,/^[^#]/{ /SPDX-/d; s/^# //p; }' "$0"
    exit 0
fi
cd "$(dirname "$0")/../.." || exit 1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck disable=SC2034 # for the steps
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)

fail() {
    echo "FAILED: $1" >&2
    exit 1
}

# check CLAIM COMMAND [ARGUMENT...]
check() {
    claim=$1
    shift
    if "$@" >"$work/found" 2>&1; then
        echo "ok: $claim"
    else
        cat "$work/found" >&2
        fail "$claim"
    fi
}

# has_no PATTERN FILE
has_no() {
    ! grep "$1" "$2"
}

# Builds the packages of this machine's processor, and sets `native` to what Debian calls that.
build_native() {
    native=$(dpkg --print-architecture)
    packaging/debian/build-packages "$native" >"$work/build" 2>&1 || {
        cat "$work/build" >&2
        fail "the package is built"
    }
}

# check_equal CLAIM FOUND EXPECTED
check_equal() {
    printf '%s\n' "$2" >"$work/is"
    printf '%s\n' "$3" >"$work/ought"
    check "$1" diff -u --label expected --label found "$work/ought" "$work/is"
}

# listing FOLDER: what is in it, one line for each file or link.
listing() {
    (cd "$1" && find . \( -type f -printf '%m %P\n' -o -type l -printf 'link %P -> %l\n' \))
}

# check_listing CLAIM FOUND EXPECTED: as check_equal, in any order.
check_listing() {
    check_equal "$1" "$(echo "$2" | LC_ALL=C sort -k 2)" "$(echo "$3" | LC_ALL=C sort -k 2)"
}
