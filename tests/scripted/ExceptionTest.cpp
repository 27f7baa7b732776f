// The library's exceptions: their classes, how they are caught, and their texts.
#include <Sodrel/Exceptions.h>

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

// Which of the handlers, in this order, takes an exception.
template< typename T >
std::string handlerOf() {
   try {
      throw T( "text" );
   } catch( const NoSdbusException& ) {
      return "Sodrel::NoSdbusException";
   } catch( const SdbusCallException& ) {
      return "Sodrel::SdbusCallException";
   } catch( const SdbusMessageException& ) {
      return "Sodrel::SdbusMessageException";
   } catch( const SdbusSyncException& ) {
      return "Sodrel::SdbusSyncException";
   } catch( const SdbusJobException& ) {
      return "Sodrel::SdbusJobException";
   } catch( const Sodrel::Exception& ) {
      return "Sodrel::Exception";
   }
}

TYPED_TEST( EachException, isCaughtByItsOwnClassAndItsBases ) {
   EXPECT_EQ( TypeParam( "text" ).name(), handlerOf< TypeParam >() );
   EXPECT_NE( handlerOf< TypeParam >(), "Sodrel::Exception" );
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

TEST( TheLibrarysException, isNoneOfTheFive ) {
   EXPECT_EQ( handlerOf< Sodrel::Exception >(), "Sodrel::Exception" );
   EXPECT_EQ( Sodrel::Exception( "text" ).name(), "Sodrel::Exception" );
   EXPECT_THROW( throw Sodrel::Exception( "text" ), Tessel::Exception );
   EXPECT_STREQ( Sodrel::Exception( nullptr ).what(), "" );
}

} // namespace

} // namespace SodrelTest
