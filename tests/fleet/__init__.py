# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What docs/fleet.md describes, with the real programs: the log of many devices in other systems."""
