// The death of the bus or of the manager, and the loss of its name, at every point of every
// operation.
#include <algorithm>
#include <csignal>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <unistd.h>

#include "BusWitness.h"
#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

const std::string notOpened = "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus";
const std::string refused = ": Connection refused";
const std::string reset = ": Connection reset by peer";
const std::string brokenPipe = ": Broken pipe";
const std::string notConnected = ": Transport endpoint is not connected";
const std::string nameIsGone = ": The name org.freedesktop.systemd1 was not provided by any "
                               ".service files";
const std::string noReply = ": Message recipient disconnected from message bus without replying";

// What an operation does next.
struct Step {
   enum class Kind { trace, open, probe, match, call, wait };
   Kind kind;
   // The manager's call, if it gets one, and what it does then.
   std::string call;
   Script script;
   // How the texts of the failure begin, and the time-out of a wait.
   std::string failure;
   std::string timeout;
};

using Steps = std::vector< Step >;

const Step traced{ Step::Kind::trace, {}, {}, {}, {} };
const Step opened{ Step::Kind::open, {}, {}, {}, {} };
const Step probed{ Step::Kind::probe, "Get SystemState", { alive() }, {}, {} };

Step matched( const std::string& failure ) {
   return { Step::Kind::match, {}, {}, "Sodrel::SdbusSyncException: " + failure, {} };
}

Step called( const std::string& call, const Script& script, const std::string& failure ) {
   return { Step::Kind::call, call, script, "Sodrel::SdbusCallException: Sdbus::" + failure, {} };
}

Step waited( const std::string& monitor, const std::string& object = "" ) {
   const std::string failure = "Sodrel::SdbusSyncException: " + monitor + "::wait, ";
   return { Step::Kind::wait, {}, {}, failure, failure + "600.000000 timeout" + object };
}

struct Operation {
   const char* name;
   std::function< Tessel::String( Tessel::Ptr< Sdbus >& ) > run;
   std::string result;
   Steps steps;

   friend void PrintTo( const Operation& operation, std::ostream* stream ) {
      *stream << operation.name;
   }
};

enum class Death { ofTheBus, ofTheManager, ofItsName };

// Before a step, or within its script, after so many actions.
struct Point {
   Death death;
   size_t step;
   size_t kept;

   std::string text() const {
      const char* const names[]{ "bus", "manager", "name" };
      return std::string( "death of the " ) + names[static_cast< int >( death )] + " at step " +
             std::to_string( step ) + " after " + std::to_string( kept ) + " actions";
   }
};

bool holdsReply( const Script& script, size_t kept ) {
   for( size_t i = 0; i < kept; ++i ) {
      if( script[i].kind == Action::Kind::reply ) {
         return true;
      }
   }
   return false;
}

// What may come of an operation that goes on with this step after the death.
std::set< std::string > outcomesFrom( const Operation& operation, size_t step, Death death ) {
   const bool busIsDead = death == Death::ofTheBus;
   for( ; step < operation.steps.size(); ++step ) {
      const Step& next = operation.steps[step];
      switch( next.kind ) {
      case Step::Kind::trace:
         break;
      case Step::Kind::open:
      case Step::Kind::probe:
         if( busIsDead ) {
            return { notOpened + refused };
         }
         break;
      case Step::Kind::match:
         if( busIsDead ) {
            return { next.failure + reset };
         }
         break;
      case Step::Kind::call:
         return { next.failure + ( busIsDead ? reset : nameIsGone ) };
      case Step::Kind::wait:
         return { busIsDead ? next.failure + "sd_bus_process failed" + reset : next.timeout };
      }
   }
   return { operation.result };
}

// The same while the death takes place. A dying bus may still answer a match, and it loses its
// clients before its socket, so that a renewed connection may lead to it once more.
std::set< std::string > outcomesAmid( const Operation& operation, size_t step, Death death ) {
   std::set< std::string > outcomes = outcomesFrom( operation, step, death );
   if( death == Death::ofItsName ) {
      return outcomes;
   }
   for( ; step < operation.steps.size(); ++step ) {
      const Step& next = operation.steps[step];
      if( next.kind == Step::Kind::wait ) {
         return outcomes;
      }
      if( next.kind == Step::Kind::probe && death == Death::ofTheManager ) {
         return outcomes;
      }
      if( next.kind == Step::Kind::call && death == Death::ofTheManager ) {
         outcomes.insert( next.failure + noReply );
         return outcomes;
      }
      if( next.kind == Step::Kind::open || next.kind == Step::Kind::probe ) {
         for( const std::string& reason : { refused, reset, brokenPipe, notConnected } ) {
            outcomes.insert( notOpened + reason );
         }
      }
      if( next.kind == Step::Kind::match || next.kind == Step::Kind::call ) {
         for( const std::string& reason : { reset, brokenPipe, notConnected } ) {
            outcomes.insert( next.failure + reason );
         }
      }
      if( next.kind == Step::Kind::call ) {
         return outcomes;
      }
   }
   outcomes.insert( operation.result );
   return outcomes;
}

