# `cpack -G DEB`: one package per component of ZamcInstall.cmake. The preset "package" configures what it takes: the
# prefix /usr, which Debian's own directories hang on. What Debian wants beyond an installation comes from cmake/deb.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zamc)
set(CPACK_PACKAGE_VENDOR "the zamc authors")
# Each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "the zamc authors <zamc@zamc.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL libzamc0 libzamc-dev)
if(ZAMC_BUILD_SERVER)
    list(APPEND CPACK_COMPONENTS_ALL zamd zamctl)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where the programs' own library is looked for; their dependency on its package is stated below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/deb/finish.cmake)
set(ZAMC_DEB_SOURCE ${PROJECT_SOURCE_DIR}/cmake/deb)
set(CPACK_ZAMC_DEB_SOURCE ${ZAMC_DEB_SOURCE})
set(CPACK_ZAMC_MANDIR ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR})
set(CPACK_ZAMC_DOCDIR ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/doc)

# zamc_package(COMPONENT SECTION DEPENDS SUMMARY TEXT)
macro(zamc_package component section depends summary text)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${component})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
endmacro()

set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
zamc_package(libzamc0 libs ""
    "client library of a YANG-modelled configuration system"
    "An application that links this library takes part in a configuration system
modelled in YANG: it is asked to agree to every change of the parts that it
implements, reports their state, carries out operations, and reads and changes
data itself. The zamd package has the server.")
zamc_package(libzamc-dev libdevel "libzamc0 (= ${version}), libyang2-dev (>= ${ZAMC_LIBYANG_MINIMUM})"
    "client library of a YANG-modelled configuration system (development)"
    "This package has what it takes to build an application with libzamc: the
headers, files for pkg-config and CMake, the YANG modules of the protocol,
a manual page and example programs.")
zamc_package(zamd net "libzamc0 (= ${version}), systemd | systemd-standalone-sysusers | systemd-sysusers"
    "datastore server of a YANG-modelled configuration system"
    "zamd keeps a device's configuration, checks every change of it against YANG
models, and has the applications that implement it agree before the change
takes effect.")
zamc_package(zamctl net "libzamc0 (= ${version})"
    "command line of a YANG-modelled configuration system"
    "With zamctl an operator reads and changes the data that the server zamd holds,
calls operations, and watches changes as they happen.")

# Who links the library needs this version or a newer one. Debian has ldconfig run by a trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBZAMC0_PACKAGE_CONTROL_EXTRA ${ZAMC_DEB_SOURCE}/libzamc0/triggers)
set(CPACK_DEBIAN_LIBZAMC-DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_ZAMD_PACKAGE_SUGGESTS zamctl)
set(CPACK_DEBIAN_ZAMD_PACKAGE_CONTROL_EXTRA
    "${ZAMC_DEB_SOURCE}/zamd/postinst;${ZAMC_DEB_SOURCE}/zamd/prerm;${ZAMC_DEB_SOURCE}/zamd/postrm")
include(CPack)
