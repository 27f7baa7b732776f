// Text traces: levels, sinks, and what a trace does with its arguments.
#include <platform/trace/StringFormatter.h>
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace SodrelTest {
namespace {

constexpr Orl::TraceLevels level8 = 1U << 8;

TRACE_FACILITY( "TextTraceTest" );

// Captures text traces during its lifetime.
class Capture final : public Tessel::TraceSink {
 public:
   Capture() : before_( Tessel::traceSinkIs( this ) ) {}
   ~Capture() { Tessel::traceSinkIs( before_ ); }

   void traceIs( const Tessel::TextTrace& trace ) override {
      const std::scoped_lock lock( mutex_ );
      texts.emplace_back( trace.text );
      last = trace;
   }

   Texts texts;
   Tessel::TextTrace last{};

 private:
   std::mutex mutex_;
   Tessel::TraceSink* before_;
};

class ATextTrace : public testing::Test {
 protected:
   ATextTrace() { traceFacility.levelsIs( level8 ); }
   ~ATextTrace() override { traceFacility.levelsIs( 0 ); }

   Capture capture;
};

TEST_F( ATextTrace, isFormattedWithItsArgumentsInOrder ) {
   const Tessel::String method = "ReloadUnit";
   const char* const nothing = nullptr;
   TRACE( 8, "Call {} {}, async={}, <{}>", method, "a.service", true, nothing );
   TRACE( 8, "{} {} {} {} {} {} {} {}", 1, 2, 3, 4, 5, 6, 7, 8 );
   EXPECT_EQ(
      capture.texts, ( Texts{ "Call ReloadUnit a.service, async=true, <>", "1 2 3 4 5 6 7 8" } ) );
}

TEST_F( ATextTrace, carriesItsOrigin ) {
   const int line = __LINE__ + 1;
   TRACE( 8, "origin" );
   EXPECT_STREQ( capture.last.facility, "TextTraceTest" );
   EXPECT_EQ( capture.last.level, 8 );
   EXPECT_STREQ( capture.last.file, __FILE__ );
   EXPECT_STREQ( capture.last.function, "TestBody" );
   EXPECT_EQ( capture.last.line, line );
   EXPECT_STREQ( capture.last.tag, "" );
}

TEST_F( ATextTrace, isEmittedForAnEmptyFormatAndWritesDoubledBracesAsOne ) {
   TRACE( 8, "" );
   TRACE( 8, "{{{}}}", 1 );
   EXPECT_EQ( capture.texts, ( Texts{ "", "{1}" } ) );
}

TEST_F( ATextTrace, sharesItsLineWithAnother ) {
   // clang-format off
   TRACE( 8, "first" ); TRACE( 8, "second" );
   // clang-format on
   EXPECT_EQ( capture.texts, ( Texts{ "first", "second" } ) );
}

TEST_F( ATextTrace, isLeftOutUnlessItsLevelIsEnabled ) {
   TRACE( 7, "seven" );
   TRACE( 9, "nine" );
   for( const bool on : { true, false, true } ) {
      traceFacility.levelsIs( on ? level8 : 0 );
      TRACE( 8, "{}", on );
   }
   EXPECT_EQ( capture.texts, ( Texts{ "true", "true" } ) );
}

TEST_F( ATextTrace, evaluatesAnArgumentOnceWhetherOnOrOff ) {
   int evaluations = 0;
   TRACE( 8, "{}", ++evaluations );
   TRACE( 9, "{}", ++evaluations );
   EXPECT_EQ( evaluations, 2 );
}

// Text that counts how often it is read.
struct CountingText {
   operator std::string_view() const {
      ++conversions;
      return "counted";
   }
   mutable int conversions = 0;
};

TEST_F( ATextTrace, convertsNoArgumentWhenItsLevelIsOff ) {
   const CountingText text;
   TRACE( 9, "{}", text );
   EXPECT_EQ( text.conversions, 0 );
   TRACE( 8, "{}", text );
   EXPECT_EQ( text.conversions, 1 );
}

TEST_F( ATextTrace, leavesErrnoAlone ) {
   errno = EXDEV;
   TRACE( 8, "anything" );
   EXPECT_EQ( errno, EXDEV );
}

TEST_F( ATextTrace, comesWholeFromEachOfManyThreads ) {
   constexpr int threads = 4;
   constexpr int traces = 200;
   std::vector< std::jthread > tracing;
   for( int thread = 0; thread < threads; ++thread ) {
      tracing.emplace_back( [] {
         for( int trace = 0; trace < traces; ++trace ) {
            TRACE( 8, "{}", "text" );
         }
      } );
   }
   tracing.clear();
   EXPECT_EQ( capture.texts, Texts( threads * traces, "text" ) );
}

TEST_F( ATextTrace, followsLevelsThatAnotherThreadChangesMeanwhile ) {
   std::atomic< bool > done = false;
   std::thread changing( [&] {
      for( Orl::TraceLevels levels = 0; !done; levels ^= level8 ) {
         traceFacility.levelsIs( levels );
      }
   } );
   bool emitted = false;
   bool leftOut = false;
   while( !emitted || !leftOut ) {
      const std::size_t before = capture.texts.size();
      TRACE( 8, "text" );
      ( capture.texts.size() > before ? emitted : leftOut ) = true;
   }
   done = true;
   changing.join();
}

TEST_F( ATextTrace, givesATagToTheSink ) {
   const Orl::TraceHandle handle( "Own", false );
   Tessel::fmtrace( handle, 5, "file", "function", 7, "tag", "{}-{}", 1, Tessel::String( "x" ) );
   EXPECT_EQ( capture.texts, Texts{ "1-x" } );
   EXPECT_STREQ( capture.last.tag, "tag" );
}

TEST_F( ATextTrace, refusesAFormatThatItsArgumentsDoNotFill ) {
   const Orl::TraceHandle handle( "Own", false );
   for( const char* const format : { "{} {}", "{0}", "{:x}", "{" } ) {
      try {
         Tessel::fmtrace( handle, 5, "file", "function", 7, "", format, 1 );
         ADD_FAILURE() << format;
      } catch( const fmt::format_error& error ) {
         EXPECT_STREQ( error.what(), "argument not found" );
      }
   }
   EXPECT_EQ( capture.texts, Texts{} );
}

TEST( AFacility, hasNoLevelAtFirstAndEveryOneWhenOpenedSo ) {
   const Orl::TraceHandle first( "AFacility.first", false );
   EXPECT_STREQ( first.name(), "AFacility.first" );
   EXPECT_EQ( first.levels(), 0U );
   const Orl::TraceHandle all( "AFacility.all", true );
   EXPECT_EQ( all.levels(), Orl::allTraceLevels );
   EXPECT_TRUE( all.enabled( 0 ) );
   EXPECT_TRUE( all.enabled( 31 ) );
}

TEST( AFacility, takesLevelsSetBeforeItsFirstUse ) {
   Orl::TraceHandle( "AFacility.early", false ).levelsIs( level8 );
   const Orl::TraceHandle handle( "AFacility.early", false );
   EXPECT_TRUE( handle.enabled( 8 ) );
   EXPECT_FALSE( handle.enabled( 9 ) );
}

TEST( AFacility, sharesItsLevelsBetweenHandlesOfOneName ) {
   Orl::TraceHandle one( "AFacility.shared", false );
   const Orl::TraceHandle other( "AFacility.shared", false );
   one.levelsIs( level8 );
   EXPECT_EQ( other.levels(), level8 );
   EXPECT_EQ( Orl::TraceHandle( "AFacility.shared", false ).levels(), level8 );
}

TEST( AFacility, isLookedUpByTheFirstUseAlone ) {
   std::string name = "AFacility.once";
   Orl::TraceHandle handle( name.c_str(), true );
   name.back() = 'x';
   EXPECT_EQ( handle.levels(), Orl::allTraceLevels );
}

TEST( AFacility, isOpenedByManyThreadsAtOnce ) {
   std::atomic< int > enabled = 0;
   Orl::TraceHandle( "AFacility.threads", false ).levelsIs( level8 );
   const Orl::TraceHandle handle( "AFacility.threads", false );
   std::vector< std::jthread > opening;
   for( int thread = 0; thread < 4; ++thread ) {
      opening.emplace_back( [&] { enabled += handle.enabled( 8 ); } );
   }
   opening.clear();
   EXPECT_EQ( enabled, 4 );
}

// As readers of trace files do; the compiler counts those of every trace point.
TEST( ThePlaceholdersOfAFormat, areCountedWithoutBracesThatStandForThemselves ) {
   const std::pair< std::string, int > formats[]{
      { "", 0 },   { "text", 0 }, { "{}", 1 },   { "{} of {}", 2 }, { "{{}}", 0 }, { "{{{}}}", 1 },
      { "{", -1 }, { "}", -1 },   { "{0}", -1 }, { "{} {:x}", -1 }, { "}{", -1 },  { "{}}", -1 },
   };
   for( const auto& [format, count] : formats ) {
      EXPECT_EQ( Tessel::Impl::placeholders( format ), count ) << format;
   }
}

TEST( TheFormatterOfStrings, printsTheirText ) {
   EXPECT_EQ( fmt::format( "<{}>", Tessel::String( "text" ) ), "<text>" );
}

} // namespace
} // namespace SodrelTest
