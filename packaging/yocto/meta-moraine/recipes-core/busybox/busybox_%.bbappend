# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Named last, these settings replace those of the recipe.
FILESEXTRAPATHS:prepend := "${MORAINE_PROJECT}/packaging/busybox:"
SRC_URI += "file://moraine.cfg file://moraine-httpd.cfg"
