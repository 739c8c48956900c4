# Recipe for a layer of yours. The sources are this checkout: point EXTERNALSRC elsewhere if the recipe is copied out of
# it. libyuv is built in, with NEON chosen at run time.
SUMMARY = "Image module of an on-device computer-vision library"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=073fe46779b742bf48fed09feb521437"

DEPENDS = "libjpeg-turbo libpng"
LIBYUV_VERSION = "0.0~git20230123.b2528b0"
SRC_URI = "${DEBIAN_MIRROR}/main/liby/libyuv/libyuv_${LIBYUV_VERSION}.orig.tar.gz;name=libyuv;subdir=libyuv;striplevel=1"
SRC_URI[libyuv.sha256sum] = "cc22ebe94004ac2e5718acdc45980c6f3b83599f19f5bd768c5ca034de659eef"

inherit cmake externalsrc pkgconfig
EXTERNALSRC = "${THISDIR}/../.."

PACKAGECONFIG ??= "files drawing"
PACKAGECONFIG[files] = "-DTAVI_WITH_FILES=ON,-DTAVI_WITH_FILES=OFF"
PACKAGECONFIG[drawing] = "-DTAVI_WITH_DRAWING=ON,-DTAVI_WITH_DRAWING=OFF"
EXTRA_OECMAKE = "-DTAVI_BUILD_TESTS=OFF -DTAVI_BUILD_TOOLS=OFF -DTAVI_LIBYUV=source -DTAVI_LIBYUV_SOURCE_DIR=${WORKDIR}/libyuv"
