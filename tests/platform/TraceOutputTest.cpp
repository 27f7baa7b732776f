// Printing and exporting the records that were read.
#include "TraceFolder.h"

#include <fennet/Ctf.h>
#include <fennet/Output.h>
#include <fennet/TraceReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace SodrelTest {
namespace {

using Fennet::TimedRecord;

TimedRecord aRecord() {
   auto description = std::make_shared< Fennet::Description >();
   description->line = 57;
   description->level = 8;
   description->sourceFile = "src/A.cpp";
   description->codes = { "p", "b", "si" };
   description->function = "get\x1b";
   description->format = "Get {} {} {}";
   description->facility = "A";
   auto origin = std::make_shared< Fennet::TraceReader::Origin >();
   origin->pid = 1;
   origin->tid = 2;
   origin->program = "p\"q\\";
   const std::string text = "a\n\xff\x7f\xc2\x9b\xc3\xa9";
   return { 1'795'228'358'123'456'789, origin, { 0, description, { text, true }, true } };
}

TEST( ARecordInPrint, isALineLikeThatOfATextTrace ) {
   TimedRecord record = aRecord();
   EXPECT_EQ(
      lineOf( record, false ), "2026-11-21T02:32:38.123456789Z 2 A/8 src/A.cpp:57 get\\x1b: Get "
                               "a\\x0a\\xff\\x7f\\xc2\\x9b\xc3\xa9 true ..." );
   EXPECT_EQ(
      lineOf( record, true ), "\x1b[2m2026-11-21T02:32:38.123456789Z\x1b[0m 2 "
                              "\x1b[36mA/8\x1b[0m \x1b[2msrc/A.cpp:57\x1b[0m "
                              "\x1b[1mget\\x1b\x1b[0m: Get a\\x0a\\xff\\x7f\\xc2\\x9b\xc3\xa9 "
                              "true ..." );
   auto description = std::make_shared< Fennet::Description >();
   description->tag = "tag\n";
   record.record = { 0, description, {}, false };
   EXPECT_EQ( lineOf( record, false ), "2026-11-21T02:32:38.123456789Z 2 /0 :0  [tag\\x0a]" );
}

TEST( ARecordInPrint, isAJsonObjectInAscii ) {
   EXPECT_EQ(
      jsonOf( aRecord() ),
      R"({"time":"2026-11-21T02:32:38.123456789Z","nanoseconds":1795228358123456789,)"
      R"("program":"p\"q\\","pid":1,"tid":2,"facility":"A","level":8,"file":"src/A.cpp","line":57,)"
      R"("operation":"get\u001b","tag":"","format":"Get {} {} {}",)"
      R"("arguments":["a\n\ufffd\u007f\u009b\u00e9",true],"cut":true,)"
      R"("text":"Get a\\x0a\\xff\\x7f\\xc2\\x9b\u00e9 true ..."})" );
}

TEST( ATime, isReadAsItIsPrinted ) {
   EXPECT_EQ( Fennet::parseTime( "2026-11-21T02:32:38.123456789Z" ), 1'795'228'358'123'456'789 );
   EXPECT_EQ( Fennet::parseTime( "2026-11-21T02:32:38.5" ), 1'795'228'358'500'000'000 );
   EXPECT_EQ( Fennet::parseTime( "2026-11-21T02:32:38" ), 1'795'228'358'000'000'000 );
   EXPECT_EQ( Fennet::parseTime( "2026-11-21T02:32Z" ), 1'795'228'320'000'000'000 );
   EXPECT_EQ( Fennet::parseTime( "2020-01-01" ), 1'577'836'800'000'000'000 );
   EXPECT_EQ( Fennet::parseTime( "1970-01-01T00:00:00" ), 0 );
   EXPECT_EQ( Fennet::parseTime( "2024-02-29T23:59:59Z" ), 1'709'251'199'000'000'000 );
   EXPECT_EQ( Fennet::parseTime( "2261-12-31" ), 9'214'560'000'000'000'000 );
   EXPECT_EQ( Fennet::formatTime( 0 ), "1970-01-01T00:00:00.000000000Z" );
}

TEST( ATime, isRefusedWhenItIsNone ) {
   for( const char* text : { "",
                             "Z",
                             "2026",
                             "2026-11",
                             "2026-1-1",
                             "2026-11-21 02:32:38",
                             "2026-11-21T02",
                             "2026-11-21T02:3",
                             "2026-11-21T02:32:",
                             "2026-11-21T02:32:38.",
                             "2026-02-29",
                             "2026-11-21T02:32:38+01:00",
                             "2026-13-01T00:00:00",
                             "2026-11-21T24:00:00",
                             "2026-11-21T02:60:00",
                             "2026-11-21T02:32:60",
                             "1969-12-31T23:59:59",
                             "2026-11-2xT02:32",
                             "2262-01-01",
                             "9999-01-01",
                             "-197-01-01",
                             "+202-01-01",
                             "2026-11-21T02:32:38Zx",
                             " 2026-11-21",
                             "2026-11-21T02:32:38.1234567891" } ) {
      EXPECT_EQ( Fennet::parseTime( text ), std::nullopt ) << text;
   }
}

TEST( AnExport, isRefusedWhereItCannotBeWritten ) {
   const TraceFolder folder;
   EXPECT_THROW( Fennet::CtfExport( folder.path() ), std::system_error );
   EXPECT_THROW( Fennet::CtfExport( folder.path() / "missing" / "ctf" ), std::system_error );
   const auto path = folder.path() / "ctf";
   Fennet::CtfExport ctf( path );
   std::filesystem::remove( path );
   EXPECT_THROW( ctf.add( aRecord() ), std::system_error );
   EXPECT_THROW( ctf.finish(), std::system_error );
}

TEST( AnExport, declaresEachKindOfEventOnce ) {
   const TraceFolder folder;
   const auto path = folder.path() / "ctf";
   const TimedRecord record = aRecord();
   Fennet::CtfExport ctf( path );
   ctf.add( record );
   ctf.add( record );
   ctf.finish();
   const std::string event =
      "event { name = \"A/8 src/A.cpp:57 get?\"; id = 0; stream_id = 0; fields := struct { string "
      "text; string arg1; uint8_t arg2; int32_t arg3; }; };\n";
   EXPECT_THAT( contentOf( path / "metadata" ), testing::EndsWith( "};\n" + event ) );
}

} // namespace
} // namespace SodrelTest
