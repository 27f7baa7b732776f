// Each operation with each of its sd-bus calls and allocations made to fail.
//
// The n-th sd-bus call fails, for n = 1, 2, ... until the operation has no more of them: once, and
// with all later ones; with several error numbers, with and without a D-Bus error. The table says
// what comes of it. The same goes for the n-th allocation.
#include <Sodrel/SignalMonitor.h>

#include <scripted/Operations.h>
#include <scripted/ScriptedTest.h>

#include <support/ScriptedMemory.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <new>

namespace Sodrel::Test {

namespace {

constexpr const char* message = "the cause";

// The first is -1 as a result, next to success.
constexpr int errors[] = { EPERM, EIO, ETIMEDOUT, 4095 };

std::size_t faultPoints = 0;

class FaultPoints : public testing::Environment {
 public:
   void TearDown() override { std::printf( "%zu fault points tried\n", faultPoints ); }
};

[[maybe_unused]] const auto* const environment =
   testing::AddGlobalTestEnvironment( new FaultPoints );

// A text of the table with the cause that a fault gives in the places for it.
std::string withCause( std::string text, int error, bool withMessage ) {
   const auto replace = [&text]( const std::string& place, const std::string& with ) {
      const std::size_t at = text.find( place );
      if( at != std::string::npos ) {
         text.replace( at, place.size(), with );
      }
   };
   replace( "{errno}", std::string( ": " ) + std::strerror( error ) );
   replace( "{message}", withMessage ? std::string( ": " ) + message : "" );
   return text;
}

class EachOperation : public ClientTest, public testing::WithParamInterface< Operation > {
 protected:
   void prepare() {
      script.forgetLeftOver();
      GetParam().prepare( script );
   }

   // Runs the operation: what it gives, or throws.
   std::string outcome() {
      std::string given;
      const std::string thrown =
         thrownBy( [&] { given = GetParam().run( *client, script ).data(); } );
      return thrown == "nothing" ? given : thrown;
   }

   // The connections that are open may be another one or none, but there is nothing else.
   void expectNothingLeft( std::size_t connections = 1 ) {
      const std::string alive = script.alive();
      EXPECT_LE( std::count( alive.begin(), alive.end(), 'b' ), connections ) << alive;
      EXPECT_EQ( alive.find_first_not_of( "bus0123456789 " ), std::string::npos ) << alive;
      EXPECT_EQ( livingEntities(), "1 Sodrel::Sdbus " );
   }

   // The operation does what it should when nothing fails any more.
   void expectToWork() {
      script.faultIs( 0 );
      prepare();
      EXPECT_EQ( outcome(), GetParam().result );
      EXPECT_EQ( script.leftOver(), "" );
      expectNothingLeft();
   }

   void tryFault( std::size_t number, bool forEver, int error, bool withMessage ) {
      const Step& step = GetParam().steps.at( number - 1 );
      SCOPED_TRACE(
         "call " + std::to_string( number ) + ", " + step.function +
         ( forEver ? ", and all later ones" : "" ) + ", error " + std::to_string( error ) +
         ( withMessage ? " with a message" : "" ) );
      prepare();
      script.faultIs( number, forEver, withMessage ? fails( error, message ) : fails( error ) );
      const std::string expected = forEver && step.forEver ? step.forEver : step.once;
      EXPECT_EQ( outcome(), withCause( expected, error, withMessage ) );
      ASSERT_FALSE( script.faults().empty() );
      EXPECT_EQ( script.faults().front(), step.function );
      expectNothingLeft();
      ++faultPoints;
      expectToWork();
   }

