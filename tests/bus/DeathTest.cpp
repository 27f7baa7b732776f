// The death of the bus or of the manager, and the loss of its name, at every step of every
// operation.
#include <algorithm>
#include <iostream>
#include <ostream>
#include <string>
#include <vector>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string refused = ": Connection refused";
const std::string noReply = ": Message recipient disconnected from message bus without replying";

// What an operation does next.
struct Step {
   enum class Kind { trace, open, probe, match, call, wait };
   Kind kind;
   // The call that the manager receives, if any, and what the manager then does.
   std::string call = {};
   Script script = {};
   // The beginnings of the failure's texts, and the timeout of a wait.
   std::string failure = {};
   std::string timeout = {};
};

using Kind = Step::Kind;
using Steps = std::vector< Step >;

const Step traced{ Kind::trace };
const Step opened{ Kind::open };
const Step probed{ Kind::probe, "Get SystemState", { alive() } };

Step matched( const std::string& failure ) {
   return { Kind::match, {}, {}, syncFailed + failure };
}

Step called( const std::string& operation, const Script& script ) {
   return { Kind::call, callOf( operation ), script, failureOf( operation ) };
}

Step waited( const std::string& monitor, const std::string& object = "" ) {
   const std::string failure = syncFailed + monitor + "::wait, ";
   return { Kind::wait, {}, {}, failure, failure + "600.000000 timeout" + object };
}

struct Operation {
   std::string words;
   std::string result;
   Steps steps;

   friend void PrintTo( const Operation& operation, std::ostream* stream ) {
      *stream << operation.words;
   }
};

enum class Death { ofTheBus, ofTheManager, ofItsName };

// A death at a step: at a trace, in a call instead of the reply, or at the beginning of a wait.
// `said` is how many of the messages before a reply, or after it during a wait, have been sent.
struct Point {
   Death death;
   size_t step;
   long said;
   bool saidAll;
};

long replyAt( const Script& script ) {
   return std::ranges::find_if( script, &Action::isReply ) - script.begin();
}

// Returns the last call before a wait, whose script contains what is awaited.
size_t callBefore( const Steps& steps, size_t wait ) {
   while( steps[wait].kind != Kind::call ) {
      --wait;
   }
   return wait;
}

std::vector< Point > pointsOf( const Steps& steps, Death death ) {
   std::vector< Point > points;
   for( size_t i = 0; i < steps.size(); ++i ) {
      long most = -1;
      if( steps[i].kind == Kind::trace ) {
         most = 0;
      } else if( steps[i].kind == Kind::probe || steps[i].kind == Kind::call ) {
         most = replyAt( steps[i].script );
      } else if( steps[i].kind == Kind::wait ) {
         const Script& script = steps[callBefore( steps, i )].script;
         most = static_cast< long >( script.size() ) - 1 - replyAt( script );
      }
      for( long said = 0; said <= most; ++said ) {
         points.push_back( { death, i, said, said == most } );
      }
   }
   return points;
}

// Returns the outcome of an operation that continues with this step after the death.
std::string
outcomeFrom( const Operation& operation, size_t first, Death death, bool saidAll = false ) {
   const bool busIsDead = death == Death::ofTheBus;
   for( size_t i = first; i < operation.steps.size(); ++i ) {
      const Step& step = operation.steps[i];
      if( step.kind == Kind::call ) {
         return step.failure + ( busIsDead ? reset : nameIsGone );
      }
      if( busIsDead && ( step.kind == Kind::open || step.kind == Kind::probe ) ) {
         return notOpened + refused;
      }
      if( busIsDead && step.kind == Kind::match ) {
         return step.failure + reset;
      }
      if( step.kind == Kind::wait && ( busIsDead || !saidAll ) ) {
         return busIsDead ? step.failure + "sd_bus_process failed" + reset : step.timeout;
      }
   }
   return operation.result;
}

// A dying bus closes its connections before its socket, so a reconnection may still reach it, which
// only the next message reveals.
testing::Matcher< std::string > outcomesOfRenewal( const Operation& operation, size_t probe ) {
   const auto next = std::find_if(
      operation.steps.begin() + static_cast< long >( probe ), operation.steps.end(),
      []( const Step& step ) { return !step.failure.empty(); } );
   Texts outcomes;
   for( const std::string& reason : { refused, reset, std::string( ": Broken pipe" ),
                                      std::string( ": Transport endpoint is not connected" ) } ) {
      outcomes.push_back( notOpened + reason );
      outcomes.push_back(
         next == operation.steps.end() ? operation.result : next->failure + reason );
   }
   return testing::AnyOfArray( outcomes );
}

