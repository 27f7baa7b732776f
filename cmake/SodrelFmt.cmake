# The target SodrelFmt: {fmt}, header-only, so that neither library needs or clashes with a libfmt.

set(unpackedFmt "${PROJECT_SOURCE_DIR}/.deps/fmt/usr/include")
if(EXISTS "${unpackedFmt}/fmt/core.h")
   set(defaultFmt "${unpackedFmt}")
else()
   find_path(SODREL_SYSTEM_FMT_INCLUDE_DIR fmt/core.h)
   mark_as_advanced(SODREL_SYSTEM_FMT_INCLUDE_DIR)
   set(defaultFmt "${SODREL_SYSTEM_FMT_INCLUDE_DIR}")
endif()
set(SODREL_FMT_INCLUDE_DIR "${defaultFmt}" CACHE PATH "Folder that holds fmt/core.h, version 9 to 11")

# Versions before 11 keep their number in core.h, later ones in base.h.
set(fmtVersion 0)
foreach(header IN ITEMS base.h core.h)
   set(header "${SODREL_FMT_INCLUDE_DIR}/fmt/${header}")
   if(EXISTS "${header}")
      file(STRINGS "${header}" versionLine REGEX "^#[ ]*define FMT_VERSION [0-9]+")
      if(versionLine MATCHES "([0-9]+)[0-9][0-9][0-9][0-9]$")
         set(fmtVersion "${CMAKE_MATCH_1}")
         break()
      endif()
   endif()
endforeach()
if(fmtVersion LESS 9 OR fmtVersion GREATER 11)
   message(FATAL_ERROR "No {fmt} of version 9, 10 or 11 in '${SODREL_FMT_INCLUDE_DIR}'. "
      "Run scripts/setup, or set SODREL_FMT_INCLUDE_DIR to the folder that holds fmt/core.h.")
endif()
message(STATUS "Using {fmt} ${fmtVersion} of ${SODREL_FMT_INCLUDE_DIR}")

add_library(SodrelFmt INTERFACE)
target_include_directories(SodrelFmt SYSTEM INTERFACE "$<BUILD_INTERFACE:${SODREL_FMT_INCLUDE_DIR}>")
target_compile_definitions(SodrelFmt INTERFACE FMT_HEADER_ONLY)
