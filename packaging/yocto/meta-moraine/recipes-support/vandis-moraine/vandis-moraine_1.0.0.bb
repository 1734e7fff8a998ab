# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

SUMMARY = "Archive of the system log across reboots"
DESCRIPTION = "A daemon that compresses each file that BusyBox syslogd has rotated and moves it into \
an archive on the permanent partition, with the syslogd that it works beside, a command and a web \
page that show the log, and a C++ library."
SECTION = "base"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=472762c378036384718c74a13fe62278"

DEPENDS = "xz"

inherit cmake pkgconfig externalsrc systemd update-rc.d useradd

EXTERNALSRC = "${MORAINE_PROJECT}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"
# No links in the project's own folder.
EXTERNALSRC_SYMLINKS = ""

# Sizes are `unsigned long`, which has to have 64 bits.
COMPATIBLE_HOST = "(aarch64|x86_64).*-linux"

EXTRA_OECMAKE = "\
    -DMORAINE_TESTS=OFF \
    -DMORAINE_SYSTEMD=${@bb.utils.contains('DISTRO_FEATURES', 'systemd', 'ON', 'OFF', d)} \
"

# Static, the daemon takes a fraction of the memory. It calls nothing that the C library would load at
# run time.
PACKAGECONFIG ??= "static command page"
PACKAGECONFIG[static] = "-DMORAINE_STATIC=ON,-DMORAINE_STATIC=OFF"
PACKAGECONFIG[command] = "-DMORAINE_COMMAND=ON,-DMORAINE_COMMAND=OFF"
PACKAGECONFIG[page] = "-DMORAINE_PAGE=ON,-DMORAINE_PAGE=OFF"

do_install:append() {
    # Where /usr has not been merged, units have another place than CMake knows.
    if [ -d ${D}${nonarch_libdir}/systemd/system ] &&
        [ ${nonarch_libdir}/systemd/system != ${systemd_system_unitdir} ]; then
        install -d ${D}${systemd_unitdir}
        mv ${D}${nonarch_libdir}/systemd/system ${D}${systemd_system_unitdir}
        rmdir ${D}${nonarch_libdir}/systemd
    fi

    # The name that the init script starts. BusyBox's own package of syslogd would bring it, and a
    # second syslogd with it.
    install -d ${D}${base_sbindir}
    ln -s ${base_bindir}/busybox ${D}${base_sbindir}/syslogd

    # Where the permanent partition is mounted.
    install -d ${D}/perm
}

PACKAGE_BEFORE_PN = "${PN}-syslogd ${PN}-command ${PN}-page"

SUMMARY:${PN}-syslogd = "The syslogd that vandis-moraine works beside"
FILES:${PN}-syslogd = "\
    /perm \
    ${base_sbindir}/syslogd \
    ${nonarch_libdir}/${BPN} \
    ${sysconfdir}/default/syslogd-moraine \
    ${sysconfdir}/init.d/S01syslogd-moraine \
    ${systemd_system_unitdir}/S01syslogd-moraine.service \
    ${systemd_system_unitdir}/syslogd-moraine.service \
"
CONFFILES:${PN}-syslogd = "${sysconfdir}/default/syslogd-moraine"
RDEPENDS:${PN}-syslogd = "busybox"
RCONFLICTS:${PN}-syslogd = "busybox-syslog rsyslog sysklogd syslog-ng"

SUMMARY:${PN}-command = "Shows, checks and packs the log that vandis-moraine keeps"
FILES:${PN}-command = "\
    ${bindir}/moraine \
    ${datadir}/bash-completion/completions/moraine \
"
RDEPENDS:${PN}-command = ""

SUMMARY:${PN}-page = "Web page of the log that vandis-moraine keeps"
FILES:${PN}-page = "\
    ${datadir}/${BPN}/www \
    ${sysconfdir}/default/moraine-page \
    ${sysconfdir}/init.d/S92moraine-page \
    ${systemd_system_unitdir}/moraine-page* \
"
CONFFILES:${PN}-page = "${sysconfdir}/default/moraine-page"
RDEPENDS:${PN}-page = "busybox"

FILES:${PN} += "${systemd_system_unitdir}"
# GNU tar: BusyBox's cannot append to an archive, and so not make a download.
RDEPENDS:${PN} = "${PN}-syslogd tar xz"
CONFFILES:${PN} = "${sysconfdir}/default/vandis-moraine"

# The libraries are static: whoever links them needs nothing of it on the device.
RDEPENDS:${PN}-dev = ""
RDEPENDS:${PN}-staticdev = "${PN}-dev (= ${EXTENDPKGV})"

# After the file systems (mountall.sh) and /var/run (populate-volatile.sh), and up to the last.
INITSCRIPT_PACKAGES = "${PN}-syslogd ${PN} ${@bb.utils.contains('PACKAGECONFIG', 'page', '${PN}-page', '', d)}"
INITSCRIPT_NAME:${PN}-syslogd = "S01syslogd-moraine"
INITSCRIPT_PARAMS:${PN}-syslogd = "start 38 S . stop 90 0 1 6 ."
INITSCRIPT_NAME:${PN} = "S90vandis-moraine"
INITSCRIPT_PARAMS:${PN} = "start 90 2 3 4 5 . stop 10 0 1 6 ."
INITSCRIPT_NAME:${PN}-page = "S92moraine-page"
INITSCRIPT_PARAMS:${PN}-page = "start 92 2 3 4 5 . stop 08 0 1 6 ."

SYSTEMD_PACKAGES = "${PN}-syslogd ${PN} ${@bb.utils.contains('PACKAGECONFIG', 'page', '${PN}-page', '', d)}"
SYSTEMD_SERVICE:${PN}-syslogd = "syslogd-moraine.service"
SYSTEMD_SERVICE:${PN} = "vandis-moraine.service"
SYSTEMD_SERVICE:${PN}-page = "moraine-page.socket"

# The page's program runs as this user.
USERADD_PACKAGES = "${PN}-page"
USERADD_PARAM:${PN}-page = "--system --no-create-home --home-dir / --shell /bin/false --user-group moraine-page"
