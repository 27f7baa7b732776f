// Each operation: its golden sequence, and the result of each failure of sd-bus and of memory.
//
// The n-th call of sd-bus fails, for n = 1, 2, ... as long as the operation makes that many: alone,
// and with all later ones; with several error numbers, with and without a D-Bus error. The sequence
// defines the result. The n-th allocation fails likewise, also while a call of sd-bus fails.
#include <scripted/Operations.h>

#include <support/LibraryTraces.h>
#include <support/Memory.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

namespace SodrelTest {

namespace {

// The first one gives a result of -1, the value next to success.
constexpr int errors[] = { EPERM, EIO, ETIMEDOUT, 4095 };

std::size_t faultPoints = 0;

// How a call fails.
struct Fault {
   std::size_t step;
   bool forEver;
   int error;
   bool withMessage;
};

void replaceAll( std::string& text, const std::string& what, const std::string& with ) {
   for( std::size_t at = 0; ( at = text.find( what, at ) ) != std::string::npos; ) {
      text.replace( at, what.size(), with );
      at += with.size();
   }
}

// Returns a text of a golden sequence with its placeholders replaced by the cause.
std::string caused( std::string text, const Fault& fault ) {
   replaceAll( text, "{errno}", std::string( ": " ) + std::strerror( fault.error ) );
   replaceAll( text, "{message}", fault.withMessage ? ": the cause" : "" );
   replaceAll(
      text, "{error}",
      fault.withMessage ? std::string( failedError ) + ", the cause" : std::string( "empty" ) );
   replaceAll( text, "{result}", std::to_string( -fault.error ) );
   return text;
}

class EachOperation : public ScriptedTest, public testing::WithParamInterface< Operation > {
 protected:
   static void TearDownTestSuite() { std::printf( "%zu fault points tried\n", faultPoints ); }

   // Starts afresh, so that all names are those of the golden sequence.
   void restart() {
      client = nullptr;
      EXPECT_EQ( livingEntities(), "" );
      std::destroy_at( &script );
      std::construct_at( &script );
      client = createdSdbus();
   }

   void TearDown() override {
      restart();
      client = nullptr;
      ScriptedTest::TearDown();
   }

   void prepare() {
      script.forgetLeftOver();
      unluckyWaits.clear();
      if( GetParam().prepare ) {
         GetParam().prepare();
      }
   }

   // Returns what the operation returns or throws.
   std::string outcome() const {
      std::string returned;
      const std::string thrown = thrownBy( [&] { returned = GetParam().run( *client ).data(); } );
      return thrown == "nothing" ? returned : thrown;
   }

   bool is( std::size_t step, const char* function ) const {
      return steps.at( step ).line.starts_with( function );
   }
   // Returns the step of that function within a range, or the end of the range.
   std::size_t find( const char* function, std::size_t from, std::size_t to ) const {
      while( from < to && !is( from, function ) ) {
         ++from;
      }
      return from;
   }
   bool hasMonitor( std::size_t step ) const {
      return find( "sd_bus_match_signal", 0, step ) < step;
   }

   std::string expectedOutcome( const Fault& fault ) const {
      const Step& step = steps.at( fault.step );
      if( step.failing == Failing::reported || fault.forEver ) {
         return caused( step.exception, fault );
      }
      // The reconnection closes the monitor's connection.
      const std::size_t process = find( "sd_bus_process", fault.step, steps.size() );
      return step.failing == Failing::renewing && hasMonitor( fault.step ) && process < steps.size()
                ? caused( steps.at( process ).exception, { 0, false, ECONNRESET, false } )
                : GetParam().result;
   }

