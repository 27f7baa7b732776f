# The flags that everything is compiled and linked with: warnings, paths, hardening, sanitizers.
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

add_library(SodrelWarnings INTERFACE)
target_compile_options(SodrelWarnings INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${SODREL_WERROR}>:-Werror>)

# g++ 7 changed how armhf passes some arguments, and g++ notes each place.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
   target_compile_options(SodrelWarnings INTERFACE -Wno-psabi)
endif()

# Sizes of files and times have 64 bits on 32-bit machines, too.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)

# A trace file's writer and its readers share 64-bit atomics, which no lock of one process protects.
check_cxx_source_compiles("
   #if __GCC_ATOMIC_LLONG_LOCK_FREE != 2
   #error
   #endif
   int main() {}" SODREL_HAS_LOCK_FREE_ATOMICS)
if(NOT SODREL_HAS_LOCK_FREE_ATOMICS)
   message(FATAL_ERROR "Sodrel needs lock-free 64-bit atomics, which the target machine lacks")
endif()

# Source paths in assertions and traces start at src/, wherever the tree is.
add_compile_options("-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")

# Programs are position-independent, like the libraries.
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(SODREL_SANITIZE)
   # The sanitizers replace what hardening checks.
   add_compile_options("-fsanitize=${SODREL_SANITIZE}" -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
   add_link_options("-fsanitize=${SODREL_SANITIZE}")
else()
   # "scripts/check hardening" checks the results.
   add_compile_options(-fstack-protector-strong -fstack-clash-protection)
   if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i.86)$")
      add_compile_options(-fcf-protection)
   endif()
   # _FORTIFY_SOURCE requires optimisation.
   if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
      add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
   endif()
   add_link_options(LINKER:-z,relro LINKER:-z,now)
   # All symbols are bound at startup, so stubs for lazy binding are useless.
   add_compile_options(-fno-plt)
endif()

if(SODREL_COVERAGE)
   add_compile_options(--coverage -fprofile-update=atomic)
   add_link_options(--coverage)
endif()
