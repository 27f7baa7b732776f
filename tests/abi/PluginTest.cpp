// What remains of a shared object after dlclose: of a plugin with its own entities, and of the
// library.
#include <platform/memory/AllocTrack.h>
#include <platform/types/TypeData.h>

#include <bit>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

namespace SodrelTest {
namespace {

bool isMapped( const char* library ) {
   void* const again = dlopen( library, RTLD_NOW | RTLD_NOLOAD );
   if( again ) {
      dlclose( again );
   }
   return again;
}

bool lampsAreKnown() {
   return Tessel::findType( "House::Lamp" ) != Tessel::nodeType;
}

// An example program with an entity class, loaded as a plugin.
void useAndClose( const char* path ) {
   void* const plugin = dlopen( path, RTLD_NOW | RTLD_LOCAL );
   ASSERT_TRUE( plugin ) << dlerror();
   EXPECT_TRUE( lampsAreKnown() );
   const auto use = std::bit_cast< int ( * )() >( dlsym( plugin, "main" ) );
   ASSERT_TRUE( use ) << dlerror();
   EXPECT_EQ( use(), 0 );
   EXPECT_EQ( dlclose( plugin ), 0 );
}

TEST( APluginWithEntities, isUnloadedAndItsTypesAreForgotten ) {
   for( int i = 0; i < 2; ++i ) {
      useAndClose( UNLOADABLE_PLUGIN );
      EXPECT_FALSE( isMapped( UNLOADABLE_PLUGIN ) );
      EXPECT_FALSE( lampsAreKnown() );
   }
   // The counts outlive the plugin.
   const auto counts = Orl::allocCounts( "House::Lamp" );
   ASSERT_TRUE( counts );
   EXPECT_EQ( counts->live, 0U );
   EXPECT_GE( counts->total, 2U );
}

#ifdef PINNED_PLUGIN
TEST( APluginWithEntities, staysMappedIfSymbolsAreUnique ) {
   useAndClose( PINNED_PLUGIN );
   EXPECT_TRUE( isMapped( PINNED_PLUGIN ) );
   EXPECT_TRUE( lampsAreKnown() );
}
#endif

TEST( TheLibrary, staysMappedWhenItIsClosed ) {
   for( const char* const name : { "libSodrel.so.1", "libSodrelPlatform.so.1" } ) {
      void* const library = dlopen( name, RTLD_NOW | RTLD_NOLOAD );
      ASSERT_TRUE( library ) << dlerror();
      link_map* map = nullptr;
      ASSERT_EQ( dlinfo( library, RTLD_DI_LINKMAP, static_cast< void* >( &map ) ), 0 );
      bool neverUnloaded = false;
      for( const ElfW( Dyn )* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry ) {
         neverUnloaded |= entry->d_tag == DT_FLAGS_1 && ( entry->d_un.d_val & DF_1_NODELETE ) != 0;
      }
      EXPECT_TRUE( neverUnloaded ) << name;
      dlclose( library );
   }
}

} // namespace
} // namespace SodrelTest