// The step after the given one, and after a wait that sees all that the manager has to say.
size_t pastWait( const Steps& steps, size_t step ) {
   do {
      ++step;
   } while( step < steps.size() && steps[step].kind == Step::Kind::trace );
   return step < steps.size() && steps[step].kind == Step::Kind::wait ? step + 1 : step;
}

std::set< std::string > outcomesAt( const Operation& operation, const Point& point ) {
   const Step& step = operation.steps[point.step];
   const bool said = point.kept == step.script.size() && point.death != Death::ofTheBus;
   if( step.kind == Step::Kind::trace ) {
      return outcomesFrom(
         operation, said ? pastWait( operation.steps, point.step ) : point.step, point.death );
   }
   if( point.death == Death::ofItsName || holdsReply( step.script, point.kept ) ) {
      return outcomesAmid(
         operation, said ? pastWait( operation.steps, point.step ) : point.step + 1, point.death );
   }
   if( point.death == Death::ofTheBus ) {
      return outcomesAmid( operation, point.step, point.death );
   }
   // The bus tells that the manager has gone.
   return step.kind == Step::Kind::call ? std::set< std::string >{ step.failure + noReply }
                                        : outcomesFrom( operation, point.step + 1, point.death );
}

// Whether the client may be quicker than the death: a manager that gives up its name only after its
// reply can still get the next call. Without the reply before it, the same death is no race.
bool isRace( const Steps& steps, const Point& point ) {
   return point.death == Death::ofItsName && holdsReply( steps[point.step].script, point.kept ) &&
          steps[pastWait( steps, point.step ) - 1].kind != Step::Kind::wait;
}

// A hang ends the process, and is told by name.
std::string watched;

void onAlarm( int ) {
   const char text[] = "The operation hangs: ";
   (void)!write( STDERR_FILENO, text, sizeof text - 1 );
   (void)!write( STDERR_FILENO, watched.c_str(), watched.size() );
   (void)!write( STDERR_FILENO, "\n", 1 );
   _exit( 1 );
}

class ADeath : public ALibraryClient, public testing::WithParamInterface< Operation > {
 protected:
   ADeath() { std::signal( SIGALRM, onAlarm ); }
   ~ADeath() override { alarm( 0 ); }

   std::string run() {
      return outcomeOf( [&] { return GetParam().run( client ); } );
   }

   // Tells the manager what to do for the calls of the operation before this step. Probes count
   // only where one of them is the step: they get the same answer without a script.
   void script( size_t step ) {
      const Steps& steps = GetParam().steps;
      const bool withProbes = step < steps.size() && steps[step].kind == Step::Kind::probe;
      for( size_t i = 0; i < step; ++i ) {
         if( !steps[i].script.empty() && ( withProbes || steps[i].kind != Step::Kind::probe ) ) {
            manager.onCall( steps[i].call, steps[i].script );
         }
      }
   }

   void die( Death death, BusWitness& witness ) {
      switch( death ) {
      case Death::ofTheBus:
         return bus.kill();
      case Death::ofTheManager:
         manager.kill();
         return witness.awaitLossOfName();
      case Death::ofItsName:
         return manager.run( { releaseName() } );
      }
   }

   void awaitDeath( Death death, BusWitness& witness ) {
      switch( death ) {
      case Death::ofTheBus:
         return witness.awaitEndOfBus();
      case Death::ofTheManager:
         manager.awaitEnd();
         return witness.awaitLossOfName();
      case Death::ofItsName:
         return manager.run( {} );
      }
   }

