################################################################################
#
# tavi-image
#
################################################################################

TAVI_IMAGE_VERSION = 1.1.0
TAVI_IMAGE_SITE = $(BR2_EXTERNAL_TAVI_PATH)/../..
TAVI_IMAGE_SITE_METHOD = local
TAVI_IMAGE_LICENSE = MIT
TAVI_IMAGE_LICENSE_FILES = LICENSE
TAVI_IMAGE_INSTALL_STAGING = YES
TAVI_IMAGE_SUPPORTS_IN_SOURCE_BUILD = NO
TAVI_IMAGE_DEPENDENCIES = host-pkgconf libyuv

# libyuv's unpacked source is built again inside ours: hidden, and on ARM with NEON that is chosen at run time.
TAVI_IMAGE_CONF_OPTS = \
	-DTAVI_BUILD_TESTS=OFF \
	-DTAVI_BUILD_TOOLS=OFF \
	-DTAVI_LIBYUV=source \
	-DTAVI_LIBYUV_SOURCE_DIR=$(LIBYUV_DIR)

ifeq ($(BR2_PACKAGE_TAVI_IMAGE_FILES),y)
TAVI_IMAGE_DEPENDENCIES += jpeg-turbo libpng
TAVI_IMAGE_CONF_OPTS += -DTAVI_WITH_FILES=ON
else
TAVI_IMAGE_CONF_OPTS += -DTAVI_WITH_FILES=OFF
endif

ifeq ($(BR2_PACKAGE_TAVI_IMAGE_DRAWING),y)
TAVI_IMAGE_CONF_OPTS += -DTAVI_WITH_DRAWING=ON
else
TAVI_IMAGE_CONF_OPTS += -DTAVI_WITH_DRAWING=OFF
endif

$(eval $(cmake-package))
