SUMMARY = "Base library for applications of small Linux devices"
DESCRIPTION = "JSON calls over packet connections, logs that rotate, sessions, configuration readers, \
overlays in bitmap fonts, TLV messages"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=64e0a86598bb02584804650122302510"

DEPENDS = "cjson libmd"

inherit cmake pkgconfig externalsrc
EXTERNALSRC = "${HYBASE_SOURCES}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"
# No links into the build among the sources.
EXTERNALSRC_SYMLINKS = ""

EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DHYBASE_EXAMPLES=OFF"

# The builder of font files is for the machine that makes them; with it FreeType comes along.
PACKAGECONFIG ??= ""
PACKAGECONFIG:class-native ??= "hyfont"
PACKAGECONFIG[hyfont] = "-DHYBASE_HYFONT=ON,-DHYBASE_HYFONT=OFF,freetype"

PACKAGES =+ "${PN}-tools"
SUMMARY:${PN}-tools = "hyrpc, hyplatform-check, the Wireshark dissector"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion ${datadir}/hybase"

BBCLASSEXTEND = "native nativesdk"