   // The outcome of the operation with the death at this point of it.
   std::string outcomeAt( const Point& point ) {
      const Steps& steps = GetParam().steps;
      const Step& step = steps[point.step];
      BusWitness witness( bus );
      moments.clear();
      moments.hurryWaits( true );
      script( point.step );
      // Each wait begins when the manager has said all.
      unsigned waits = 0;
      unsigned traces = 0;
      for( size_t i = 0; i <= point.step; ++i ) {
         traces += steps[i].kind == Step::Kind::trace;
         if( steps[i].kind == Step::Kind::wait ) {
            moments.atReading(
               1, [&] { manager.run( {} ); }, ++waits );
         }
      }
      if( step.kind == Step::Kind::trace ) {
         moments.atTrace( traces, [&] {
            manager.run( {} );
            die( point.death, witness );
         } );
         return run();
      }
      const auto kept = step.script.begin() + static_cast< long >( point.kept );
      Script cut( step.script.begin(), kept );
      switch( point.death ) {
      case Death::ofTheBus:
         cut.push_back( killBus() );
         break;
      case Death::ofTheManager:
         cut.push_back( Sodrel::Test::die() );
         break;
      case Death::ofItsName:
         cut.push_back( releaseName() );
         cut.insert( cut.end(), kept, step.script.end() );
      }
      manager.onCall( step.call, cut );
      // That after the call begins when it has done its worst.
      moments.atReading(
         1, [&] { awaitDeath( point.death, witness ); }, waits + 1 );
      const std::string outcome = run();
      awaitDeath( point.death, witness );
      return outcome;
   }

   void heal( Death death ) {
      moments.clear();
      moments.hurryWaits( false );
      if( death == Death::ofTheBus ) {
         bus.start();
      }
      manager.start();
      script( GetParam().steps.size() );
   }
};

TEST_P( ADeath, atAnyPointIsReportedAndTheClientWorksOnAfterwards ) {
   const Steps& steps = GetParam().steps;
   moments.clear();
   script( steps.size() );
   ASSERT_EQ( run(), GetParam().result );
   ASSERT_EQ(
      moments.lines().size(), std::count_if( steps.begin(), steps.end(), []( const Step& step ) {
         return step.kind == Step::Kind::trace;
      } ) );
   unsigned points = 0;
   for( const Death death : { Death::ofTheBus, Death::ofTheManager, Death::ofItsName } ) {
      for( size_t i = 0; i < steps.size(); ++i ) {
         if( steps[i].kind != Step::Kind::trace && steps[i].script.empty() ) {
            continue;
         }
         for( size_t kept = 0; kept == 0 || kept <= steps[i].script.size(); ++kept ) {
            const Point point{ death, i, kept };
            if( isRace( steps, point ) ) {
               continue;
            }
            SCOPED_TRACE( point.text() );
            watched = GetParam().name + ( ", " + point.text() );
            alarm( 20 );
            ++points;
            EXPECT_THAT( outcomesAt( GetParam(), point ), testing::Contains( outcomeAt( point ) ) );
            heal( death );
            EXPECT_EQ( run(), GetParam().result );
         }
      }
   }
   RecordProperty( "points", std::to_string( points ) );
}

Script whileReloading( const Body& job ) {
   return { activeState( "web.service", "active" ), reply( job ),
            activeState( "web.service", "reloading" ), activeState( "web.service", "active" ) };
}

Operation unitReload( const char* method ) {
   const std::string call = std::string( method ) + " web.service replace";
   return {
      method,
      [method]( Tessel::Ptr< Sdbus >& client ) {
         return client->managerCallSsO( method, "web.service", "replace", false );
      },
      jobOf( 7 ),
      { traced, probed, traced, probed,
        called(
           "GetUnit", { reply( body( "o", unitPath( "web.service" ) ) ) },
           "asyncManagerCallSO, sd-bus call GetUnit web.service failed" ),
        traced,
        matched(
           "UnitReloadingMonitor::handleInitialized, failed to register PropertiesChanged monitor "
           "for " +
           unitPath( "web.service" ) ),
        traced, probed,
        called(
           method, whileReloading( jobPath( 7 ) ),
           "asyncManagerCallSsO, sd-bus call " + call + " failed" ),
        traced, waited( "UnitReloadingMonitor" ), traced },
   };
}

const Script whileDoing{ jobRemoved( 6, "done" ), reply( jobPath( 7 ) ), jobRemoved( 8, "failed" ),
                         jobRemoved( 7, "done" ) };
const Step jobMatched =
   matched( "JobRemovedMonitor::handleInitialized, failed to register JobRemoved monitor" );
const Step jobWaited = waited( "JobRemovedMonitor", " for " + jobOf( 7 ) );
const Step reloadMatched =
   matched( "DaemonReloadingMonitor::handleInitialized, failed to register Reloading monitor" );

Step reloadCalled( const Script& script ) {
   return called( "Reload", script, "asyncManagerCall, sd-bus call Reload failed" );
}

const Script whileReloadingAll{ reloading( true ), reply(), reloading( false ) };

