# Yocto recipe; its dependencies are in meta-oe. Copy it into your layer.
SUMMARY = "I2C, SPI and serial ports from C++ on Linux"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=c0c1c08c5c967381936ca12f899b6bb8"

# Your copy of the repository, and the commit to build.
SERIALCOMM_GIT ?= "git://git.example.com/serialComm.git;protocol=https;branch=main"
SRC_URI = "${SERIALCOMM_GIT};destsuffix=${BP}"
SRCREV = "${AUTOREV}"

DEPENDS = "log4cplus"

inherit cmake

PACKAGECONFIG ??= "tool"
PACKAGECONFIG[tool] = "-DSERIALCOMM_TOOL=ON,-DSERIALCOMM_TOOL=OFF,cli11 nlohmann-json"
PACKAGECONFIG[watch] = "-DSERIALCOMM_WATCH=ON,-DSERIALCOMM_WATCH=OFF,libtraceevent libtracefs"
EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DCMAKE_SKIP_INSTALL_RPATH=ON"

# The library's file name has no version: it is needed at run time and is not a development link.
SOLIBS = ".so"
FILES_SOLIBSDEV = ""

PACKAGES =+ "${PN}-tool"
FILES:${PN}-tool = "${bindir}/serialcomm ${libdir}/serialcomm ${datadir}/bash-completion"
RDEPENDS:${PN}-tool = "${PN}"
# The CMake package names the library of serialComm::testing.
RDEPENDS:${PN}-dev += "${PN}-staticdev"
