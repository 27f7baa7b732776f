// Points inside an operation of the library at which a test can step in.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <platform/trace/TextTrace.h>

namespace SodrelTest {

// Collects the library's text traces, and acts at chosen ones and at readings of the clock.
//
// From hurryWaits on, the steady clock of this process leaps at the second reading of each wait:
// the wait tests for its event three times, lets sd-bus wait some microseconds in between, and then
// runs out of its 600 s. Nothing is lost that has arrived before the second reading.
class Moments : public Tessel::TraceSink {
 public:
   using Action = std::function< void() >;

   Moments();
   Moments( const Moments& ) = delete;
   Moments& operator=( const Moments& ) = delete;
   ~Moments();

   // Does something once, at the n-th trace from now on.
   void atTrace( unsigned number, Action action );
   // Does something once, before the n-th reading in the m-th wait since the last clear.
   void atReading( unsigned number, Action action, unsigned wait = 1 );
   void hurryWaits( bool hurry );

   // Forgets the actions that are left, the waits and the traces.
   void clear();

   // The traces so far, as "operation/level: text".
   const std::vector< std::string >& lines() const { return collected_; }

   void traceIs( const Tessel::TextTrace& trace ) override;
   // The nanoseconds that the steady clock shows.
   std::int64_t read();

 private:
   std::vector< std::string > collected_;
   void reach( unsigned wait, unsigned number );

   // By the wait and the number of the reading in it, or by 0 and the number of the trace.
   std::map< std::pair< unsigned, unsigned >, Action > actions_;
   unsigned waits_ = 0;
   unsigned readings_ = 0;
   bool hurried_ = false;
};

} // namespace SodrelTest
