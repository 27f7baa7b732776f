// Building and reading the content of scripted messages.
#include <support/ScriptedMessage.h>

#include <cerrno>
#include <utility>

namespace SodrelTest {

namespace {

Content container( char type, const char* contents, std::initializer_list< Content > inside ) {
   return join( { { Item{ type, contents } }, join( inside ), { Item{ ')', std::nullopt } } } );
}

} // namespace

Content u( std::uint32_t number ) {
   return { Item{ 'u', std::nullopt, number } };
}

Content b( bool value ) {
   return { Item{ 'b', std::nullopt, value ? 1U : 0U } };
}

Content s( std::optional< std::string > text ) {
   return { Item{ 's', std::move( text ) } };
}

Content o( std::optional< std::string > path ) {
   return { Item{ 'o', std::move( path ) } };
}

Content variant( const char* type, const Content& value ) {
   return container( 'v', type, { value } );
}

Content properties( std::initializer_list< Content > entries ) {
   return container( 'a', "{sv}", entries );
}

Content texts( std::initializer_list< Content > strings ) {
   return container( 'a', "s", strings );
}

Content property( const char* name, const Content& value ) {
   return container( 'e', "sv", { s( name ), value } );
}

Content join( std::initializer_list< Content > parts ) {
   Content all;
   for( const Content& part : parts ) {
      all.insert( all.end(), part.begin(), part.end() );
   }
   return all;
}

} // namespace SodrelTest

bool sd_bus_message::isNext( char type, const char* contents ) const {
   return next < content.size() && content[next].type == type && content[next].text == contents;
}

int sd_bus_message::read( const char* types, std::va_list arguments ) {
   std::string wanted = types;
   for( std::size_t i = 0; i < wanted.size(); ++i ) {
      if( next == content.size() ) {
         return i == 0 ? 0 : -ENXIO;
      }
      if( wanted[i] == 'v' ) {
         const char* const contents = va_arg( arguments, const char* );
         if( !isNext( 'v', contents ) ) {
            return -ENXIO;
         }
         wanted.insert( i + 1, std::string( contents ) + ')' );
      } else if( content[next].type != wanted[i] ) {
         return -ENXIO;
      } else if( wanted[i] == 'u' ) {
         *va_arg( arguments, std::uint32_t* ) = content[next].number;
      } else if( wanted[i] == 'b' ) {
         *va_arg( arguments, int* ) = static_cast< int >( content[next].number );
      } else if( wanted[i] != ')' ) {
         const auto& text = content[next].text;
         *va_arg( arguments, const char** ) = text ? text->c_str() : nullptr;
      }
      ++next;
   }
   return 1;
}

int sd_bus_message::enter( char type, const char* contents ) {
   if( next == content.size() || content[next].type == ')' ) {
      return 0;
   }
   if( !isNext( type, contents ) ) {
      return -ENXIO;
   }
   ++next;
   return 1;
}

int sd_bus_message::exit() {
   if( next == content.size() || content[next].type != ')' ) {
      return -EBUSY;
   }
   ++next;
   return 1;
}

int sd_bus_message::skip( const char* type ) {
   if( next == content.size() || content[next].type != *type ) {
      return -ENXIO;
   }
   int depth = 0;
   do {
      const char begun = content[next++].type;
      depth += begun == 'v' || begun == 'a' || begun == 'e' ? 1 : 0;
      depth -= begun == ')' ? 1 : 0;
   } while( depth > 0 );
   return 1;
}
