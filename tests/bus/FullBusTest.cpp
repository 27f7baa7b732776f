// A bus that accepts only a few connections per user, and how clients fill it.
#include <string>
#include <system_error>
#include <vector>

#include <support/BusPointers.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string readFailed =
   callFailed + "managerPropertyS, manager property SystemState read failed";
const std::string refused = readFailed + ": No.";
const std::string noRoom = readFailed + ": No buffer space available";

struct ASmallBus : ALibraryClient {
   ASmallBus() {
      bus.limitIs( "max_connections_per_user", room );
      bus.start();
      manager.run( { connect() } );
      systemState();
   }

   void refuse() {
      manager.onEveryCall(
         "Get SystemState", { error( "org.freedesktop.DBus.Error.AccessDenied", "No." ) } );
   }

   // The manager and the client are among these.
   static constexpr std::size_t room = 16;
};

TEST_F( ASmallBus, refusesClientsWhenItIsFull ) {
   std::vector< BusPtr > others;
   const auto fill = [&] {
      while( others.size() < room ) {
         others.push_back( busAt( bus.address() ) );
         roundTrip( others.back().get() );
      }
   };
   EXPECT_THROW( fill(), std::system_error );

   EXPECT_EQ( outcomeOf( "creation" ), noRoom );
   // Existing connections remain usable.
   EXPECT_EQ( systemState(), "running" );
}

TEST_F( ASmallBus, isFilledByAClientThatIsCreatedAgainAfterEachRefusal ) {
   refuse();
   std::vector< std::string > outcomes{ outcomeOf( "creation" ) };
   EXPECT_EQ( outcomes.back(), refused );
   while( outcomes.back() == refused && outcomes.size() < room ) {
      outcomes.push_back( outcomeOf( "creation" ) );
   }
   EXPECT_EQ( outcomes.back(), noRoom );
}

TEST_F( ASmallBus, isNotFilledByAClientThatIsKeptOverRefusals ) {
   refuse();
   for( std::size_t i = 0; i < 2 * room; ++i ) {
      EXPECT_EQ( systemState(), refused );
   }
}

} // namespace

} // namespace SodrelTest
