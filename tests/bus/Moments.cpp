// The sink of traces, and the steady clock that stands in for the standard library's by name.
#include "Moments.h"

#include <chrono>
#include <ctime>

#include <platform/trace/Trace.h>
#include <support/LibraryTraces.h>

namespace SodrelTest {

namespace {

constexpr std::int64_t limit = 600'000'000'000;
constexpr unsigned lastReading = 5;
constexpr unsigned outsideOfWaits = 0;

Moments* current = nullptr;

std::int64_t realTime() {
   timespec real{};
   clock_gettime( CLOCK_MONOTONIC, &real );
   return std::int64_t{ real.tv_sec } * 1'000'000'000 + real.tv_nsec;
}

} // namespace

Moments::Moments() {
   current = this;
   libraryTraceLevelsAre( Orl::allTraceLevels );
   Tessel::traceSinkIs( this );
}

Moments::~Moments() {
   Tessel::traceSinkIs( nullptr );
   libraryTraceLevelsAre( 0 );
   current = nullptr;
}

void Moments::atTrace( unsigned number, Action action ) {
   actions_[{ outsideOfWaits, static_cast< unsigned >( collected_.size() ) + number }] =
      std::move( action );
}

void Moments::atReading( unsigned number, Action action, unsigned wait ) {
   actions_[{ wait, number }] = std::move( action );
}

void Moments::hurryWaits( bool hurry ) {
   hurried_ = hurry;
}

void Moments::clear() {
   collected_.clear();
   actions_.clear();
   waits_ = 0;
}

void Moments::traceIs( const Tessel::TextTrace& trace ) {
   const std::string operation = trace.function;
   if( operation == "wait" ) {
      ++waits_;
      readings_ = 0;
   }
   collected_.push_back(
      operation + '/' + std::to_string( trace.level ) + ": " + std::string( trace.text ) );
   reach( outsideOfWaits, static_cast< unsigned >( collected_.size() ) );
}

std::int64_t Moments::read() {
   ++readings_;
   if( waits_ > 0 ) {
      reach( waits_, readings_ );
   }
   if( !hurried_ ) {
      return realTime();
   }
   const std::int64_t microsecondsLeft = readings_ < lastReading ? lastReading - readings_ : 0;
   return readings_ == 1 ? 0 : limit - microsecondsLeft * 1'000;
}

void Moments::reach( unsigned wait, unsigned number ) {
   const auto action = actions_.extract( { wait, number } );
   if( action ) {
      action.mapped()();
   }
}

} // namespace SodrelTest

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
   using SodrelTest::current;
   return time_point( nanoseconds( current ? current->read() : SodrelTest::realTime() ) );
}
