################################################################################
#
# vandis-moraine
#
################################################################################

VANDIS_MORAINE_VERSION = 1.0.0
# This tree is part of the project: it builds the sources that it came with.
VANDIS_MORAINE_SITE = $(BR2_EXTERNAL_VANDIS_MORAINE_PATH)/../..
VANDIS_MORAINE_SITE_METHOD = local
VANDIS_MORAINE_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
VANDIS_MORAINE_LICENSE = MIT
VANDIS_MORAINE_LICENSE_FILES = LICENSE
VANDIS_MORAINE_SUPPORTS_IN_SOURCE_BUILD = NO
VANDIS_MORAINE_CONF_OPTS = -DMORAINE_TESTS=OFF
# The library, for other packages; it is static, so the target has no use for it.
VANDIS_MORAINE_INSTALL_STAGING = YES
VANDIS_MORAINE_INSTALL_STAGING_OPTS = --component development
VANDIS_MORAINE_INSTALL_TARGET_OPTS = --component daemon

# As busybox.fragment, which serves a Buildroot that does not know these.
define VANDIS_MORAINE_BUSYBOX_CONFIG_FIXUPS
	$(call KCONFIG_ENABLE_OPT,CONFIG_SYSLOGD)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_ROTATE_LOGFILE)
	$(call KCONFIG_ENABLE_OPT,CONFIG_START_STOP_DAEMON)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_START_STOP_DAEMON_FANCY)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_START_STOP_DAEMON_LONG_OPTIONS)
	$(call KCONFIG_ENABLE_OPT,CONFIG_MOUNTPOINT)
	$(call KCONFIG_ENABLE_OPT,CONFIG_NICE)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_FANCY_SLEEP)
endef

define VANDIS_MORAINE_INSTALL_INIT_SYSV
	$(TARGET_MAKE_ENV) DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) \
		--install $(VANDIS_MORAINE_BUILDDIR) --component sysv
endef

define VANDIS_MORAINE_INSTALL_INIT_SYSTEMD
	$(TARGET_MAKE_ENV) DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) \
		--install $(VANDIS_MORAINE_BUILDDIR) --component systemd
endef

# Where BusyBox's own script has started syslogd, ours finds it running and leaves
# it be, and the log goes to /var/log.
define VANDIS_MORAINE_REMOVE_BUSYBOX_SYSLOGD_SCRIPT
	rm -f $(TARGET_DIR)/etc/init.d/S01syslogd
endef
VANDIS_MORAINE_TARGET_FINALIZE_HOOKS += VANDIS_MORAINE_REMOVE_BUSYBOX_SYSLOGD_SCRIPT

$(eval $(cmake-package))
