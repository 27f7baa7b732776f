// The first record of a trace point in a file: its description.
#include <platform/trace/Trace.h>

#include <platform/value/Assert.h>

namespace Tessel {

bool TracePoint::describe( Fennet::TraceFile& file, std::span< const char* const > codes ) const {
   TESSEL_ASSERT( msgId_ >= 0, "bool Tessel::TracePoint::describe" );
   Fennet::MsgDesc description( file, msgId_, file_, line_ );
   for( const char* code : codes ) {
      description.formatString().put( code );
   }
   Fennet::msgDesc( description, "", function_, format_ );
   description.facilityIs( facility_().name(), level_ );
   return description.finish();
}

} // namespace Tessel
