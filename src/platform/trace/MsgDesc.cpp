// Message ids and the bytes of a description.
#include <platform/trace/MsgDesc.h>

#include <cstring>

namespace Fennet {

namespace {

// Ids count through the whole process, so that one trace point has the same in every file.
constinit std::atomic< int > lastMsgId = 0;

int idOf( std::atomic< int >& msgId ) {
   int id = msgId.load( std::memory_order_relaxed );
   if( id == 0 ) {
      // Relaxed: an id carries no other data with it. The loser of a race takes the winner's id,
      // and the number drawn in vain stays unused.
      const int drawn = lastMsgId.fetch_add( 1, std::memory_order_relaxed ) + 1;
      if( msgId.compare_exchange_strong( // GCOVR_EXCL_BR_LINE: a race
             id, drawn, std::memory_order_relaxed ) ) {
         id = drawn;
      }
   }
   return id;
}

template< typename Value >
void appendBytes( std::string& bytes, const Value& value ) {
   bytes.append( reinterpret_cast< const char* >( &value ), sizeof value );
}

} // namespace

void MsgFormatString::put( std::string_view code ) {
   if( !codes_.empty() ) {
      codes_ += ' ';
   }
   codes_ += code;
}

MsgDesc::MsgDesc( TraceFile& file, std::atomic< int >& msgId, const char* sourceFile, int line )
   : file_( file ), msgId_( idOf( msgId ) ), sourceFile_( sourceFile ), line_( line ) {}

void MsgDesc::facilityIs( const char* facility, int level ) {
   facility_ = facility;
   level_ = level;
}

bool MsgDesc::finish() {
   std::string bytes;
   DescriptionHead head{ 0, msgId_, line_, level_ };
   appendBytes( bytes, head );
   const std::string_view texts[descriptionStrings] = { sourceFile_, formatString_.codes(),
                                                        tag_,        function_,
                                                        format_,     facility_ };
   for( const std::string_view text : texts ) {
      const std::string_view kept = text.substr( 0, maxDescriptionText );
      appendBytes( bytes, static_cast< std::uint16_t >( kept.size() ) );
      bytes += kept;
   }
   head.size = static_cast< std::uint32_t >( bytes.size() );
   std::memcpy( bytes.data(), &head, sizeof head );
   file_.descriptionIs( msgId_, bytes );
   return file_.describes( msgId_ );
}

void msgDesc( MsgDesc& description, const char* tag, const char* function, const char* format ) {
   description.tag_ = tag;
   description.function_ = function;
   description.format_ = format;
}

} // namespace Fennet
