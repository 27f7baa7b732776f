// The exceptions: text, name, copies, slots, and which handler catches which class.
#include <Sodrel/Exceptions.h>
#include <platform/value/Exception.h>
#include <platform/value/Interval.h>
#include <support/Slots.h>

#include <gtest/gtest.h>

#include <concepts>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace SodrelTest {

class Error : public Tessel::Exception {
 public:
   using Exception::Exception;
};

namespace {

// A type with a name that no compiler produces.
class NamedType : public std::type_info {
 public:
   explicit NamedType( const char* name ) : std::type_info( name ) {}
};

template< typename Caught, typename Thrown >
bool isCaughtAs() {
   try {
      throw Thrown( "text" );
   } catch( const Caught& caught ) {
      return std::string( caught.what() ) == "text";
   } catch( ... ) {
      return false;
   }
}

TEST( AnException, keepsItsMessageAndGivesItToCopies ) {
   const std::string text( 100, 'x' );
   auto message = std::make_unique< Tessel::String >( text );
   auto exception = std::make_unique< Error >( *message );
   message.reset();
   EXPECT_EQ( exception->what(), text );
   const Error copy = *exception;
   Error assigned( "" );
   EXPECT_STREQ( assigned.what(), "" );
   assigned = *exception;
   exception.reset();
   EXPECT_EQ( copy.what(), text );
   EXPECT_EQ( assigned.what(), text );
}

TEST( AnException, isNamedAfterItsOwnClass ) {
   const Error error( "text" );
   const Tessel::Exception& asBase = error;
   EXPECT_TRUE( asBase.name() == "SodrelTest::Error" );
   EXPECT_TRUE( Tessel::Exception( "text" ).name() == "Tessel::Exception" );
   EXPECT_TRUE( Tessel::ArgOutOfRange( "text" ).name() == "Tessel::ArgOutOfRange" );
   EXPECT_TRUE( Tessel::NegativeNotAllowed( "" ).name() == "Tessel::NegativeNotAllowed" );
}

TEST( AnException, hasTheSlotsOfStdExceptionAndThenItsName ) {
   EXPECT_EQ( slotOf( &std::exception::what ), 2U );
   EXPECT_EQ( slotOf( &Tessel::Exception::what ), 2U );
   EXPECT_EQ( slotOf( &Tessel::Exception::name ), 3U );
   auto* const error = new Error( "text" );
   EXPECT_STREQ( inSlot< const char* >( *error, 2 )( error ), "text" );
   EXPECT_TRUE( inSlot< Tessel::String >( *error, 3 )( error ) == "SodrelTest::Error" );
   inSlot< void >( *error, 1 )( error );
}

TEST( AnException, isCaughtAsEachOfItsBases ) {
   EXPECT_TRUE( ( isCaughtAs< std::exception, Tessel::ArgOutOfRange >() ) );
   EXPECT_TRUE( ( isCaughtAs< Tessel::Exception, Tessel::ArgOutOfRange >() ) );
   EXPECT_TRUE( ( isCaughtAs< Tessel::Exception, Tessel::NegativeNotAllowed >() ) );
   EXPECT_FALSE( ( isCaughtAs< Tessel::ArgOutOfRange, Tessel::NegativeNotAllowed >() ) );
   // The member that holds the text is not a base.
   EXPECT_FALSE( ( isCaughtAs< std::runtime_error, Tessel::Exception >() ) );
}

static_assert( std::is_nothrow_copy_constructible_v< Tessel::Exception > );
static_assert( std::is_nothrow_copy_assignable_v< Tessel::Exception > );
static_assert( !std::convertible_to< Tessel::String, Tessel::Exception > );
static_assert( !std::convertible_to< const char*, Sodrel::Exception > );

template< typename T >
class EachErrorOfTheLibrary : public testing::Test {};

using LibraryErrors = testing::Types<
   Sodrel::NoSdbusException, Sodrel::SdbusCallException, Sodrel::SdbusMessageException,
   Sodrel::SdbusSyncException, Sodrel::SdbusJobException >;

struct NameOfError {
   template< typename T >
   static std::string GetName( int ) {
      const std::string name = Tessel::typeName( typeid( T ) ).data();
      return name.substr( name.rfind( ':' ) + 1 );
   }
};

TYPED_TEST_SUITE( EachErrorOfTheLibrary, LibraryErrors, NameOfError );

TYPED_TEST( EachErrorOfTheLibrary, isCaughtAsItselfAndItsBasesOnly ) {
   EXPECT_TRUE( ( isCaughtAs< TypeParam, TypeParam >() ) );
   EXPECT_TRUE( ( isCaughtAs< Sodrel::Exception, TypeParam >() ) );
   EXPECT_TRUE( ( isCaughtAs< Tessel::Exception, TypeParam >() ) );
   EXPECT_TRUE( ( isCaughtAs< std::exception, TypeParam >() ) );
   EXPECT_FALSE( ( isCaughtAs< TypeParam, Sodrel::Exception >() ) );
   const int asItself = isCaughtAs< Sodrel::NoSdbusException, TypeParam >() +
                        isCaughtAs< Sodrel::SdbusCallException, TypeParam >() +
                        isCaughtAs< Sodrel::SdbusMessageException, TypeParam >() +
                        isCaughtAs< Sodrel::SdbusSyncException, TypeParam >() +
                        isCaughtAs< Sodrel::SdbusJobException, TypeParam >();
   EXPECT_EQ( asItself, 1 );
}

TYPED_TEST( EachErrorOfTheLibrary, isNamedAndCopiedAsTheBaseSaysAndAddsNothing ) {
   const TypeParam error( "text" );
   EXPECT_TRUE( error.name() == "Sodrel::" + NameOfError::GetName< TypeParam >( 0 ) );
   const TypeParam copy = error;
   EXPECT_STREQ( copy.what(), "text" );
   const Tessel::Exception base( "" );
   for( const std::size_t slot : { 2U, 3U } ) {
      EXPECT_EQ(
         reinterpret_cast< void* >( inSlot< void >( error, slot ) ),
         reinterpret_cast< void* >( inSlot< void >( base, slot ) ) );
   }
   static_assert( std::is_nothrow_copy_constructible_v< TypeParam > );
   static_assert( std::is_nothrow_copy_assignable_v< TypeParam > );
   static_assert( sizeof( TypeParam ) == sizeof( Tessel::Exception ) );
   static_assert( std::constructible_from< TypeParam, Tessel::String > );
   static_assert( !std::convertible_to< Tessel::String, TypeParam > );
   static_assert( !std::default_initializable< TypeParam > );
}

TEST( ATypeName, isWrittenAsInTheSourceOrElseRaw ) {
   EXPECT_TRUE( Tessel::typeName( typeid( int ) ) == "int" );
   EXPECT_TRUE( Tessel::typeName( typeid( Error ) ) == "SodrelTest::Error" );
   EXPECT_TRUE(
      Tessel::typeName( typeid( NamedType ) ) == "SodrelTest::(anonymous namespace)::NamedType" );
   EXPECT_TRUE( Tessel::typeName( NamedType( "?unreadable" ) ) == "?unreadable" );
}

} // namespace
} // namespace SodrelTest
