# The functions that declare tests: one call per test executable or per source that must not
# compile.

# sodrel_test( NAME <name> LEVEL <level> SOURCES ... [LIBRARIES ...] [TIMEOUT <seconds>] )
#
# Builds the executable <name> and registers each of its cases as <name>.<Fixture>.<case> under the
# label <level>:
#    platform   links the platform's objects
#    compile    links the platform's objects; the point is that it compiles
#    scripted   links both libraries' objects, so that a definition of sd_bus_* or of
#               steady_clock::now() in the test replaces the real one by name
#    abi, bus   links the shared libraries
#    systemd    links the shared libraries; each case runs in its own systemd
# With SODREL_MEMCHECK all tests run under valgrind, and an executable is a single test unless each
# case needs its own systemd, because starting valgrind takes longer than most cases.
function(sodrel_test)
   cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME;LEVEL;TIMEOUT" "SOURCES;LIBRARIES")
   if(NOT arg_TIMEOUT)
      set(arg_TIMEOUT 60)
   endif()

   if(arg_LEVEL MATCHES "^(platform|compile)$")
      set(subject SodrelPlatformObjects)
   elseif(arg_LEVEL STREQUAL "scripted")
      set(subject SodrelObjects SodrelPlatformObjects)
   elseif(arg_LEVEL MATCHES "^(abi|bus|systemd)$")
      set(subject Sodrel::Sodrel)
   else()
      message(FATAL_ERROR "${arg_NAME}: unknown level '${arg_LEVEL}'")
   endif()

   add_executable(${arg_NAME} ${arg_SOURCES})
   target_include_directories(${arg_NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
   target_link_libraries(${arg_NAME} PRIVATE
      ${arg_LIBRARIES} ${subject} SodrelWarnings GTest::gmock GTest::gtest_main)
   if(SODREL_COVERAGE)
      target_sources(${arg_NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/CoverageDump.cpp")
   endif()
   set(emulator)
   if(arg_LEVEL STREQUAL "systemd")
      list(APPEND emulator
         "${PROJECT_SOURCE_DIR}/tests/systemd/in-box" "${PROJECT_BINARY_DIR}/tools/systemd-box")
      add_dependencies(${arg_NAME} systemd-box)
   endif()
   if(SODREL_MEMCHECK)
      list(APPEND emulator "${PROJECT_SOURCE_DIR}/tests/memcheck")
   endif()
   if(emulator)
      set_target_properties(${arg_NAME} PROPERTIES CROSSCOMPILING_EMULATOR "${emulator}")
   endif()
   if(SODREL_MEMCHECK AND NOT arg_LEVEL STREQUAL "systemd")
      add_test(NAME ${arg_NAME} COMMAND ${emulator} "$<TARGET_FILE:${arg_NAME}>")
      set_tests_properties(${arg_NAME} PROPERTIES LABELS ${arg_LEVEL} TIMEOUT 1800)
      return()
   endif()
   gtest_discover_tests(${arg_NAME}
      TEST_PREFIX "${arg_NAME}."
      DISCOVERY_MODE PRE_TEST
      PROPERTIES LABELS ${arg_LEVEL} TIMEOUT ${arg_TIMEOUT})
endfunction()

# sodrel_wrap( <test> <NAME>... )
#
# Lets the linker lead the test's calls of each function to a "__wrap_" one of the test. The variable
# NAME holds the function's name as the linker knows it; the test gets it as a macro, a literal.
function(sodrel_wrap test)
   foreach(name IN LISTS ARGN)
      target_compile_definitions(${test} PRIVATE "${name}=\"${${name}}\"")
      target_link_options(${test} PRIVATE "LINKER:--wrap=${${name}}")
   endforeach()
endfunction()

# Names that several levels wrap.
set(MANGLED_SIZE_T m)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
   set(MANGLED_SIZE_T j)
endif()
set(SLAB_ALLOC _ZN6Tessel9slabAllocE${MANGLED_SIZE_T})
set(SLAB_FREE _ZN6Tessel8slabFreeEPvRKSt9type_info)

# sodrel_compile_fails( <subject> <case> <regex> [<case> <regex>]... )
#
# Registers a test that passes if <subject>.cpp compiles unchanged, and for each case a test that
# passes if the source, with the case defined as a macro, fails to compile with a message that
# matches the regex. The regex has to work for every compiler in use. No case is run if the source
# itself fails.
function(sodrel_compile_fails subject)
   set(check
      "${CMAKE_COMMAND}"
      "-DCOMPILER=${CMAKE_CXX_COMPILER}"
      "-DINCLUDES=${PROJECT_SOURCE_DIR}/src"
      "-DSOURCE=${CMAKE_CURRENT_SOURCE_DIR}/${subject}.cpp")
   set(script -P "${PROJECT_SOURCE_DIR}/cmake/CompileFails.cmake")
   add_test(NAME compile.${subject} COMMAND ${check} ${script})
   set_tests_properties(compile.${subject} PROPERTIES
      LABELS compile TIMEOUT 180 FIXTURES_SETUP ${subject}Compiles)
   while(ARGN)
      list(POP_FRONT ARGN case expect)
      add_test(NAME compile.${subject}.${case}
         COMMAND ${check} "-DCASE=${case}" "-DEXPECT=${expect}" ${script})
      set_tests_properties(compile.${subject}.${case} PROPERTIES
         LABELS compile TIMEOUT 180 FIXTURES_REQUIRED ${subject}Compiles)
   endwhile()
endfunction()