   // Returns the golden sequence as changed by the fault.
   std::string expectedLog( const Fault& fault ) const {
      const Step& failing = steps.at( fault.step );
      const bool withMonitor = hasMonitor( fault.step );
      Steps log( steps.begin(), steps.begin() + static_cast< std::ptrdiff_t >( fault.step ) + 1 );
      const auto goOn = [&]( std::size_t from, std::size_t to ) {
         for( std::size_t next = from; next < to; ++next ) {
            log.push_back( steps.at( next ) );
         }
      };
      // Every sequence ends with the monitor's end.
      const auto endMonitor = [&] {
         if( withMonitor ) {
            goOn( steps.size() - 4, steps.size() );
         }
      };
      for( const std::string& line : failing.after ) {
         log.push_back( { caused( line, fault ) } );
      }
      if( failing.failing == Failing::reported ) {
         endMonitor();
      } else if( failing.failing == Failing::ignored ) {
         goOn( fault.step + 1, steps.size() );
      } else {
         log.push_back( { "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: " +
                          std::to_string( fault.error ) } );
         log.push_back( { "sd_bus_flush_close_unref( bus1 )" } );
         log.push_back( { "sd_bus_open_system( bus )" } );
         if( fault.forEver ) {
            endMonitor();
         } else {
            // Without the release of the value, on the new connection; the monitor's is closed.
            const std::size_t renewed = log.size();
            const std::size_t last =
               withMonitor ? find( "sd_bus_process", fault.step, steps.size() ) : steps.size();
            goOn( fault.step + 2, std::min( last, steps.size() ) );
            for( std::size_t line = renewed; line < log.size(); ++line ) {
               replaceAll( log[line].line, "( bus1", "( bus2" );
            }
            if( last < steps.size() ) {
               goOn( last, last + 1 );
               endMonitor();
            }
         }
      }
      return logOf( log );
   }

   // There may be another connection or none, but nothing else is left.
   void expectNothingLeft() const {
      const std::string alive = script.alive();
      EXPECT_EQ( alive.find_first_not_of( "bus0123456789 " ), std::string::npos ) << alive;
      EXPECT_EQ( livingEntities(), "1 Sodrel::Sdbus " );
   }

   // The operation works again when nothing fails any more.
   void expectToWork() {
      script.faultIs( 0 );
      prepare();
      EXPECT_EQ( outcome(), GetParam().result );
      EXPECT_EQ( script.leftOver(), "" );
      EXPECT_TRUE( unluckyWaits.empty() );
      expectNothingLeft();
   }

   // Makes the call in that step fail.
   void faultIs( const Fault& fault ) {
      const std::size_t number =
         1 + static_cast< std::size_t >( std::count_if(
                steps.begin(), steps.begin() + static_cast< std::ptrdiff_t >( fault.step ),
                []( const Step& step ) { return step.failing != Failing::never; } ) );
      script.faultIs(
         number, fault.forEver,
         fault.withMessage ? fails( fault.error, "the cause" ) : fails( fault.error ) );
   }

   void tryFault( const Fault& fault ) {
      SCOPED_TRACE(
         steps.at( fault.step ).line + ( fault.forEver ? " and all later ones" : "" ) + ", error " +
         std::to_string( fault.error ) );
      restart();
      prepare();
      faultIs( fault );
      EXPECT_EQ( outcome(), expectedOutcome( fault ) );
      ASSERT_FALSE( script.faults().empty() );
      EXPECT_EQ( script.faults().front(), steps.at( fault.step ).line );
      const std::string log = takeLog();
      if( !fault.forEver || steps.at( fault.step ).failing != Failing::ignored ) {
         EXPECT_EQ( log, expectedLog( fault ) );
      }
      expectNothingLeft();
      ++faultPoints;
      expectToWork();
      // Only a failed probe leads to a reconnection.
      const bool renewed = steps.at( fault.step ).failing == Failing::renewing;
      EXPECT_EQ( script.alive().substr( 0, 4 ), renewed ? "bus2" : "bus1" );
   }

   // Runs the operation with a failing allocation, and a failing call if there is a fault. Returns
   // false if there was no such allocation.
   bool tryWithoutMemory( std::size_t number, bool forEver, const Fault* fault = nullptr ) {
      SCOPED_TRACE(
         "allocation " + std::to_string( number ) + ( forEver ? ", and all later ones" : "" ) +
         ( fault ? ", and " + steps.at( fault->step ).line : "" ) );
      prepare();
      if( fault ) {
         faultIs( *fault );
      }
      bool missing = false;
      std::size_t failures = 0;
      {
         const WatchedMemory memory( number, forEver );
         try {
            GetParam().run( *client );
         } catch( const std::bad_alloc& ) {
            missing = true;
         } catch( const Tessel::Exception& ) {
         }
         failures = memory.failures();
      }
      EXPECT_EQ( missing, failures != 0 );
      faultPoints += missing ? 1 : 0;
      expectNothingLeft();
      expectToWork();
      return failures != 0;
   }