testing::Matcher< std::string > outcomeAt( const Operation& operation, const Point& point ) {
   const Step& step = operation.steps[point.step];
   if( step.kind == Kind::trace || step.kind == Kind::wait ) {
      return outcomeFrom( operation, point.step, point.death, point.saidAll );
   }
   if( point.death == Death::ofTheBus && step.kind == Kind::probe ) {
      return outcomesOfRenewal( operation, point.step );
   }
   if( step.kind == Kind::call && point.death != Death::ofItsName ) {
      return step.failure + ( point.death == Death::ofTheBus ? reset : noReply );
   }
   // The call still gets its reply, and a probe without a reply only costs the connection.
   return outcomeFrom( operation, point.step + 1, point.death );
}

class ADeath : public ALibraryClient, public testing::WithParamInterface< Operation > {
 protected:
   Action dying( Death death ) {
      return death == Death::ofTheBus       ? killBus( bus )
             : death == Death::ofTheManager ? disconnect()
                                            : releaseName();
   }

   // Returns what the manager does for a call during which the death occurs.
   Script interrupted( const Script& script, const Point& point ) {
      Script result( script.begin(), script.begin() + point.said );
      result.push_back( dying( point.death ) );
      if( point.death == Death::ofItsName ) {
         result.insert( result.end(), script.begin() + point.said, script.end() );
      }
      return result;
   }

   // Arranges the death at this point. Each wait begins when the manager has sent everything.
   void prepare( const Point& point ) {
      const Steps& steps = GetParam().steps;
      const Step& last = steps[point.step];
      unsigned waits = 0;
      unsigned traces = 0;
      for( size_t i = 0; i <= point.step; ++i ) {
         const Step& step = steps[i];
         const Script atEnd = i == point.step ? Script{ dying( point.death ) } : Script{};
         if( step.kind == Kind::trace ) {
            moments.atTrace( ++traces, [this, atEnd] { manager.run( atEnd ); } );
         } else if( step.kind == Kind::wait ) {
            moments.atReading(
               1, [this, atEnd] { manager.run( atEnd ); }, ++waits );
         } else if(
            step.kind == Kind::call || ( step.kind == Kind::probe && last.kind == step.kind ) ) {
            Script script = i == point.step ? interrupted( step.script, point ) : step.script;
            if( last.kind == Kind::wait && i == callBefore( steps, point.step ) ) {
               script.resize( static_cast< size_t >( replyAt( script ) + 1 + point.said ) );
            }
            manager.onCall( step.call, script );
         }
      }
   }

   std::string runWell() {
      for( const Step& step : GetParam().steps ) {
         if( step.kind == Kind::call ) {
            manager.onCall( step.call, step.script );
         }
      }
      return outcomeOf( GetParam().words );
   }

   void heal( Death death ) {
      manager.run( {} );
      moments.clear();
      moments.hurryWaits( false );
      if( death == Death::ofTheBus ) {
         bus.start();
      }
      manager.start();
   }
};

TEST_P( ADeath, atAnyStepIsReportedAndTheClientWorksAfterwards ) {
   const Steps& steps = GetParam().steps;
   moments.clear();
   ASSERT_EQ( runWell(), GetParam().result );
   ASSERT_EQ( moments.lines().size(), std::ranges::count( steps, Kind::trace, &Step::kind ) );
   for( const Death death : { Death::ofTheBus, Death::ofTheManager, Death::ofItsName } ) {
      for( const Point& point : pointsOf( steps, death ) ) {
         // If the test hangs, the last of these shows where.
         std::cout << "death " << static_cast< int >( death ) << " at step " << point.step
                   << " after " << point.said << " signals" << std::endl;
         moments.clear();
         moments.hurryWaits( true );
         prepare( point );
         EXPECT_THAT( outcomeOf( GetParam().words ), outcomeAt( GetParam(), point ) );
         heal( death );
         EXPECT_EQ( runWell(), GetParam().result );
      }
   }
}

