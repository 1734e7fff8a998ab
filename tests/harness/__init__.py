# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What tests, benchmarks and the demonstration share; each of these is here once.

paths      where things are, in the project and in a sandbox
waiting    waiting for an event
sandbox    the private root made of namespaces in which the product runs, from outside
services   syslogd and the daemon as the init scripts run them, inside a sandbox
log_socket a reader of /dev/log
numbered   numbered log lines: who writes them, and the judge that counts them
daemon     the daemon as a process that a test starts itself, and the lines of its life
progress   a status line on a terminal
case       test cases that run in a sandbox
init_case  test cases of the init scripts, with BusyBox as shell
terminal   a terminal for a program in a sandbox
tree       a copy of the project, to be broken
"""
