# Debian packages, built by CPack from the install components: helion-promote (runtime) and
# helion-promote-dev (development). scripts/package.sh drives it; the version is VERSION's plus a
# Debian revision, and packaging/changelog must open with that version.
if(NOT HELION_BUILD_TOOLS)
    message(FATAL_ERROR "HELION_PACKAGING needs HELION_BUILD_TOOLS: the packages carry the programs")
endif()
set(HELION_DEB_RELEASE 1)
set(HELION_DEB_VERSION "${PROJECT_VERSION}-${HELION_DEB_RELEASE}")
set(HELION_DEB_CONTACT "Helion Dev <dev@helion.example>")

file(STRINGS "${PROJECT_SOURCE_DIR}/packaging/changelog" changelog_top LIMIT_COUNT 1)
if(NOT changelog_top MATCHES "^helion-promote \\(${HELION_DEB_VERSION}\\) ")
    message(FATAL_ERROR "packaging/changelog opens with '${changelog_top}'; "
                        "add an entry for ${HELION_DEB_VERSION} first")
endif()

# The Debian documentation of each package: copyright and the compressed changelog.
set(changelog_gz "${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz")
add_custom_command(OUTPUT "${changelog_gz}"
    COMMAND gzip -9nc "${PROJECT_SOURCE_DIR}/packaging/changelog" > "${changelog_gz}"
    DEPENDS "${PROJECT_SOURCE_DIR}/packaging/changelog"
    VERBATIM)
set(generated "${changelog_gz}")
set(components runtime development)
set(packages helion-promote helion-promote-dev)
foreach(component package IN ZIP_LISTS components packages)
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/copyright" "${changelog_gz}"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component})
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/${package}.lintian-overrides"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" RENAME ${package}
        COMPONENT ${component})
endforeach()

# Man pages from the programs' own --help, so they cannot drift from the options.
find_program(HELION_HELP2MAN help2man REQUIRED)
set(HELION_FULL_MODULEDIR "${CMAKE_INSTALL_PREFIX}/${HELION_INSTALL_MODULEDIR}")
foreach(program helion-host helion-promote helion-portal)
    set(include "${PROJECT_BINARY_DIR}/packaging/${program}.h2m")
    set(page "${PROJECT_BINARY_DIR}/packaging/${program}.1")
    configure_file("${PROJECT_SOURCE_DIR}/packaging/man/${program}.h2m" "${include}" @ONLY)
    add_custom_command(OUTPUT "${page}.gz"
        COMMAND "${HELION_HELP2MAN}" --no-info --no-discard-stderr
                "--version-string=${PROJECT_VERSION}" "--include=${include}" "--output=${page}"
                "$<TARGET_FILE:${program}>"
        COMMAND gzip -9nf "${page}"
        DEPENDS ${program} "${include}"
        VERBATIM)
    list(APPEND generated "${page}.gz")
    install(FILES "${page}.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT runtime)
endforeach()
add_custom_target(helion_package_docs ALL DEPENDS ${generated})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME helion-promote)
set(CPACK_PACKAGE_VENDOR "The HelionPromote developers")
set(CPACK_PACKAGE_CONTACT "${HELION_DEB_CONTACT}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${HELION_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${HELION_DEB_CONTACT}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
# Library dependencies come from dpkg-shlibdeps; the logging library's own entry from the
# shlibs file generated for it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME helion-promote)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION net)
# ldconfig through the trigger; the scripts enable, restart and stop the units as Debian's
# packaged services do (deb-systemd-helper, deb-systemd-invoke).
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/packaging/triggers"
    "${PROJECT_SOURCE_DIR}/packaging/postinst"
    "${PROJECT_SOURCE_DIR}/packaging/prerm"
    "${PROJECT_SOURCE_DIR}/packaging/postrm")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "init-system-helpers (>= 1.54~)")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "portal management module of the zero-trust access client, with its host
The HelionPromote module serves one Thrift RPC service that installs signed
portal packages (RSA-2048 / SHA-256) into the client's application bundle,
moves resource files in and deletes portal directories.
.
This package holds the module, the shared logging library, the reference
host helion-host with its systemd units, the command-line client
helion-promote and the package tool helion-portal. The fingerprint of the
portal key the module trusts is installed beside the module.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME helion-promote-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "helion-promote (= ${HELION_DEB_VERSION}), libthrift-dev, libspdlog-dev, libfmt-dev, pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "host SDK for the HelionPromote portal management module
The headers of the host interfaces (module, runtime context, RPC server,
event bus, HTTP request and response, the shared logger), the Thrift IDL of
the SdpPromoteService and a CMake package: find_package(HelionPromote) gives
HelionPromote::sdk, HelionPromote::HelionLogger and the loadable module
HelionPromote::HelionPromote.")

include(CPack)
