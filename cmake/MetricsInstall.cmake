# The library, its public headers (all that lie at the top of metrics/), and what lets CMake and pkg-config find it.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Metrics)

install(TARGETS metrics EXPORT MetricsTargets)
install(EXPORT MetricsTargets NAMESPACE Metrics:: DESTINATION ${package_dir})
file(GLOB public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/metrics/*.h)
install(FILES ${public_headers} ${PROJECT_BINARY_DIR}/include/metrics/Export.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/metrics)

configure_package_config_file(cmake/MetricsConfig.cmake.in ${PROJECT_BINARY_DIR}/MetricsConfig.cmake
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MetricsConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MetricsConfig.cmake ${PROJECT_BINARY_DIR}/MetricsConfigVersion.cmake
    DESTINATION ${package_dir})

file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)  # so that an installed copy can be moved
configure_file(cmake/metrics.pc.in ${PROJECT_BINARY_DIR}/metrics.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/metrics.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
