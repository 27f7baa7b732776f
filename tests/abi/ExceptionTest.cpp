// Exceptions that are thrown in one shared object and caught in another.
#include <abi/Dealings.h>

#include <platform/value/Optional.h>

#include <bit>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <optional>

namespace SodrelTest {
namespace {

// A plugin that shares no symbols with anything else.
class AnException : public testing::Test {
 protected:
   void SetUp() override {
      ASSERT_TRUE( plugin ) << dlerror();
      const auto get =
         std::bit_cast< decltype( &pluginDealings ) >( dlsym( plugin, "pluginDealings" ) );
      ASSERT_TRUE( get ) << dlerror();
      theirs = *get();
   }
   void TearDown() override {
      if( plugin ) {
         dlclose( plugin );
      }
   }

   void* const plugin = dlopen( PLUGIN, RTLD_NOW | RTLD_LOCAL );
   AllDealings ours = allDealings();
   AllDealings theirs{};
};

TEST_F( AnException, hasOneIdentityInTheProgramAndAPlugin ) {
   for( std::size_t i = 0; i < ours.size(); ++i ) {
      EXPECT_EQ( ours[i].identity, theirs[i].identity ) << ours[i].identity->name();
   }
}

TEST_F( AnException, ofAPluginIsCaughtByItsClass ) {
   for( std::size_t i = 0; i < ours.size(); ++i ) {
      EXPECT_TRUE( ours[i].catches( theirs[i].raise ) ) << ours[i].identity->name();
   }
}

TEST_F( AnException, ofTheProgramIsCaughtByItsClassInAPlugin ) {
   for( std::size_t i = 0; i < ours.size(); ++i ) {
      EXPECT_TRUE( theirs[i].catches( ours[i].raise ) ) << ours[i].identity->name();
   }
}

TEST_F( AnException, ofThePlatformIsCaughtByItsClass ) {
   EXPECT_THROW( Tessel::Impl::TPErrors::throwArgOutOfRange(), Tessel::ArgOutOfRange );
   EXPECT_THROW( Tessel::Impl::TPErrors::throwNegativeNotAllowed(), Tessel::NegativeNotAllowed );
   EXPECT_THROW( (void)*Orl::Optional< Tessel::String >(), std::bad_optional_access );
}

} // namespace
} // namespace SodrelTest
