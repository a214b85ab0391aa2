# SPDX-License-Identifier: Apache-2.0
SUMMARY = "OAuth 2.0 building blocks for server management controllers"
DESCRIPTION = "A library for the services of a management controller and their \
clients: registration, access tokens, delegated tokens, privileges, keys and \
certificate chains; and a command-line tool."
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# The layer lies in the tree that it builds. To build another one, set
# EXTERNALSRC:pn-bmcoauth; to fetch instead, set it to "" and add the sources to
# SRC_URI in a bbappend.
inherit externalsrc
EXTERNALSRC ?= "${@os.path.abspath(d.expand('${THISDIR}/../../../../..'))}"
SRC_URI = "file://run-ptest"

# Errors go to the system's journal.
inherit features_check
REQUIRED_DISTRO_FEATURES = "systemd"

DEPENDS = "jsoncpp liboath openssl systemd"
# The library loads it at run time, with the first error that it logs, so the build does not see it.
RDEPENDS:${PN} += "libsystemd"

inherit meson pkgconfig ptest

PACKAGECONFIG ??= "tools ${@bb.utils.contains('PTEST_ENABLED', '1', 'ptest', '', d)}"
# The journal through phosphor-logging, with the transaction ids of sdbusplus,
# instead of libsystemd alone.
PACKAGECONFIG[phosphor-logging] = "-Djournal=phosphor-logging,-Djournal=libsystemd,phosphor-logging sdbusplus"
# The device's own string library, of a recipe that the image adds to DEPENDS,
# instead of the one that comes with the sources.
PACKAGECONFIG[system-strutil] = "-Dcompanion=system,-Dcompanion=bundled"
PACKAGECONFIG[tools] = "-Dtools=enabled,-Dtools=disabled,cli11"
PACKAGECONFIG[ptest] = "-Dtests=enabled -Dinstalled_tests=enabled,-Dtests=disabled -Dinstalled_tests=disabled,gtest"

EXTRA_OEMESON = "-Dexamples=disabled -Dman=disabled -Doptimization=s"
# The option has the library optimised as a whole; these flags, which come behind it, must not
# take that back.
FULL_OPTIMIZATION = "-Os -pipe ${DEBUG_FLAGS}"

PACKAGE_BEFORE_PN = "${PN}-tools libstrutil"
SUMMARY:${PN}-tools = "${SUMMARY}: the command"
FILES:${PN}-tools = "${bindir}/bmcoauth ${bindir}/bmcoauth-sandbox ${datadir}/bash-completion ${datadir}/fish ${datadir}/zsh"
RRECOMMENDS:${PN}-tools = "util-linux-mount util-linux-unshare"
SUMMARY:libstrutil = "String library of the controller, as bmcoauth needs it"
FILES:libstrutil = "${libdir}/libstrutil${SOLIBS}"
# The double for tests, which never reaches an image by itself.
FILES:${PN}-dev += "${libdir}/bmcoauth"
FILES:${PN}-ptest += "${libexecdir}/bmcoauth/tests"
