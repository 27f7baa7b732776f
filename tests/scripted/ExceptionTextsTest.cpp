// The library's exceptions: their classes, how they are caught, and their texts.
#include <Sodrel/Exceptions.h>

#include <gtest/gtest.h>
#include <string>
#include <type_traits>

namespace Sodrel::Test {

namespace {

template< typename T >
class EachException : public testing::Test {};

using Derived = testing::Types<
   NoSdbusException, SdbusCallException, SdbusMessageException, SdbusSyncException,
   SdbusJobException >;
TYPED_TEST_SUITE( EachException, Derived );

// Which of the five handlers, in this order, takes an exception.
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
   } catch( const Exception& ) {
      return "Sodrel::Exception";
   }
}

TYPED_TEST( EachException, isCaughtByItsOwnClassOnly ) {
   const TypeParam exception( "text" );
   EXPECT_EQ( exception.name(), handlerOf< TypeParam >() );
}

TYPED_TEST( EachException, isCaughtAsTheLibrarysException ) {
   EXPECT_THROW( throw TypeParam( "text" ), Exception );
}

TYPED_TEST( EachException, isCaughtAsTheSystemsException ) {
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
   EXPECT_TRUE( (std::is_base_of_v< Exception, TypeParam >));
   EXPECT_EQ( sizeof( TypeParam ), sizeof( Tessel::Exception ) );
   EXPECT_FALSE( (std::is_convertible_v< Tessel::String, TypeParam >));
   EXPECT_TRUE( (std::is_constructible_v< TypeParam, Tessel::String >));
   EXPECT_FALSE( std::is_default_constructible_v< TypeParam > );
}

TEST( TheLibrarysException, isNoneOfTheFive ) {
   EXPECT_EQ( handlerOf< Exception >(), "Sodrel::Exception" );
   EXPECT_EQ( Exception( "text" ).name(), "Sodrel::Exception" );
   EXPECT_THROW( throw Exception( "text" ), Tessel::Exception );
}

TEST( TheLibrarysException, hasAnEmptyTextForANullOne ) {
   EXPECT_STREQ( SdbusCallException( nullptr ).what(), "" );
   EXPECT_STREQ( SdbusCallException( "" ).what(), "" );
}

} // namespace

} // namespace Sodrel::Test
