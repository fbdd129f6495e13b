# What `cmake --install` puts under the prefix: the command, the three shared libraries, the C
# headers, a CMake package (find_package(planecheck CONFIG)) and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set_target_properties(planecheck_shared simplane_shared PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(planecheck_shared PROPERTIES EXPORT_NAME planecheck)
set_target_properties(simplane_shared PROPERTIES EXPORT_NAME simplane)
set_target_properties(pc_value_shared PROPERTIES EXPORT_NAME value)
set_target_properties(planecheck_cli PROPERTIES EXPORT_NAME cli)

install(TARGETS planecheck_cli planecheck_shared simplane_shared pc_value_shared EXPORT planecheckTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY src/value/include/ platform/include/ src/engine/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PC_GEN_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/planecheck)

set(PC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/planecheck)
install(EXPORT planecheckTargets NAMESPACE planecheck:: DESTINATION ${PC_CMAKE_DIR})
configure_package_config_file(cmake/planecheckConfig.cmake.in ${CMAKE_BINARY_DIR}/planecheckConfig.cmake
                              INSTALL_DESTINATION ${PC_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/planecheckConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/planecheckConfig.cmake ${CMAKE_BINARY_DIR}/planecheckConfigVersion.cmake
        DESTINATION ${PC_CMAKE_DIR})

# The .pc file finds its prefix from where it is installed, so the tree can be moved.
file(RELATIVE_PATH PC_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/planecheck.pc.in ${CMAKE_BINARY_DIR}/planecheck.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/planecheck.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