   // Runs the operation with a missing allocation; false when there was none to miss.
   bool tryWithoutMemory( std::size_t number, bool forEver ) {
      SCOPED_TRACE(
         "allocation " + std::to_string( number ) + ( forEver ? ", and all later ones" : "" ) );
      prepare();
      Tessel::String given;
      std::exception_ptr thrown;
      std::size_t failures = 0;
      {
         const LibraryMemory memory( number, forEver );
         try {
            given = GetParam().run( *client, script );
         } catch( ... ) {
            thrown = std::current_exception();
         }
         failures = memory.failures();
      }
      if( thrown ) {
         EXPECT_THROW( std::rethrow_exception( thrown ), std::bad_alloc );
         EXPECT_NE( failures, 0U );
         ++faultPoints;
      } else {
         EXPECT_EQ( given, GetParam().result );
      }
      thrown = nullptr;
      expectNothingLeft();
      expectToWork();
      return failures != 0;
   }
};

TEST_P( EachOperation, reportsEachFailureOfSdbusAndWorksOnAfterIt ) {
   expectToWork();
   const std::size_t before = faultPoints;
   for( std::size_t number = 1; number <= GetParam().steps.size(); ++number ) {
      for( const bool forEver : { false, true } ) {
         for( const int error : errors ) {
            tryFault( number, forEver, error, false );
            tryFault( number, forEver, error, true );
         }
      }
   }
   // The table has all of the operation's calls: one more never comes.
   prepare();
   script.faultIs( GetParam().steps.size() + 1, true, fails( EIO ) );
   EXPECT_EQ( outcome(), GetParam().result );
   EXPECT_TRUE( script.faults().empty() ) << script.faults().front();
   EXPECT_EQ( faultPoints - before, GetParam().steps.size() * 16 );
   EXPECT_GT( faultPoints, before );
}

TEST_P( EachOperation, passesOnThatMemoryIsMissingAndWorksOnAfterIt ) {
   const std::size_t before = faultPoints;
   // First with what is made on first use, then counting what is left.
   for( const bool forEver : { false, true } ) {
      for( std::size_t number = 1; tryWithoutMemory( number, forEver ); ++number ) {
      }
   }
   const std::size_t blocks = libraryBlocks();
   for( const bool forEver : { false, true } ) {
      for( std::size_t number = 1; tryWithoutMemory( number, forEver ); ++number ) {
         EXPECT_EQ( libraryBlocks(), blocks ) << "allocation " << number;
      }
   }
   EXPECT_EQ( libraryBlocks(), blocks );
   EXPECT_EQ( faultPoints > before, GetParam().allocates );
}

using TheSdbusFactory = ScriptedTest;

// Deliberately, a connection stays open when the read after its opening fails.
TEST_F( TheSdbusFactory, leavesNothingButAnOpenConnectionAfterEachFailureOfSdbus ) {
   struct FactoryStep {
      const char* function;
      const char* outcome;
      const char* forEver;
      bool staysOpen;
   };
   constexpr const char* noBus =
      "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus{errno}";
   constexpr const char* noState = "Sodrel::SdbusCallException: Sdbus::managerPropertyS, "
                                   "manager property SystemState read failed{message}";
   // The probe has no connection yet and fails in any case.
   const std::vector< FactoryStep > steps{
      { "probe", "nothing", noBus, false },
      { "sd_bus_open_system", noBus, noBus, false },
      { "sd_bus_get_property_string", noState, noState, true },
   };
   std::size_t opened = 0;
   for( std::size_t number = 1; number <= steps.size(); ++number ) {
      const FactoryStep& step = steps.at( number - 1 );
      for( const bool forEver : { false, true } ) {
         for( const int error : errors ) {
            for( const bool withMessage : { false, true } ) {
               SCOPED_TRACE( step.function );
               const std::string before = script.alive();
               script.faultIs(
                  number, forEver, withMessage ? fails( error, message ) : fails( error ) );
               EXPECT_EQ(
                  thrownBy( [] { (void)sdbusFactory(); } ),
                  withCause( forEver ? step.forEver : step.outcome, error, withMessage ) );
               EXPECT_EQ( script.faults().empty() ? "" : script.faults().front(), step.function );
               EXPECT_EQ( livingEntities(), "" );
               const std::string after = script.alive();
               opened += step.staysOpen ? 1 : 0;
               EXPECT_EQ( std::count( after.begin(), after.end(), 'b' ), opened );
               EXPECT_EQ( after != before, step.staysOpen );
               ++faultPoints;
            }
         }
      }
   }
   EXPECT_EQ( opened, 16U );
   script.faultIs( 0 );
   EXPECT_EQ( thrownBy( [] { (void)sdbusFactory(); } ), "nothing" );
   expectLeftOpen( script.alive() );
}

TEST_F( TheSdbusFactory, passesOnThatMemoryIsMissing ) {
   const std::size_t before = faultPoints;
   for( const bool forEver : { false, true } ) {
      std::size_t failures = 1;
      for( std::size_t number = 1; failures != 0; ++number ) {
         bool missing = false;
         {
            const LibraryMemory memory( number, forEver );
            try {
               (void)sdbusFactory();
            } catch( const std::bad_alloc& ) {
               missing = true;
            }
            failures = memory.failures();
         }
         EXPECT_EQ( missing, failures != 0 );
         EXPECT_EQ( livingEntities(), "" );
         faultPoints += missing ? 1 : 0;
      }
   }
   EXPECT_GT( faultPoints, before );
   EXPECT_EQ( thrownBy( [] { (void)sdbusFactory(); } ), "nothing" );
   // Those of the creations that failed after the opening.
   expectLeftOpen( script.alive() );
   const std::string left = script.alive();
   EXPECT_EQ( left.find_first_not_of( "bus0123456789 " ), std::string::npos ) << left;
}

INSTANTIATE_TEST_SUITE_P(
   OfTheClient, EachOperation, testing::ValuesIn( operations() ),
   []( const auto& instance ) { return std::string( instance.param.name ); } );

} // namespace

} // namespace Sodrel::Test
