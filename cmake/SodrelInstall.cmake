# The install rules: the libraries with their headers, the CMake package, the pkg-config file and
# the tools with their man pages.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The include directory for both <Sodrel/...> and <platform/...>.
set(includeRoot "${CMAKE_INSTALL_INCLUDEDIR}/sodrel")
set(packageFolder "${CMAKE_INSTALL_LIBDIR}/cmake/Sodrel")

set_target_properties(SodrelPlatform PROPERTIES EXPORT_NAME Platform)
# Outside the linker's default paths, the library finds the other one next to itself.
set_target_properties(Sodrel PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS SodrelPlatform Sodrel
   EXPORT Sodrel
   FILE_SET HEADERS DESTINATION "${includeRoot}")

install(EXPORT Sodrel NAMESPACE Sodrel:: FILE SodrelTargets.cmake DESTINATION "${packageFolder}")
write_basic_package_version_file(SodrelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
# The path from the pkg-config file to the prefix, so that the prefix can be chosen at install time.
file(RELATIVE_PATH toPrefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file("${CMAKE_CURRENT_LIST_DIR}/sodrel.pc.in" sodrel.pc @ONLY)
install(FILES
   "${CMAKE_CURRENT_LIST_DIR}/SodrelConfig.cmake"
   "${CMAKE_CURRENT_BINARY_DIR}/SodrelConfigVersion.cmake"
   DESTINATION "${packageFolder}")
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/sodrel.pc"
   DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS fennet-read)
install(TARGETS systemd-box RUNTIME DESTINATION "${CMAKE_INSTALL_SBINDIR}")
install(FILES tools/fennet-read.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES tools/systemd-box.8 DESTINATION "${CMAKE_INSTALL_MANDIR}/man8")

# Builds everything that is installed.
add_custom_target(installed DEPENDS SodrelPlatform Sodrel fennet-read systemd-box)
