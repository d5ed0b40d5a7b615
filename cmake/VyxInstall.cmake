# Install rules: the shared library, its two public headers, a CMake package
# (find_package(VyxPosition)) and a pkg-config file.
include(CMakePackageConfigHelpers)

set(VYX_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VyxPosition)

install(TARGETS VyxPosition
    EXPORT VyxPositionTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VyxPosition)

install(EXPORT VyxPositionTargets
    NAMESPACE VyxPosition::
    DESTINATION ${VYX_CMAKE_INSTALL_DIR})

configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/VyxPositionConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VyxPositionConfig.cmake
    INSTALL_DESTINATION ${VYX_CMAKE_INSTALL_DIR})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/VyxPositionConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/VyxPositionConfig.cmake
    ${PROJECT_BINARY_DIR}/VyxPositionConfigVersion.cmake
    DESTINATION ${VYX_CMAKE_INSTALL_DIR})

# The .pc file locates the prefix relative to itself, so the installed tree
# can be moved.
file(RELATIVE_PATH VYX_PC_PREFIX_FROM_PCDIR
    "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(${PROJECT_SOURCE_DIR}/cmake/VyxPosition.pc.in
    ${PROJECT_BINARY_DIR}/VyxPosition.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VyxPosition.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
