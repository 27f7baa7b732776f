// Describing a trace point in a trace file, so that its records need to hold nothing but an id.
#pragma once

#include <platform/trace/TraceFile.h>

#include <atomic>
#include <string>
#include <string_view>

namespace Fennet {

// The types of a message's arguments, one code each, in order: "p" a string, "b" a bool, "si" and
// "ui" a signed and an unsigned integer of 32 bits, "sl" and "ul" of 64.
class MsgFormatString {
 public:
   // Appends the code of the next argument.
   void put( std::string_view code );
   // All codes, separated by spaces. Borrowed.
   [[nodiscard]] const std::string& codes() const { return codes_; }

 private:
   std::string codes_;
};

// The description of one trace point while it is composed.
//
// Borrows the file. Thread: the file's.
class MsgDesc {
 public:
   // Gives the trace point an id if it has none, whichever thread comes first.
   //
   // Ends the process if the id is negative.
   MsgDesc( TraceFile& file, std::atomic< int >& msgId, const char* sourceFile, int line );

   // The codes of the arguments, to be put one by one before msgDesc.
   MsgFormatString& formatString() { return formatString_; }
   // Registers the description in the file, with the facility that the trace point stands in and
   // its level. Returns whether the file describes the message now.
   bool finish( const char* facility, int level );

   friend void
   msgDesc( MsgDesc& description, const char* tag, const char* function, const char* format );

 private:
   void append( std::string_view text );

   TraceFile& file_;
   const int msgId_;
   const int line_;
   MsgFormatString formatString_;
   std::string texts_; // as they stand in the file
};

// Sets a message's tag, the function it stands in, and its format.
void msgDesc( MsgDesc& description, const char* tag, const char* function, const char* format );

} // namespace Fennet
