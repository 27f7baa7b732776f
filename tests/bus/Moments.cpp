// The sink of traces, and the steady clock that stands in for the standard library's by name.
#include "Moments.h"

#include <chrono>
#include <ctime>

#include <platform/trace/Trace.h>

namespace Sodrel::Test {

namespace {

constexpr long limit = 600'000'000'000;
constexpr unsigned lastReading = 5;

Moments* current = nullptr;

long realTime() {
   timespec real{};
   clock_gettime( CLOCK_MONOTONIC, &real );
   return real.tv_sec * 1'000'000'000 + real.tv_nsec;
}

template< typename Key >
void doOnce( std::map< Key, Moments::Action >& actions, const Key& moment ) {
   const auto action = actions.extract( moment );
   if( action ) {
      action.mapped()();
   }
}

} // namespace

Moments::Moments() {
   current = this;
   Orl::traceLevelsIs( "Sodrel", Orl::allTraceLevels );
   Orl::traceLevelsIs( "SignalMonitor", Orl::allTraceLevels );
   Tessel::traceSinkIs( this );
}

Moments::~Moments() {
   Tessel::traceSinkIs( nullptr );
   Orl::traceLevelsIs( "Sodrel", 0 );
   Orl::traceLevelsIs( "SignalMonitor", 0 );
   current = nullptr;
}

void Moments::atTrace( unsigned number, Action action ) {
   traceActions[static_cast< unsigned >( collected.size() ) + number] = std::move( action );
}

void Moments::atReading( unsigned number, Action action, unsigned wait ) {
   readingActions[{ wait, number }] = std::move( action );
}

void Moments::hurryWaits( bool hurry ) {
   hurried = hurry;
}

void Moments::clear() {
   collected.clear();
   traceActions.clear();
   readingActions.clear();
   waits = 0;
}

void Moments::traceIs( const Tessel::TextTrace& trace ) {
   const std::string operation = trace.function;
   if( operation == "wait" ) {
      ++waits;
      readings = 0;
   }
   collected.push_back(
      operation + '/' + std::to_string( trace.level ) + ": " + std::string( trace.text ) );
   doOnce( traceActions, static_cast< unsigned >( collected.size() ) );
}

long Moments::read() {
   ++readings;
   doOnce( readingActions, { waits, readings } );
   if( !hurried ) {
      return realTime();
   }
   const long microsecondsLeft = readings < lastReading ? lastReading - readings : 0;
   return readings == 1 ? 0 : limit - microsecondsLeft * 1'000;
}

} // namespace Sodrel::Test

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
   using Sodrel::Test::current;
   return time_point( nanoseconds( current ? current->read() : Sodrel::Test::realTime() ) );
}
