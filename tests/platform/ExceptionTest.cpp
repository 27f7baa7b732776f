// The exceptions: text, name, copies, slots, and which handler catches which class.
#include "Slots.h"

#include <Sodrel/Exceptions.h>
#include <platform/value/Exception.h>
#include <platform/value/Interval.h>
#include <platform/value/TypeName.h>

#include <gtest/gtest.h>

#include <concepts>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace SodrelTest {

class Error : public Tessel::Exception {
 public:
   using Exception::Exception;
};

namespace {

class HiddenError : public Error {
 public:
   using Error::Error;
};

} // namespace

} // namespace SodrelTest

namespace {

// A type whose name is not one that a compiler makes.
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

} // namespace

TEST( AnException, hasItsMessage ) {
   const Tessel::Exception exception( "Sdbus::sdbus, failed" );
   EXPECT_STREQ( exception.what(), "Sdbus::sdbus, failed" );
   EXPECT_STREQ( Tessel::Exception( "" ).what(), "" );
}

TEST( AnException, keepsItsMessageWhenTheStringGoes ) {
   auto text = std::make_unique< Tessel::String >( std::string( 100, 'x' ) );
   const Tessel::Exception exception( *text );
   text.reset();
   EXPECT_EQ( exception.what(), std::string( 100, 'x' ) );
}

TEST( AnException, isNamedAfterItsOwnClass ) {
   const SodrelTest::Error error( "text" );
   const Tessel::Exception& asBase = error;
   EXPECT_TRUE( asBase.name() == "SodrelTest::Error" );
   EXPECT_TRUE( Tessel::Exception( "text" ).name() == "Tessel::Exception" );
   EXPECT_TRUE( Tessel::ArgOutOfRange( "text" ).name() == "Tessel::ArgOutOfRange" );
   EXPECT_TRUE( Tessel::NegativeNotAllowed( "" ).name() == "Tessel::NegativeNotAllowed" );
   EXPECT_TRUE(
      SodrelTest::HiddenError( "" ).name() == "SodrelTest::(anonymous namespace)::HiddenError" );
}

TEST( AnException, givesItsMessageToCopies ) {
   auto exception = std::make_unique< SodrelTest::Error >( "text" );
   const SodrelTest::Error copy = *exception;
   SodrelTest::Error assigned( "other" );
   assigned = *exception;
   exception.reset();
   EXPECT_STREQ( copy.what(), "text" );
   EXPECT_STREQ( assigned.what(), "text" );
}

TEST( AnException, hasTheSlotsOfStdExceptionAndThenItsName ) {
   using SodrelTest::slotOf;
   EXPECT_EQ( slotOf( &std::exception::what ), 2U );
   EXPECT_EQ( slotOf( &Tessel::Exception::what ), 2U );
   EXPECT_EQ( slotOf( &Tessel::Exception::name ), 3U );
}

TEST( AnException, answersThroughItsSlots ) {
   using SodrelTest::inSlot;
   const SodrelTest::Error error( "text" );
   EXPECT_STREQ( inSlot< const char* >( error, 2 )( &error ), "text" );
   EXPECT_TRUE( inSlot< Tessel::String >( error, 3 )( &error ) == "SodrelTest::Error" );
   auto* const onTheHeap = new SodrelTest::Error( "text" );
   inSlot< void >( *onTheHeap, 1 )( onTheHeap );
}

TEST( AnException, isCaughtAsEachOfItsBases ) {
   EXPECT_TRUE( ( isCaughtAs< std::exception, Tessel::ArgOutOfRange >() ) );
   EXPECT_TRUE( ( isCaughtAs< Tessel::Exception, Tessel::ArgOutOfRange >() ) );
   EXPECT_TRUE( ( isCaughtAs< Tessel::Exception, Tessel::NegativeNotAllowed >() ) );
   EXPECT_FALSE( ( isCaughtAs< Tessel::ArgOutOfRange, Tessel::NegativeNotAllowed >() ) );
   // The text that it holds is no base.
   EXPECT_FALSE( ( isCaughtAs< std::runtime_error, Tessel::Exception >() ) );
}

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

TYPED_TEST( EachErrorOfTheLibrary, isNamedAndCopiedAsTheBaseSays ) {
   const TypeParam error( "text" );
   EXPECT_TRUE( error.name() == "Sodrel::" + NameOfError::GetName< TypeParam >( 0 ) );
   const TypeParam copy = error;
   EXPECT_STREQ( copy.what(), "text" );
   static_assert( std::is_nothrow_copy_constructible_v< TypeParam > );
   static_assert( std::is_nothrow_copy_assignable_v< TypeParam > );
}

TYPED_TEST( EachErrorOfTheLibrary, addsNeitherFieldsNorConversions ) {
   static_assert( sizeof( TypeParam ) == sizeof( Tessel::Exception ) );
   static_assert( std::constructible_from< TypeParam, Tessel::String > );
   static_assert( !std::convertible_to< Tessel::String, TypeParam > );
   static_assert( !std::default_initializable< TypeParam > );
}

TYPED_TEST( EachErrorOfTheLibrary, inheritsWhatAndName ) {
   EXPECT_EQ( SodrelTest::slotOf( &TypeParam::what ), 2U );
   EXPECT_EQ( SodrelTest::slotOf( &TypeParam::name ), 3U );
   const Tessel::Exception base( "" );
   const TypeParam error( "" );
   for( const std::size_t slot : { 2U, 3U } ) {
      EXPECT_EQ(
         reinterpret_cast< void* >( SodrelTest::inSlot< void >( error, slot ) ),
         reinterpret_cast< void* >( SodrelTest::inSlot< void >( base, slot ) ) );
   }
}

static_assert( std::is_nothrow_copy_constructible_v< Tessel::Exception > );
static_assert( std::is_nothrow_copy_assignable_v< Tessel::Exception > );
static_assert( !std::convertible_to< Tessel::String, Tessel::Exception > );
static_assert( !std::convertible_to< const char*, Sodrel::Exception > );

TEST( ATypeName, isWrittenAsInTheSource ) {
   EXPECT_TRUE( Tessel::typeName( typeid( int ) ) == "int" );
   EXPECT_TRUE( Tessel::typeName( typeid( SodrelTest::Error ) ) == "SodrelTest::Error" );
}

TEST( ATypeName, isTheRawOneWhenItCannotBeRead ) {
   EXPECT_TRUE( Tessel::typeName( NamedType( "?unreadable" ) ) == "?unreadable" );
}
