// The record of a trace point, and before the first one in a file its description.
#include <platform/trace/Trace.h>

#include <platform/trace/Line.h>
#include <platform/trace/MsgDesc.h>
#include <platform/trace/RingBuf.h>

#include <array>

namespace Tessel {

namespace {

// The codes of the alternatives of an argument, in their order.
constexpr std::array codes{ "p", "b", "si", "ui", "sl", "ul" };
static_assert( codes.size() == std::variant_size_v< Impl::TraceArg > );

} // namespace

void TracePoint::record( std::initializer_list< Impl::TraceArg > arguments ) const {
   const Impl::KeepErrno keepErrno;
   // Acquire: the handle was published whole.
   auto* const handle = Fennet::defaultFennetHandle.load( std::memory_order_acquire );
   Fennet::TraceFile* const records = handle ? handle->mtTraceFile() : nullptr;
   if( !records ) {
      return;
   }
   if( !records->describes( msgId ) ) {
      Fennet::MsgDesc description( *records, msgId, file, line );
      for( const Impl::TraceArg& argument : arguments ) {
         description.formatString().put( codes.at( argument.index() ) );
      }
      Fennet::msgDesc( description, "", function, format );
      if( !description.finish( facility.name(), level ) ) {
         return;
      }
   }
   Fennet::RingBuf ring;
   ring.startMsg( *records, msgId );
   for( const Impl::TraceArg& argument : arguments ) {
      if( !std::visit( [&]( const auto& value ) { return put( ring, value ); }, argument ) ) {
         break;
      }
   }
   ring.endMsg();
}

} // namespace Tessel