   // Makes each of the allocations fail in turn and returns their number.
   std::size_t tryAllocations( bool forEver, const Fault* fault = nullptr ) {
      const std::size_t blocks = watchedBlocks();
      const std::size_t slabs = slabBlocks();
      std::size_t number = 1;
      for( ; tryWithoutMemory( number, forEver, fault ); ++number ) {
         EXPECT_EQ( watchedBlocks(), blocks ) << "allocation " << number;
      }
      EXPECT_EQ( watchedBlocks(), blocks );
      EXPECT_EQ( slabBlocks(), slabs );
      return number - 1;
   }

   const Steps& steps = GetParam().steps;
   Tessel::Ptr< Sdbus > client = createdSdbus();
};

TEST_P( EachOperation, makesItsCallsInOrder ) {
   prepare();
   EXPECT_EQ( outcome(), GetParam().result );
   EXPECT_EQ( takeLog(), logOf( steps ) );
   EXPECT_EQ( script.leftOver(), "" );
   EXPECT_EQ( script.alive(), "bus1" );
   EXPECT_EQ( livingEntities(), "1 Sodrel::Sdbus " );
}

TEST_P( EachOperation, makesTheSameCallsWhenNothingIsTraced ) {
   libraryTraceLevelsAre( 0 );
   prepare();
   EXPECT_EQ( outcome(), GetParam().result );
   Steps untraced = steps;
   std::erase_if( untraced, []( const Step& step ) {
      return step.line.starts_with( "Sodrel/" ) || step.line.starts_with( "SignalMonitor/" );
   } );
   EXPECT_EQ( takeLog(), logOf( untraced ) );
}

TEST_P( EachOperation, reportsEachFailureOfSdbusAndRemainsUsable ) {
   std::size_t canFail = 0;
   const std::size_t before = faultPoints;
   for( std::size_t step = 0; step < steps.size(); ++step ) {
      if( steps.at( step ).failing == Failing::never ) {
         continue;
      }
      ++canFail;
      for( const bool forEver : { false, true } ) {
         for( const int error : errors ) {
            tryFault( { step, forEver, error, false } );
            tryFault( { step, forEver, error, true } );
         }
      }
   }
   // The sequence contains all of the operation's calls: there is not one more.
   restart();
   prepare();
   script.faultIs( canFail + 1, true, fails( EIO ) );
   EXPECT_EQ( outcome(), GetParam().result );
   EXPECT_TRUE( script.faults().empty() );
   EXPECT_EQ( faultPoints - before, canFail * 16 );
}

TEST_P( EachOperation, throwsIfMemoryRunsOutAndRemainsUsable ) {
   // First including the objects that are created on first use.
   for( const bool forEver : { false, true } ) {
      for( std::size_t number = 1; tryWithoutMemory( number, forEver ); ++number ) {
      }
   }
   const std::size_t allocations = tryAllocations( false );
   EXPECT_EQ( tryAllocations( true ), allocations );
   // A path takes one allocation, as do an entity and a record. The text of a failure is composed
   // only on failure.
   const bool path = GetParam().result.starts_with( '/' );
   if( hasMonitor( steps.size() ) ) {
      EXPECT_GE( allocations, path ? 3U : 2U );
   } else if( path || GetParam().name == "sdbusFactory" || GetParam().name == "unitPropertyS" ) {
      EXPECT_EQ( allocations, 1U );
   } else if( !GetParam().name.ends_with( "Refused" ) ) {
      EXPECT_EQ( allocations, 0U );
   }
}

TEST_P( EachOperation, throwsIfMemoryRunsOutForAReport ) {
   for( std::size_t step = 0; step < steps.size(); ++step ) {
      if( steps.at( step ).failing != Failing::never ) {
         const Fault fault{ step, false, EIO, true };
         restart();
         tryWithoutMemory( 1, false, &fault );
         tryAllocations( false, &fault );
      }
   }
}

INSTANTIATE_TEST_SUITE_P(
   OfTheLibrary, EachOperation, testing::ValuesIn( operations() ),
   []( const auto& instance ) { return instance.param.name; } );

} // namespace

} // namespace SodrelTest
