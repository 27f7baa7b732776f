# The function that declares both shared libraries.

# A separate library before glibc 2.34.
find_package(Threads REQUIRED)

# sodrel_library( <name> SOURCES ... HEADERS ... PUBLIC <target>... )
#
# Creates the object library <name>Objects, which the tests link directly so that they can replace
# functions by name, and the shared library <name> from the same objects. HEADERS are those that
# users include, directly or indirectly; each must compile alone. <name>.map in the current folder
# defines the exported symbols and their version.
function(sodrel_library name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;HEADERS;PUBLIC")

   add_library(${name}Objects OBJECT ${arg_SOURCES})
   set_target_properties(${name}Objects PROPERTIES
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
   # No other library interposes the exported functions; see -Bsymbolic-functions below.
   target_compile_options(${name}Objects PRIVATE -fno-semantic-interposition)
   target_include_directories(${name}Objects PUBLIC "${PROJECT_SOURCE_DIR}/src")
   target_link_libraries(${name}Objects PUBLIC ${arg_PUBLIC} PRIVATE SodrelWarnings Threads::Threads)

   add_library(${name} SHARED)
   target_sources(${name} PUBLIC
      FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/src" FILES ${arg_HEADERS})
   target_compile_features(${name} PUBLIC cxx_std_20)
   target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${name}Objects)
   set_target_properties(${name} PROPERTIES
      VERSION "${PROJECT_VERSION}"
      SOVERSION "${PROJECT_VERSION_MAJOR}"
      VERIFY_INTERFACE_HEADER_SETS ON)
   set(map "${CMAKE_CURRENT_SOURCE_DIR}/${name}.map")
   set_property(TARGET ${name} PROPERTY LINK_DEPENDS "${map}")
   # Calls between exported functions are as direct as any other call.
   target_link_options(${name} PRIVATE "LINKER:--version-script=${map}" LINKER:-Bsymbolic-functions)
   # The library contains thread-exit handlers, so dlclose must not unload it.
   target_link_options(${name} PRIVATE LINKER:-z,nodelete)
   if(NOT SODREL_SANITIZE)
      target_link_options(${name} PRIVATE LINKER:-z,defs)
   endif()
endfunction()
