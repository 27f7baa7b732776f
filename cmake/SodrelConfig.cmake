# The CMake package of the libraries: the targets Sodrel::Sodrel and Sodrel::Platform and, with the
# component Trace, Sodrel::Trace, which adds {fmt} to the platform layer.
include(CMakeFindDependencyMacro)

# Only <platform/trace/StringFormatter.h> includes {fmt}, so other programs do not need it.
if("Trace" IN_LIST ${CMAKE_FIND_PACKAGE_NAME}_FIND_COMPONENTS)
   find_dependency(fmt 9)
endif()

# <Sodrel/SignalMonitor.h> includes <systemd/sd-bus.h>.
find_dependency(PkgConfig)
pkg_check_modules(SYSTEMD QUIET IMPORTED_TARGET libsystemd)
if(NOT SYSTEMD_FOUND)
   set(${CMAKE_FIND_PACKAGE_NAME}_FOUND FALSE)
   set(${CMAKE_FIND_PACKAGE_NAME}_NOT_FOUND_MESSAGE "pkg-config cannot find libsystemd")
   return()
endif()

include("${CMAKE_CURRENT_LIST_DIR}/SodrelTargets.cmake")
if(TARGET fmt::fmt-header-only AND NOT TARGET Sodrel::Trace)
   add_library(Sodrel::Trace INTERFACE IMPORTED)
   target_link_libraries(Sodrel::Trace INTERFACE Sodrel::Platform fmt::fmt-header-only)
   set(${CMAKE_FIND_PACKAGE_NAME}_Trace_FOUND TRUE)
endif()
