// Reading the virtual tables of a loaded library through its dynamic symbols.
#include <abi/Vtables.h>

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <link.h>
#include <memory>
#include <string_view>

namespace {

struct Table {
   const void* const* start = nullptr;
   std::size_t size = 0; // in pointers
};

Table findTable( const std::string& symbol ) {
   // From each library itself, because a program may have a table of its own for an inline class.
   for( const char* name : { "libSodrel.so.1", "libSodrelPlatform.so.1" } ) {
      const std::unique_ptr< void, int ( * )( void* ) > library(
         dlopen( name, RTLD_LAZY | RTLD_NOLOAD ), &dlclose );
      const void* const address = library ? dlsym( library.get(), symbol.c_str() ) : nullptr;
      Dl_info info;
      void* entry = nullptr;
      if( address && dladdr1( address, &info, &entry, RTLD_DL_SYMENT ) != 0 && entry ) {
         return {
            static_cast< const void* const* >( address ),
            static_cast< const ElfW( Sym )* >( entry )->st_size / sizeof( void* ),
         };
      }
   }
   return {};
}

std::string describe( const void* function ) {
   Dl_info info;
   if( dladdr( function, &info ) == 0 || !info.dli_sname ) {
      return "inline";
   }
   const std::string_view symbol( info.dli_sname );
   if( symbol == "__cxa_pure_virtual" ) {
      return "pure";
   }
   if( symbol.ends_with( "D0Ev" ) ) {
      return "deleting destructor";
   }
   if( symbol.ends_with( "D1Ev" ) || symbol.ends_with( "D2Ev" ) ) {
      return "destructor";
   }
   const std::unique_ptr< char, decltype( &std::free ) > readable(
      abi::__cxa_demangle( info.dli_sname, nullptr, nullptr, nullptr ), &std::free );
   return readable ? readable.get() : info.dli_sname;
}

} // namespace

std::vector< std::string > virtualSlots( const char* mangledClass ) {
   // In front of the slots stand the offset to the whole object and the type's identity.
   constexpr std::size_t head = 2;
   const Table table = findTable( std::string( "_ZTV" ) + mangledClass );
   std::vector< std::string > slots;
   for( std::size_t i = head; i < table.size; ++i ) {
      slots.push_back( describe( table.start[i] ) );
   }
   return slots;
}
