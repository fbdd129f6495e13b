# What `cmake --install` puts under the prefix: the command, the three shared libraries, the C
# headers, a CMake package (find_package(planecheck CONFIG)) and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# With PC_PLATFORM naming another platform library, simplane is not installed: the engine library
# carries the support library and needs that platform library at run time.
set(PC_INSTALLED_LIBRARIES planecheck_shared pc_value_shared)
if(TARGET planecheck_runner_shared)
  list(APPEND PC_INSTALLED_LIBRARIES planecheck_runner_shared)
  set_target_properties(planecheck_runner_shared PROPERTIES EXPORT_NAME runner)
endif()
if(TARGET simplane_shared)
  list(APPEND PC_INSTALLED_LIBRARIES simplane_shared)
  set_target_properties(simplane_shared PROPERTIES EXPORT_NAME simplane INSTALL_RPATH "$ORIGIN")
endif()
set_target_properties(planecheck_shared PROPERTIES EXPORT_NAME planecheck INSTALL_RPATH "$ORIGIN")
set_target_properties(pc_value_shared PROPERTIES EXPORT_NAME value)
set_target_properties(planecheck_cli PROPERTIES EXPORT_NAME cli)

install(TARGETS planecheck_cli ${PC_INSTALLED_LIBRARIES} EXPORT planecheckTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY src/value/include/ platform/include/ src/engine/include/ run/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PC_GEN_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/planecheck)
install(FILES ${PC_GEN_SCHEMA} DESTINATION ${CMAKE_INSTALL_DATADIR}/planecheck)

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

# A man page made from the command's own help, and bash completion.
find_program(PC_HELP2MAN help2man)
if(PC_HELP2MAN)
  set(PC_MAN_PAGE ${CMAKE_BINARY_DIR}/planecheck.1)
  add_custom_command(
    OUTPUT ${PC_MAN_PAGE}
    COMMAND ${PC_HELP2MAN} --no-info --section 1 --name "run data-plane interface scenarios and check what comes back"
            --include ${CMAKE_SOURCE_DIR}/packaging/planecheck.h2m --output ${PC_MAN_PAGE}
            "sh ${CMAKE_SOURCE_DIR}/packaging/help_for_man.sh $<TARGET_FILE:planecheck_cli>"
    DEPENDS planecheck_cli ${CMAKE_SOURCE_DIR}/packaging/help_for_man.sh ${CMAKE_SOURCE_DIR}/packaging/planecheck.h2m
    COMMENT "Writing the man page from planecheck --help"
    VERBATIM)
  add_custom_target(pc_man_page ALL DEPENDS ${PC_MAN_PAGE})
  install(FILES ${PC_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
  message(STATUS "help2man not found: no man page (make deps installs it)")
endif()
install(FILES packaging/planecheck.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME planecheck)

# Bazel rules (planecheck_test), and local stand-ins for the repositories that Bazel's own tools
# name, with a .bazelrc fragment that points Bazel at them. The fragment holds absolute paths, so it
# is written at install time, for the prefix installed to (also `cmake --install --prefix`).
set(PC_BAZEL_INSTALL_DIR ${CMAKE_INSTALL_DATADIR}/planecheck/bazel)
install(DIRECTORY packaging/bazel/ DESTINATION ${PC_BAZEL_INSTALL_DIR} USE_SOURCE_PERMISSIONS
        PATTERN offline.bazelrc.in EXCLUDE)
install(CODE "
  set(PC_BAZEL_DIR \"\${CMAKE_INSTALL_PREFIX}/${PC_BAZEL_INSTALL_DIR}\")
  message(STATUS \"Installing: \$ENV{DESTDIR}\${PC_BAZEL_DIR}/offline.bazelrc\")
  configure_file(\"${CMAKE_SOURCE_DIR}/packaging/bazel/offline.bazelrc.in\" \"\$ENV{DESTDIR}\${PC_BAZEL_DIR}/offline.bazelrc\" @ONLY)")

# The user's manual beside the command: the README, the catalogue (objects, value types and the
# format's README: what a record may carry) and the example scenarios.
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES catalogue/README.md catalogue/objects.yaml catalogue/value_types.yaml catalogue/vocabulary.yaml DESTINATION ${CMAKE_INSTALL_DOCDIR}/catalogue)
# (not the output links that a `bazel test` in examples/bazel leaves)
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples PATTERN "bazel-*" EXCLUDE)

# `make deb`: a Debian package of all the above, installed under /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME planecheck)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "drives a data-plane object interface from YAML scenario files")
set(CPACK_PACKAGE_DESCRIPTION "planecheck runs scenario files against a data-plane object interface and checks what \
comes back. The package holds the command, the engine, the reference data plane simplane, the JSON value model, \
the C headers, a CMake package, a pkg-config file, a man page, bash completion, the JSON Schema of scenario files, Bazel rules (planecheck_test), \
the Python package planecheck with its pytest plugin, and under /usr/share/doc/planecheck the README, the object \
catalogue with its README, and example scenarios.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "planecheck developers <planecheck@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "python3, python3-pytest, python3-pytest-xdist")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
