# The one way in which both shared libraries are made.

# A library of its own in C libraries before 2.34.
find_package(Threads REQUIRED)

# sodrel_library( <name> SOURCES ... HEADERS ... PUBLIC <target>... )
#
# Makes the object library <name>Objects, which the tests link directly so that they can replace
# functions by name, and the shared library <name> of the same objects. HEADERS are those that users
# include, by themselves or through another; each must compile alone. <name>.map in the current
# folder says which symbols the library exports, and their version.
function(sodrel_library name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;HEADERS;PUBLIC")

   add_library(${name}Objects OBJECT ${arg_SOURCES})
   set_target_properties(${name}Objects PROPERTIES
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
   # No other library replaces what these export; see -Bsymbolic-functions below.
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
   # A call of one exported function by another is as direct as any other.
   target_link_options(${name} PRIVATE "LINKER:--version-script=${map}" LINKER:-Bsymbolic-functions)
   # What runs when a thread ends stays where it is after a dlclose.
   target_link_options(${name} PRIVATE LINKER:-z,nodelete)
   if(NOT SODREL_SANITIZE)
      target_link_options(${name} PRIVATE LINKER:-z,defs)
   endif()
endfunction()
