// Writes the record of a trace point and, before the first one in a file, its description.
#include <platform/trace/Trace.h>

#include <platform/trace/Line.h>
#include <platform/trace/TraceFile.h>
#include <platform/value/Assert.h>

#include <array>
#include <cstring>
#include <new>
#include <string>

#include <fmt/format.h>

namespace Tessel {

namespace {

// Ids are unique within the process, so that a trace point has the same one in every file.
constinit std::atomic< int > lastMsgId = 0;

// Returns the id, drawing one if there is none yet. The first thread to draw one sets it.
int drawnId( std::atomic< int >& msgId ) {
   // Relaxed: an id publishes no other data. The loser of a race takes the winner's id, and the
   // number that it drew stays unused.
   int id = msgId.load( std::memory_order_relaxed );
   if( id == 0 ) {
      const int drawn = ++lastMsgId;
      const bool isFirst = msgId.compare_exchange_strong( id, drawn, std::memory_order_relaxed );
      id = isFirst ? drawn : id; // GCOVR_EXCL_BR_LINE: a race
   }
   return id;
}

// The codes of the argument types, in the order of the variant's alternatives.
constexpr std::array codes{ "p", "b", "si", "ui", "sl", "ul" };
static_assert( codes.size() == std::variant_size_v< Impl::TraceArg > );

using Arguments = std::initializer_list< Impl::TraceArg >;

std::string descriptionOf( const TracePoint& point, int msgId, Arguments arguments ) {
   std::string argumentCodes;
   for( const Impl::TraceArg& argument : arguments ) {
      argumentCodes += argumentCodes.empty() ? "" : " ";
      argumentCodes += codes.at( argument.index() );
   }
   const std::string_view texts[] = { point.file,     argumentCodes, "",
                                      point.function, point.format,  point.facility.name() };
   std::string description;
   for( const std::string_view text : texts ) {
      const auto size =
         static_cast< std::uint16_t >( std::min( text.size(), Fennet::maxDescriptionText ) );
      description.append( reinterpret_cast< const char* >( &size ), sizeof size );
      description.append( text, 0, size );
   }
   Fennet::DescriptionHead head{ {}, msgId, point.line, point.level };
   head.size = static_cast< std::uint32_t >( sizeof head + description.size() );
   return description.insert( 0, reinterpret_cast< const char* >( &head ), sizeof head );
}

// A record being composed, which needs no allocation.
using Record = fmt::basic_memory_buffer< char, Fennet::blockSize >;

// Appends an argument and returns whether it fits. A string that does not fit is truncated and
// marked as such; a number that does not fit is left out.
template< typename Number >
bool put( Record& record, Number number ) {
   if( record.size() + sizeof number > Fennet::blockSize ) {
      return false;
   }
   const auto* const bytes = reinterpret_cast< const char* >( &number );
   record.append( bytes, bytes + sizeof number );
   return true;
}
bool put( Record& record, std::string_view text ) {
   const std::size_t room = Fennet::blockSize - record.size();
   if( room < sizeof( std::uint16_t ) ) {
      return false;
   }
   const std::string_view kept = text.substr( 0, room - sizeof( std::uint16_t ) );
   const bool fits = kept.size() == text.size();
   put( record, std::uint16_t( fits ? kept.size() : kept.size() | Fennet::cutString ) );
   record.append( kept );
   return fits;
}

} // namespace

void TracePoint::record( Fennet::TraceHandle& handle, Arguments arguments ) const try {
   const Impl::KeepErrno keepErrno;
   Fennet::TraceFile* const records = handle.mtTraceFile();
   if( !records ) {
      return;
   }
   const int id = drawnId( msgId );
   if( id < 0 ) {
      Impl::assertFailed( __FILE__, __LINE__, "Tessel::TracePoint::record", "msgId_ >= 0" );
   }
   if( !records->describes( id ) &&
       !records->descriptionIs( id, descriptionOf( *this, id, arguments ) ) ) {
      return;
   }
   Record record;
   record.resize( sizeof( Fennet::RecordHead ) );
   for( const Impl::TraceArg& argument : arguments ) {
      if( !std::visit( [&]( auto value ) { return put( record, value ); }, argument ) ) {
         break;
      }
   }
   const auto size = static_cast< std::uint32_t >( record.size() );
   const Fennet::RecordHead head{ size, id, Fennet::nanoseconds( CLOCK_MONOTONIC ) };
   std::memcpy( record.data(), &head, sizeof head );
   records->recordIs( { record.data(), size } );
} catch( const std::bad_alloc& ) {
   // Destructors trace too.
}

} // namespace Tessel
