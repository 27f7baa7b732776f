// The optional: present or absent, and the error when an absent value is read.
#include <platform/value/Optional.h>
#include <platform/value/String.h>

#include <gtest/gtest.h>

#include <concepts>
#include <optional>
#include <string>
#include <utility>

namespace SodrelTest {
namespace {

using Tessel::String;
using OptionalString = Orl::Optional< String >;

static_assert( !std::convertible_to< int*, OptionalString > );

TEST( AnOptional, isAbsentByDefaultAndFromNullopt ) {
   EXPECT_FALSE( OptionalString().hasValue() );
   EXPECT_FALSE( OptionalString( std::nullopt ).hasValue() );
}

TEST( AnOptional, holdsACopyOfTheString ) {
   String string( "unit" );
   const OptionalString optional = string;
   string.append( " changed" );
   ASSERT_TRUE( optional.hasValue() );
   EXPECT_TRUE( *optional == "unit" );
}

TEST( AnOptional, isPresentFromWhatBecomesAString ) {
   const OptionalString fromText = "text";
   const OptionalString fromEmpty = "";
   const OptionalString fromNull = static_cast< const char* >( nullptr );
   EXPECT_TRUE( *fromText == "text" );
   EXPECT_TRUE( fromEmpty.hasValue() && ( *fromEmpty ).empty() );
   EXPECT_TRUE( fromNull.hasValue() && ( *fromNull ).empty() );
}

TEST( AnOptional, throwsWhenAnAbsentValueIsRead ) {
   const OptionalString optional;
   EXPECT_THROW( static_cast< void >( *optional ), std::bad_optional_access );
   EXPECT_THROW( static_cast< void >( *OptionalString() ), std::bad_optional_access );
   EXPECT_THROW( Orl::Impl::throwBadOptionalAccess(), std::bad_optional_access );
}

TEST( AnOptional, isAbsentOnceItsValueIsCleared ) {
   OptionalString optional = "text";
   optional.optionalClearValue();
   EXPECT_FALSE( optional.hasValue() );
   EXPECT_THROW( static_cast< void >( *optional ), std::bad_optional_access );
   optional.optionalClearValue();
   EXPECT_FALSE( optional.hasValue() );
}

TEST( AnOptional, copiesAndMovesWhatItHolds ) {
   OptionalString optional = "text";
   OptionalString copy = optional;
   EXPECT_TRUE( *copy == "text" );
   copy = OptionalString();
   EXPECT_FALSE( copy.hasValue() );
   EXPECT_TRUE( *optional == "text" );
   const OptionalString moved = std::move( optional );
   EXPECT_TRUE( *moved == "text" );
}

TEST( AnOptional, givesItsValueAwayWhenItExpires ) {
   OptionalString optional = std::string( 100, 'x' );
   const char* const data = ( *optional ).data();
   const String value = *std::move( optional );
   EXPECT_EQ( value.data(), data );
}

} // namespace
} // namespace SodrelTest
