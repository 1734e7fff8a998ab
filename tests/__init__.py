# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A package, so that everything here runs from the root by its name: python3 -m tests.device."""
