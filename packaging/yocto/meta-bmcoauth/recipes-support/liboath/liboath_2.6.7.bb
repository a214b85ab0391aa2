# SPDX-License-Identifier: Apache-2.0
SUMMARY = "One-time passwords (RFC 4226, RFC 6238)"
HOMEPAGE = "https://www.nongnu.org/oath-toolkit/"
# Of the OATH Toolkit, the library alone: its tools have another license.
LICENSE = "LGPL-2.1-or-later"
LIC_FILES_CHKSUM = "file://COPYING;md5=4fbd65380cdd255951079008b364516c"

SRC_URI = "${SAVANNAH_NONGNU_MIRROR}/oath-toolkit/oath-toolkit-${PV}.tar.gz"
SRC_URI[sha256sum] = "36eddfce8f2f36347fb257dbf878ba0303a2eaafe24eaa071d5cd302261046a9"
# Newer series unpack into UNPACKDIR, which scarthgap need not have.
S = "${@d.getVar('UNPACKDIR') or d.getVar('WORKDIR')}/oath-toolkit-${PV}/liboath"

inherit autotools gtk-doc pkgconfig
