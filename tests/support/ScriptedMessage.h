// The content of scripted messages: typed values that are read in order, as in sd-bus.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace SodrelTest {

// One basic value, or the beginning or the end of a container.
struct Item {
   char type = 0;                     // ')' for the end of a container
   std::optional< std::string > text; // a string; a container's type of contents
   std::uint32_t number = 0;
};

using Content = std::vector< Item >;

Content u( std::uint32_t number );
Content b( bool value );
// std::nullopt stands for a null C string.
Content s( std::optional< std::string > text );
Content o( std::optional< std::string > path );
Content variant( const char* type, const Content& value );
// Containers of the types as, a{sv} and {sv}.
Content texts( std::initializer_list< Content > strings );
Content properties( std::initializer_list< Content > entries );
Content property( const char* name, const Content& value );
Content join( std::initializer_list< Content > parts );

} // namespace SodrelTest

// The definition of sd-bus's message in a scripted test. Results are those of sd-bus.
struct sd_bus_message {
   int read( const char* types, std::va_list arguments );
   int enter( char type, const char* contents );
   int exit();
   int skip( const char* type );
   [[nodiscard]] bool gone() const { return released; }

   std::string name;
   SodrelTest::Content content;
   bool owned = false; // by the library, which releases it
   bool released = false;
   std::size_t next = 0; // to be read

 private:
   [[nodiscard]] bool isNext( char type, const char* contents ) const;
};
