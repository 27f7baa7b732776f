// Message ids and the bytes of a description.
#include <platform/trace/MsgDesc.h>

#include <platform/value/Assert.h>

namespace Fennet {

namespace {

// Ids count through the whole process, so that one trace point has the same in every file.
constinit std::atomic< int > lastMsgId = 0;

int idOf( std::atomic< int >& msgId ) {
   // Relaxed: an id carries no other data with it. The loser of a race takes the winner's id, and
   // the number drawn in vain stays unused.
   int id = msgId.load( std::memory_order_relaxed );
   const int drawn = id == 0 ? lastMsgId.fetch_add( 1, std::memory_order_relaxed ) + 1 : id;
   return id != 0 || !msgId.compare_exchange_strong( id, drawn, std::memory_order_relaxed ) ? id
                                                                                            : drawn;
}

} // namespace

void MsgFormatString::put( std::string_view code ) {
   if( !codes_.empty() ) {
      codes_ += ' ';
   }
   codes_ += code;
}

MsgDesc::MsgDesc( TraceFile& file, std::atomic< int >& msgId, const char* sourceFile, int line )
   : file_( file ), msgId_( idOf( msgId ) ), line_( line ) {
   TESSEL_ASSERT( msgId_ >= 0, "Fennet::MsgDesc::MsgDesc" );
   append( sourceFile );
}

void MsgDesc::append( std::string_view text ) {
   text = text.substr( 0, maxDescriptionText );
   const auto size = static_cast< std::uint16_t >( text.size() );
   texts_.append( reinterpret_cast< const char* >( &size ), sizeof size );
   texts_ += text;
}

void msgDesc( MsgDesc& description, const char* tag, const char* function, const char* format ) {
   for( const std::string_view text :
        { std::string_view( description.formatString_.codes() ), std::string_view( tag ),
          std::string_view( function ), std::string_view( format ) } ) {
      description.append( text );
   }
}

bool MsgDesc::finish( const char* facility, int level ) {
   append( facility );
   DescriptionHead head{ 0, msgId_, line_, level };
   head.size = static_cast< std::uint32_t >( sizeof head + texts_.size() );
   file_.descriptionIs(
      msgId_, std::string( reinterpret_cast< const char* >( &head ), sizeof head ) + texts_ );
   return file_.describes( msgId_ );
}

} // namespace Fennet
