################################################################################
#
# hybase
#
################################################################################

# This tree is part of hybase's own sources and builds them.
HYBASE_VERSION = 1.0.0
HYBASE_SITE = $(BR2_EXTERNAL_HYBASE_PATH)/../..
HYBASE_SITE_METHOD = local
# The builds of ./dev, gigabytes.
HYBASE_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
HYBASE_SUPPORTS_IN_SOURCE_BUILD = NO
HYBASE_LICENSE = MIT
HYBASE_LICENSE_FILES = LICENSE
HYBASE_INSTALL_STAGING = YES
HYBASE_DEPENDENCIES = host-pkgconf cjson libmd
HYBASE_CONF_OPTS = -DBUILD_TESTING=OFF -DHYBASE_EXAMPLES=OFF -DHYBASE_HYFONT=OFF

ifeq ($(BR2_PACKAGE_HYBASE_TOOLS),y)
HYBASE_CONF_OPTS += -DHYBASE_TOOLS=ON
else
HYBASE_CONF_OPTS += -DHYBASE_TOOLS=OFF
endif

$(eval $(cmake-package))
