# SPDX-License-Identifier: Apache-2.0
SUMMARY = "Vital product data of a managed server"
DESCRIPTION = "The library of a management controller's vital-product-data service, its daemon and its command line tool"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# Where the distribution has the sources: a layer sets VPDD_SOURCE and SRCREV.
VPDD_SOURCE ?= "git://git.example.com/orva-vpdd.git;protocol=https;branch=main"
SRC_URI = "${VPDD_SOURCE}"
SRCREV ?= "${AUTOREV}"
PV = "0.1.0+git${SRCPV}"
S = "${WORKDIR}/git"

inherit meson pkgconfig systemd

# The maker's IANA enterprise number, in OEM records; 32473 is reserved for documentation.
VPDD_IANA ?= "32473"
EXTRA_OEMESON = "-Diana=${VPDD_IANA}"

PACKAGECONFIG ??= "tools"
PACKAGECONFIG[tools] = "-Dtools=true,-Dtools=false,cli11 nlohmann-json sqlite3 systemd freeipmi"
PACKAGECONFIG[tests] = "-Dtests=true,-Dtests=false,googletest"

DEPENDS += "python3-native"

# The library has no version in its name: it belongs to the run-time package.
FILES_SOLIBSDEV = ""
SOLIBS = ".so"
INSANE_SKIP:${PN} += "dev-so"

PACKAGES =+ "${PN}-tools"
FILES:${PN}-tools = " \
    ${bindir} \
    ${sbindir} \
    ${libdir}/libvpdd_*.so \
    ${libdir}/liborvadb_chghist.so \
    ${datadir}/orva_vpdd \
    ${datadir}/bash-completion \
    ${systemd_system_unitdir} \
    ${sysconfdir}/vpdd \
"
CONFFILES:${PN}-tools = "${sysconfdir}/vpdd/bmc.json"
# Loaded when a database is opened.
RDEPENDS:${PN}-tools += "libsqlite3"
SYSTEMD_PACKAGES = "${@bb.utils.contains('PACKAGECONFIG', 'tools', '${PN}-tools', '', d)}"
SYSTEMD_SERVICE:${PN}-tools = "vpdd.service"
SYSTEMD_AUTO_ENABLE:${PN}-tools = "enable"
