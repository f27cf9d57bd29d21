# The installed package: the module, the host SDK headers and logging library, and a CMake
# package so that a host project can find_package(HelionPromote).
include(CMakePackageConfigHelpers)

set(HELION_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/HelionPromote")

# Consumers see the headers as HelionPromote::sdk, the name the build tree's alias uses too.
set_target_properties(helion_sdk PROPERTIES EXPORT_NAME sdk)

install(TARGETS helion_sdk HelionLogger HelionPromote
    EXPORT HelionPromoteTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/sdk/include/corvid" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES "${PROJECT_SOURCE_DIR}/rpc/SdpPromote.thrift"
    DESTINATION ${CMAKE_INSTALL_DATADIR}/HelionPromote)

install(EXPORT HelionPromoteTargets
    NAMESPACE HelionPromote::
    DESTINATION ${HELION_CMAKE_DIR})
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
    DESTINATION ${HELION_CMAKE_DIR})
