# The installed package, in two components: "runtime" (the module, the logging library, the
# programs, the key's fingerprint, the systemd units, man pages) and "development" (the SDK
# headers, the IDL and a CMake package so that a host project can find_package(HelionPromote)).
include(CMakePackageConfigHelpers)

set(HELION_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/HelionPromote")

# Consumers see the headers as HelionPromote::sdk, the name the build tree's alias uses too.
set_target_properties(helion_sdk PROPERTIES EXPORT_NAME sdk)
# The module's search path is set with its linkage; the library itself needs none.
set_target_properties(HelionLogger PROPERTIES INSTALL_RPATH "")

install(TARGETS HelionLogger
    EXPORT HelionPromoteTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS HelionPromote
    EXPORT HelionPromoteTargets
    LIBRARY DESTINATION ${HELION_INSTALL_MODULEDIR} COMPONENT runtime)
# So that an operator can check which key the installed module trusts.
install(FILES "${PROJECT_BINARY_DIR}/HelionPromote.fingerprint"
    DESTINATION ${HELION_INSTALL_MODULEDIR} COMPONENT runtime)

# An interface library: nothing of its own to install, so no component either.
install(TARGETS helion_sdk
    EXPORT HelionPromoteTargets
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/sdk/include/corvid"
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES "${PROJECT_SOURCE_DIR}/rpc/SdpPromote.thrift"
    DESTINATION ${CMAKE_INSTALL_DATADIR}/HelionPromote COMPONENT development)

install(EXPORT HelionPromoteTargets
    NAMESPACE HelionPromote::
    DESTINATION ${HELION_CMAKE_DIR} COMPONENT development)
configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/HelionPromoteConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/HelionPromoteConfig.cmake"
    INSTALL_DESTINATION ${HELION_CMAKE_DIR})
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/HelionPromoteConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/HelionPromoteConfig.cmake"
    "${PROJECT_BINARY_DIR}/HelionPromoteConfigVersion.cmake"
    DESTINATION ${HELION_CMAKE_DIR} COMPONENT development)
