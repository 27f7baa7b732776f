// The library's exceptions: their classes, how they are caught, and their texts.
#include <Sodrel/Exceptions.h>

#include <platform/value/Exception.h>

#include <gtest/gtest.h>
#include <string>
#include <type_traits>

namespace SodrelTest {

namespace {

using namespace Sodrel;

template< typename T >
class EachException : public testing::Test {};

using Derived = testing::Types<
   NoSdbusException, SdbusCallException, SdbusMessageException, SdbusSyncException,
   SdbusJobException >;
TYPED_TEST_SUITE( EachException, Derived );

// Returns as how many of these classes a `T` is caught.
template< typename T, typename... Others >
constexpr int caughtAs( testing::Types< Others... > ) {
   return ( 0 + ... + ( std::is_base_of_v< Others, T > ? 1 : 0 ) );
}

TYPED_TEST( EachException, isCaughtByItsOwnClassAndItsBases ) {
   EXPECT_EQ( caughtAs< TypeParam >( Derived() ), 1 );
   EXPECT_EQ( TypeParam( "text" ).name(), Tessel::typeName( typeid( TypeParam ) ) );
   EXPECT_THROW( throw TypeParam( "text" ), Sodrel::Exception );
   EXPECT_THROW( throw TypeParam( "text" ), Tessel::Exception );
   EXPECT_THROW( throw TypeParam( "text" ), std::exception );
}

TYPED_TEST( EachException, keepsItsTextWhenItIsCopied ) {
   const std::string longText( 1000, 'x' );
   TypeParam copy( "" );
   {
      const TypeParam original{ Tessel::String( longText ) };
      EXPECT_EQ( original.what(), longText );
      copy = original;
   }
   EXPECT_EQ( copy.what(), longText );
   EXPECT_TRUE( std::is_nothrow_copy_constructible_v< TypeParam > );
}

TYPED_TEST( EachException, addsNothingToTheBase ) {
   EXPECT_EQ( sizeof( TypeParam ), sizeof( Tessel::Exception ) );
   EXPECT_TRUE( (std::is_constructible_v< TypeParam, Tessel::String >));
   EXPECT_FALSE( std::is_default_constructible_v< TypeParam > );
}

TEST( TheLibrarysException, isNotOneOfTheFiveSpecificOnes ) {
   EXPECT_EQ( caughtAs< Sodrel::Exception >( Derived() ), 0 );
   EXPECT_EQ( Sodrel::Exception( "text" ).name(), "Sodrel::Exception" );
   EXPECT_THROW( throw Sodrel::Exception( "text" ), Tessel::Exception );
   EXPECT_STREQ( Sodrel::Exception( nullptr ).what(), "" );
}

} // namespace

} // namespace SodrelTest
