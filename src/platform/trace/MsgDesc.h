// Describing a trace point in a trace file, so that its records need to hold nothing but an id.
#pragma once

#include <platform/Export.h>
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
   TESSEL_EXPORT void put( std::string_view code );
   // All codes, separated by spaces. Borrowed.
   [[nodiscard]] const std::string& codes() const { return codes_; }

 private:
   std::string codes_;
};

// The description of one trace point, until it is finished.
//
// Borrows the file and all texts. Thread: the file's.
class TESSEL_EXPORT MsgDesc {
 public:
   // Gives the trace point its id when it has none, whichever thread comes first.
   MsgDesc( TraceFile& file, std::atomic< int >& msgId, const char* sourceFile, int line );

   // The codes of the arguments, to be put one by one.
   MsgFormatString& formatString() { return formatString_; }
   // Sets the facility that the trace point stands in, and its level.
   void facilityIs( const char* facility, int level );
   // Registers the description in the file; true when the file describes the message now.
   bool finish();

   friend TESSEL_EXPORT void
   msgDesc( MsgDesc& description, const char* tag, const char* function, const char* format );

 private:
   TraceFile& file_;
   const int msgId_;
   const char* const sourceFile_;
   const int line_;
   MsgFormatString formatString_;
   const char* tag_ = "";
   const char* function_ = "";
   const char* format_ = "";
   const char* facility_ = "";
   int level_ = 0;
};

// Sets what a message says: an own tag, the function it stands in and its format.
TESSEL_EXPORT void
msgDesc( MsgDesc& description, const char* tag, const char* function, const char* format );

} // namespace Fennet
