# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The command `moraine` as a black box, in a sandbox."""