const Operation operations[]{
   { "sdbus",
     []( Tessel::Ptr< Sdbus >& client ) {
        return Tessel::String( client->sdbus() ? "connected" : "null" );
     },
     "connected",
     { probed } },
   { "creation",
     []( Tessel::Ptr< Sdbus >& client ) {
        client = nullptr;
        client = Creation().client();
        return Tessel::String( client ? "created" : "null" );
     },
     "created",
     { traced, traced, traced, opened,
       called(
          "Get SystemState", { alive() },
          "managerPropertyS, manager property SystemState read failed" ),
       traced } },
   { "managerPropertyS",
     []( Tessel::Ptr< Sdbus >& client ) { return client->managerPropertyS( "Version" ); },
     "252",
     { traced, probed,
       called(
          "Get Version", { reply( body( "v", "s", "252" ) ) },
          "managerPropertyS, manager property Version read failed" ) } },
   { "managerPropertyB",
     []( Tessel::Ptr< Sdbus >& client ) {
        return Tessel::String( client->managerPropertyB( "ShowStatus" ) ? "true" : "false" );
     },
     "true",
     { traced, probed,
       called(
          "Get ShowStatus", { reply( body( "v", "b", true ) ) },
          "managerPropertyB, manager property ShowStatus read failed" ) } },
   { "unitPropertyS",
     []( Tessel::Ptr< Sdbus >& client ) { return client->unitPropertyS( "x", "Id" ); },
     "X",
     { traced, traced, probed,
       called(
          "GetUnit", { reply( body( "o", "/org/freedesktop/systemd1/unit/x" ) ) },
          "asyncManagerCallSO, sd-bus call GetUnit x failed" ),
       probed,
       called(
          "Get Id", { reply( body( "v", "s", "X" ) ) },
          "unitPropertyS, read failed for property Id of x" ) } },
   { "asyncManagerCall",
     []( Tessel::Ptr< Sdbus >& client ) {
        client->asyncManagerCall( "Reload" );
        return Tessel::String( "called" );
     },
     "called",
     { traced, probed, reloadCalled( { reply() } ) } },
   { "asyncManagerCallSO",
     []( Tessel::Ptr< Sdbus >& client ) { return client->asyncManagerCallSO( "LoadUnit", "x" ); },
     "/x",
     { traced, probed,
       called(
          "LoadUnit", { reply( body( "o", "/x" ) ) },
          "asyncManagerCallSO, sd-bus call LoadUnit x failed" ) } },
   { "asyncManagerCallSsO",
     []( Tessel::Ptr< Sdbus >& client ) {
        return client->asyncManagerCallSsO( "StartUnit", "x", "fail" );
     },
     jobOf( 7 ),
     { traced, probed,
       called(
          "StartUnit", { reply( jobPath( 7 ) ) },
          "asyncManagerCallSsO, sd-bus call StartUnit x fail failed" ) } },
   { "managerCall",
     []( Tessel::Ptr< Sdbus >& client ) {
        client->managerCall( "Reload", false );
        return Tessel::String( "reloaded" );
     },
     "reloaded",
     { traced, probed, traced, reloadMatched, traced, probed, reloadCalled( whileReloadingAll ),
       traced, waited( "DaemonReloadingMonitor" ), traced } },
   { "managerCallRepeated",
     []( Tessel::Ptr< Sdbus >& client ) {
        client->managerCall( "Reload", false );
        return Tessel::String( "reloaded" );
     },
     "reloaded",
     { traced, probed, traced, reloadMatched, traced, probed,
       reloadCalled( { reply(), reloading( false ) } ), traced, waited( "DaemonReloadingMonitor" ),
       traced, probed, reloadCalled( whileReloadingAll ), traced,
       waited( "DaemonReloadingMonitor" ), traced } },
   { "managerCallSO",
     []( Tessel::Ptr< Sdbus >& client ) { return client->managerCallSO( "Mark", "x", false ); },
     jobOf( 7 ),
     { traced, probed, traced, jobMatched, traced, probed,
       called( "Mark", whileDoing, "asyncManagerCallSO, sd-bus call Mark x failed" ), traced,
       jobWaited, traced } },
   { "managerCallSsO",
     []( Tessel::Ptr< Sdbus >& client ) {
        return client->managerCallSsO( "StartUnit", "x", "fail", false );
     },
     jobOf( 7 ),
     { traced, probed, traced, jobMatched, traced, probed,
       called(
          "StartUnit", whileDoing, "asyncManagerCallSsO, sd-bus call StartUnit x fail failed" ),
       traced, jobWaited, traced } },
   unitReload( "ReloadUnit" ),
   unitReload( "ReloadOrRestartUnit" ),
};

INSTANTIATE_TEST_SUITE_P(
   During, ADeath, testing::ValuesIn( operations ),
   []( const auto& operation ) { return operation.param.name; } );

} // namespace

} // namespace Sodrel::Test
