// Many renewals of the connection in a row, which leave nothing behind.
#include <filesystem>
#include <iterator>
#include <string>

#include <malloc.h>
#include <sys/resource.h>

#include <systemd/sd-bus.h>

#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

auto openDescriptors() {
   return std::distance( std::filesystem::directory_iterator( "/proc/self/fd" ), {} );
}

// The bytes that are allocated; 0 under a sanitizer that allocates itself.
size_t allocated() {
   return mallinfo2().uordblks;
}

class ManyRenewals : public ALibraryClient {
 protected:
   // Loses a connection by a way and uses the client, so many times, after some to warm up.
   template< typename Loss >
   void leaveNothingBehind( int count, const Loss& lose ) {
      rlimit limit{};
      ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &limit ), 0 );
      const rlim_t before = limit.rlim_cur;
      limit.rlim_cur = 64;
      ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &limit ), 0 );
      for( int i = 0; i < 3; ++i ) {
         lose();
         ASSERT_EQ( call( "StartUnit" ).substr( 0, 30 ), jobOf( 0 ).substr( 0, 30 ) );
         moments.clear();
      }
      const auto descriptors = openDescriptors();
      const size_t bytes = allocated();
      for( int i = 0; i < count; ++i ) {
         lose();
         ASSERT_EQ( systemState(), "running" );
         ASSERT_EQ( moments.lines().size(), 2U );
         moments.clear();
      }
      EXPECT_EQ( openDescriptors(), descriptors );
      // What a single leaked connection costs.
      EXPECT_NEAR( static_cast< double >( allocated() ), static_cast< double >( bytes ), 4'000 );
      limit.rlim_cur = before;
      setrlimit( RLIMIT_NOFILE, &limit );
   }
};

TEST_F( ManyRenewals, ofClosedConnectionsLeaveNothingBehind ) {
   leaveNothingBehind( 5'000, [&] {
      sd_bus_close( client->sdbus() );
      moments.clear();
   } );
}

TEST_F( ManyRenewals, afterProbesThatFailLeaveNothingBehind ) {
   leaveNothingBehind(
      1'900, [&] { manager.onCall( "Get SystemState", { error( "org.example.Expired" ) } ); } );
}

TEST_F( ManyRenewals, afterDeathsOfTheBusLeaveNothingBehind ) {
   leaveNothingBehind( 100, [&] {
      bus.kill();
      bus.start();
      manager.run( { connect() } );
   } );
}

} // namespace

} // namespace Sodrel::Test
