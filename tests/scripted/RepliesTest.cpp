// The four operations that check the outcome of an sd-bus call and consume what it brought.
#include <scripted/ScriptedTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

class TheReplyOperations : public ClientTest {
 protected:
   // What handleSdbusCall makes of a result and an error.
   std::string outcome( int result, const Answer& filled ) {
      sd_bus_error error = {};
      script.errorIs( &error, filled );
      return thrownBy( [&] { client->handleSdbusCall( result, &error, "What the caller did" ); } );
   }
};

TEST_F( TheReplyOperations, freeTheErrorOfACallThatSucceeded ) {
   EXPECT_EQ( outcome( 0, {} ), "nothing" );
   EXPECT_EQ( outcome( 1, {} ), "nothing" );
   EXPECT_EQ( outcome( 0, fails( EIO, "a message" ) ), "nothing" );
   EXPECT_EQ( outcome( 7, fails( EIO, "a message" ) ), "nothing" );
   expectLog( {
      "sd_bus_error_free( empty )",
      "sd_bus_error_free( empty )",
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, a message )",
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, a message )",
   } );
}

TEST_F( TheReplyOperations, throwTheCallersTextAloneWhenTheErrorIsEmpty ) {
   EXPECT_EQ( outcome( -EINVAL, {} ), "Sodrel::SdbusCallException: What the caller did" );
   expectLog( { "sd_bus_error_free( empty )" } );
}

TEST_F( TheReplyOperations, putTheMessageOfTheErrorAndNotItsNameIntoTheException ) {
   EXPECT_EQ(
      outcome(
         -EIO, { .errorName = "org.freedesktop.DBus.Error.Failed", .errorMessage = "It broke" } ),
      "Sodrel::SdbusCallException: What the caller did: It broke" );
   expectLog( { "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, It broke )" } );
}

TEST_F( TheReplyOperations, throwTheCallersTextAloneWhenTheErrorHasANameOnly ) {
   EXPECT_EQ(
      outcome( -EIO, { .errorName = "org.freedesktop.DBus.Error.Failed" } ),
      "Sodrel::SdbusCallException: What the caller did" );
   expectLog( { "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, null )" } );
}

TEST_F( TheReplyOperations, appendAMessageThatIsEmpty ) {
   EXPECT_EQ(
      outcome( -EIO, { .errorName = "an.Error", .errorMessage = "" } ),
      "Sodrel::SdbusCallException: What the caller did: " );
   expectLog( { "sd_bus_error_free( an.Error, '' )" } );
}

TEST_F( TheReplyOperations, dropAReplyThatNobodyWants ) {
   client->handleSdbusMessage( script.newReply( o( "/a/path" ) ) );
   expectLog( { "sd_bus_message_unref( message1 )" } );
}

TEST_F( TheReplyOperations, readAnObjectPathBeforeTheyDropTheReply ) {
   EXPECT_EQ( client->handleSdbusMessageO( script.newReply( o( "/a/path" ) ), "Text" ), "/a/path" );
   expectLog( { "sd_bus_message_read( message1, o )", "sd_bus_message_unref( message1 )" } );
}

TEST_F( TheReplyOperations, dropAReplyThatHoldsNoObjectPathAndThrow ) {
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusMessageO( script.newReply( s( "/a/path" ) ), "Text" ); } ),
      "Sodrel::SdbusMessageException: Text: No such device or address" );
   expectLog( { "sd_bus_message_read( message1, o )", "sd_bus_message_unref( message1 )" } );
}

TEST_F( TheReplyOperations, readBooleans ) {
   EXPECT_TRUE( client->handleSdbusMessageB( script.newReply( b( true ) ), "Text" ) );
   EXPECT_FALSE( client->handleSdbusMessageB( script.newReply( b( false ) ), "Text" ) );
   expectLog( {
      "sd_bus_message_read( message1, b )",
      "sd_bus_message_unref( message1 )",
      "sd_bus_message_read( message2, b )",
      "sd_bus_message_unref( message2 )",
   } );
}

TEST_F( TheReplyOperations, dropAReplyThatHoldsNoBooleanAndThrow ) {
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusMessageB( script.newReply( s( "true" ) ), "Text" ); } ),
      "Sodrel::SdbusMessageException: Text: No such device or address" );
   expectLog( { "sd_bus_message_read( message1, b )", "sd_bus_message_unref( message1 )" } );
}

TEST_F( TheReplyOperations, takeAnEmptyReplyAsTheEmptyPathAndAsFalse ) {
   EXPECT_EQ( client->handleSdbusMessageO( script.newReply( {} ), "Text" ), "" );
   EXPECT_FALSE( client->handleSdbusMessageB( script.newReply( {} ), "Text" ) );
   EXPECT_EQ( script.alive(), "bus1" );
}

TEST_F( TheReplyOperations, takeANullPathAsTheEmptyPath ) {
   EXPECT_EQ( client->handleSdbusMessageO( script.newReply( o( std::nullopt ) ), "Text" ), "" );
}

TEST_F( TheReplyOperations, giveTheSystemsTextForAnErrorNumberThatItDoesNotKnow ) {
   script.next( "sd_bus_message_read", fails( 4095 ) );
   script.next( "sd_bus_message_read", fails( 4095 ) );
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusMessageO( script.newReply( o( "/a" ) ), "Text" ); } ),
      "Sodrel::SdbusMessageException: Text: Unknown error 4095" );
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusMessageB( script.newReply( b( true ) ), "" ); } ),
      "Sodrel::SdbusMessageException: : Unknown error 4095" );
}

} // namespace

} // namespace Sodrel::Test