Operation unitReload( const char* method ) {
   const std::string words = std::string( method ) + " web.service replace";
   return {
      "managerCallSsO " + words,
      jobOf( 7 ),
      { traced, probed, traced, probed,
        called(
           "asyncManagerCallSO GetUnit web.service",
           { reply( body( "o", unitPath( "web.service" ) ) ) } ),
        traced,
        matched(
           "UnitReloadingMonitor::handleInitialized, failed to register PropertiesChanged monitor "
           "for " +
           unitPath( "web.service" ) ),
        traced, probed,
        called(
           "asyncManagerCallSsO " + words,
           { activeState( "web.service", "active" ), replyJob( 7 ),
             activeState( "web.service", "reloading" ), activeState( "web.service", "active" ) } ),
        traced, waited( "UnitReloadingMonitor" ), traced },
   };
}

const Script whileDoing{ jobRemoved( 6, "done" ), replyJob( 7 ), jobRemoved( 8, "failed" ),
                         jobRemoved( 7, "done" ) };
const Step jobMatched =
   matched( "JobRemovedMonitor::handleInitialized, failed to register JobRemoved monitor" );
const Step jobWaited = waited( "JobRemovedMonitor", " for " + jobOf( 7 ) );
const Step reloadMatched =
   matched( "DaemonReloadingMonitor::handleInitialized, failed to register Reloading monitor" );
const Step reloadWaited = waited( "DaemonReloadingMonitor" );

Step reloadCalled( const Script& script ) {
   return called( "asyncManagerCall Reload", script );
}

const Script whileReloading{ reloading( true ), reply(), reloading( false ) };

const Operation operations[]{
   { "sdbus", "connected", { probed } },
   { "creation",
     "created",
     { traced, traced, opened, called( "managerPropertyS SystemState", { alive() } ), traced,
       traced } },
   { "managerPropertyS Version",
     "252",
     { traced, probed,
       called( "managerPropertyS Version", { reply( body( "v", "s", "252" ) ) } ) } },
   { "managerPropertyB ShowStatus",
     "true",
     { traced, probed,
       called( "managerPropertyB ShowStatus", { reply( body( "v", "b", true ) ) } ) } },
   { "unitPropertyS x Id",
     "X",
     { traced, traced, probed,
       called( "asyncManagerCallSO GetUnit x", { reply( body( "o", unitPath( "x" ) ) ) } ), probed,
       called( "unitPropertyS x Id", { reply( body( "v", "s", "X" ) ) } ) } },
   { "asyncManagerCall Reload", "called", { traced, probed, reloadCalled( { reply() } ) } },
   { "asyncManagerCallSO LoadUnit x",
     "/x",
     { traced, probed,
       called( "asyncManagerCallSO LoadUnit x", { reply( body( "o", "/x" ) ) } ) } },
   { "asyncManagerCallSsO StartUnit x fail",
     jobOf( 7 ),
     { traced, probed, called( "asyncManagerCallSsO StartUnit x fail", { replyJob( 7 ) } ) } },
   { "managerCall Reload",
     "called",
     { traced, probed, traced, reloadMatched, traced, probed, reloadCalled( whileReloading ),
       traced, reloadWaited, traced } },
   { "managerCall Reload",
     "called",
     { traced, probed, traced, reloadMatched, traced, probed,
       reloadCalled( { reply(), reloading( false ) } ), traced, reloadWaited, traced, probed,
       reloadCalled( whileReloading ), traced, reloadWaited, traced } },
   { "managerCallSO Mark x",
     jobOf( 7 ),
     { traced, probed, traced, jobMatched, traced, probed,
       called( "asyncManagerCallSO Mark x", whileDoing ), traced, jobWaited, traced } },
   { "managerCallSsO StartUnit x fail",
     jobOf( 7 ),
     { traced, probed, traced, jobMatched, traced, probed,
       called( "asyncManagerCallSsO StartUnit x fail", whileDoing ), traced, jobWaited, traced } },
   unitReload( "ReloadUnit" ),
   unitReload( "ReloadOrRestartUnit" ),
};

INSTANTIATE_TEST_SUITE_P(
   During, ADeath, testing::ValuesIn( operations ), []( const auto& operation ) {
      return nameOf( operation.param.words ) + std::to_string( operation.index );
   } );

} // namespace

} // namespace SodrelTest
