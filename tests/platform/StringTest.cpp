// The string: how it is created, how it grows, and what it compares with.
#include <platform/value/String.h>
#include <support/Memory.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace SodrelTest {
namespace {

using Orl::String;
using Tessel::concat;

static_assert( std::is_same_v< Orl::String, Tessel::String > );
static_assert( std::is_nothrow_move_constructible_v< String > );
static_assert( !std::is_convertible_v< String, const char* > );

TEST( AString, isEmptyByDefaultAndFromANullCString ) {
   for( const String& string : { String(), String( static_cast< const char* >( nullptr ) ) } ) {
      EXPECT_TRUE( string.empty() );
      EXPECT_EQ( string.size(), 0U );
      EXPECT_STREQ( string.data(), "" );
   }
}

TEST( AString, comesFromEveryKindOfText ) {
   const char array[] = "text";
   const char* const pointer = array;
   EXPECT_STREQ( String( array ).data(), "text" );
   EXPECT_STREQ( String( pointer ).data(), "text" );
   EXPECT_STREQ( String( std::string( "text" ) ).data(), "text" );
   EXPECT_STREQ( String( std::string_view( "texts" ).substr( 0, 4 ) ).data(), "text" );
}

TEST( AString, keepsNulsWithinTheText ) {
   const String string( std::string_view( "a\0b", 3 ) );
   EXPECT_EQ( string.size(), 3U );
   EXPECT_EQ( std::memcmp( string.data(), "a\0b", 4 ), 0 );
}

TEST( AString, copiesAndMovesItsText ) {
   String first( "first" );
   const String copy = first;
   first.append( " changed" );
   EXPECT_STREQ( copy.data(), "first" );
   first = copy;
   const String& itself = first;
   first = itself;
   EXPECT_STREQ( first.data(), "first" );
   String from( "a text that is too long for the object itself" );
   const char* const data = from.data();
   const String to = std::move( from );
   EXPECT_EQ( to.data(), data );
}

TEST( AString, appendsEveryKindOfTextAndReturnsItself ) {
   String string( "a" );
   EXPECT_EQ( &string.append( "b" ), &string );
   string.append( std::string_view( "cd" ).substr( 1 ) ).append( std::string( "e" ) );
   string.append( String( "f" ) ).append( "" );
   EXPECT_STREQ( string.data(), "abdef" );
}

TEST( AString, appendsItselfAndAPartOfItself ) {
   String string( "0123456789" );
   for( int doubled = 0; doubled < 4; ++doubled ) {
      string.append( string );
   }
   ASSERT_EQ( string.size(), 160U );
   for( std::size_t i = 0; i < string.size(); ++i ) {
      ASSERT_EQ( string.data()[i], '0' + static_cast< int >( i % 10 ) );
   }
   String part( "0123456789ABCDE" );
   part.append( std::string_view( part ).substr( 10 ) );
   EXPECT_STREQ( part.data(), "0123456789ABCDEABCDE" );
}

TEST( AString, joinsOnEitherSideWithoutChanging ) {
   const String string( "name" );
   EXPECT_STREQ( string.addLeft( "for " ).data(), "for name" );
   EXPECT_STREQ( string.addRight( ".service" ).data(), "name.service" );
   EXPECT_STREQ( string.addLeft( string ).data(), "namename" );
   EXPECT_STREQ( string.addRight( string ).data(), "namename" );
   EXPECT_STREQ( string.addLeft( "" ).data(), "name" );
   EXPECT_STREQ( string.addRight( "" ).data(), "name" );
   EXPECT_STREQ( string.data(), "name" );
}

TEST( AString, startsWithItsBeginningsOnly ) {
   const String path( "/org/unit" );
   EXPECT_TRUE( path.startsWith( "/org/" ) );
   EXPECT_TRUE( path.startsWith( String( "/org" ) ) );
   EXPECT_TRUE( path.startsWith( "" ) );
   EXPECT_TRUE( path.startsWith( path ) );
   EXPECT_FALSE( path.startsWith( "org" ) );
   EXPECT_FALSE( path.startsWith( "/org/unit/" ) );
   EXPECT_FALSE( String().startsWith( "/" ) );
   EXPECT_TRUE( String().startsWith( String() ) );
}

TEST( AString, equalsTheSameTextOfEveryKindOnBothSides ) {
   const String string( "text" );
   EXPECT_TRUE( string == "text" && "text" == string );
   EXPECT_TRUE( string == std::string( "text" ) && std::string( "text" ) == string );
   EXPECT_TRUE( string == std::string_view( "text" ) && std::string_view( "text" ) == string );
   EXPECT_TRUE( string == String( "text" ) && string == string );
   EXPECT_TRUE( string != "texts" && "tex" != string );
   EXPECT_TRUE( string != std::string( "Text" ) && std::string() != string );
   EXPECT_TRUE( string != std::string_view() && string != String( "test" ) );
   EXPECT_TRUE( String( std::string_view( "a\0b", 3 ) ) != "a" );
}

TEST( AConcatenation, joinsAllPiecesInTheirOrder ) {
   const String name( "dbus.service" );
   EXPECT_STREQ(
      concat( "read failed for ", name, ": ", "", std::to_string( 5 ) ).data(),
      "read failed for dbus.service: 5" );
   EXPECT_TRUE( concat() == "" );
   EXPECT_TRUE( concat( "", "" ).empty() );
}

TEST( AConcatenation, allocatesOnce ) {
   const std::string longPiece( 100, 'x' );
   String joined;
   {
      const WatchedMemory failing( 2 );
      joined = concat( longPiece, "-", longPiece, longPiece );
   }
   EXPECT_EQ( joined.size(), 301U );
}

} // namespace
} // namespace SodrelTest
