// Receives the traces of one facility in the program instead of on standard error.
//
//    own-sink
#include <Sodrel/Sodrel.h>
#include <platform/trace/TextTrace.h>

#include <cstdio>

namespace {

// Called on the thread that traces, possibly on several threads at once. The text may hold control
// characters: escape them before they reach a terminal or a log.
class Sink : public Tessel::TraceSink {
 public:
   void traceIs( const Tessel::TextTrace& trace ) override {
      std::printf(
         "%s, level %d, %s: %.*s\n", trace.facility, trace.level, trace.function,
         static_cast< int >( trace.text.size() ), trace.text.data() );
   }
};

} // namespace

int main() {
   Sink sink;
   Tessel::traceSinkIs( &sink );
   Orl::TraceHandle( "Sodrel", false )
      .levelsIs( Orl::TraceLevels{ 1 } << 8 | Orl::TraceLevels{ 1 } << 9 );
   try {
      auto systemd = Sodrel::sdbusFactory();
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
   }
   // Nothing is traced any more, so the sink can be destroyed.
   Tessel::traceSinkIs( nullptr );
}
