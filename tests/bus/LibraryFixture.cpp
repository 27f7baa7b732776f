// The operations of a client by their words.
#include "LibraryFixture.h"

#include <cctype>
#include <regex>
#include <sstream>

#include <support/Abort.h>

// Null unless the process runs with a leak sanitizer.
extern "C" [[gnu::weak]] void __lsan_disable(); // NOLINT(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] void __lsan_enable();  // NOLINT(bugprone-reserved-identifier)

namespace SodrelTest {

namespace {

// The creation of a client that may fail. It then leaves its connection open by design, so no leak
// is looked for meanwhile.
class Creation {
 public:
   Creation() {
      if( leaksAreLookedFor() ) {
         __lsan_disable();
      }
   }
   Creation( const Creation& ) = delete;
   Creation& operator=( const Creation& ) = delete;
   ~Creation() {
      if( leaksAreLookedFor() ) {
         __lsan_enable();
      }
   }

   // Valgrind knows the same by this name: tests/memcheck.supp.
   [[gnu::noinline]] Tessel::Ptr< Sdbus > client() {
      Tessel::Ptr< Sdbus > client = sdbusFactory();
      made_ = static_cast< bool >( client ); // keeps this frame while the client is made
      return client;
   }

 private:
   bool made_ = false;
};

Tessel::String perform( Sdbus& client, const Texts& words, bool async ) {
   const std::string& operation = words[0];
   const auto word = [&]( size_t at ) { return Tessel::String( words[at].c_str() ); };
   if( operation == "sdbus" ) {
      return client.sdbus() ? "connected" : "null";
   }
   if( operation == "managerPropertyS" ) {
      return client.managerPropertyS( word( 1 ) );
   }
   if( operation == "managerPropertyB" ) {
      return client.managerPropertyB( word( 1 ) ) ? "true" : "false";
   }
   if( operation == "unitPropertyS" ) {
      return client.unitPropertyS( word( 1 ), word( 2 ) );
   }
   if( operation == "asyncManagerCall" ) {
      client.asyncManagerCall( word( 1 ) );
      return "called";
   }
   if( operation == "asyncManagerCallSO" ) {
      return client.asyncManagerCallSO( word( 1 ), word( 2 ) );
   }
   if( operation == "asyncManagerCallSsO" ) {
      return client.asyncManagerCallSsO( word( 1 ), word( 2 ), word( 3 ) );
   }
   if( operation == "managerCall" ) {
      client.managerCall( word( 1 ), async );
      return "called";
   }
   if( operation == "managerCallSO" ) {
      return client.managerCallSO( word( 1 ), word( 2 ), async );
   }
   if( operation == "managerCallSsO" ) {
      return client.managerCallSsO( word( 1 ), word( 2 ), word( 3 ), async );
   }
   return operation == "creation" && Creation().client() ? "created" : "null";
}

// The four first words of an operation; missing ones are empty.
Texts wordsOf( const std::string& operation ) {
   Texts words( 4 );
   std::istringstream text( operation );
   for( std::string& word : words ) {
      text >> word;
   }
   return words;
}

} // namespace

bool leaksAreLookedFor() {
   return __lsan_disable != nullptr;
}

testing::Matcher< const std::string& > assertionOfReload() {
   return beforeAbort( testing::ResultOf(
      []( const std::string& output ) {
         return std::regex_replace( output, std::regex( "cpp:[0-9]+:" ), "cpp:LINE:" );
      },
      "src/Sodrel/Sodrel.cpp:LINE: void Sodrel::Sdbus::managerCall(const String&, bool): "
      "Assertion `signalMonitor->wait( std::nullopt )' failed.\n" ) );
}

std::string nameOf( std::string operation ) {
   std::erase_if( operation, []( unsigned char character ) { return !std::isalnum( character ); } );
   return operation;
}

std::string callOf( const std::string& operation ) {
   const Texts words = wordsOf( operation );
   const bool isUnits = words[0] == "unitPropertyS";
   return words[0].find( "Property" ) != std::string::npos ? "Get " + words[isUnits ? 2 : 1]
                                                           : words[1];
}

std::string failureOf( const std::string& operation ) {
   const Texts words = wordsOf( operation );
   const std::string start = callFailed + words[0] + ", ";
   if( words[0] == "unitPropertyS" ) {
      return start + "read failed for property " + words[2] + " of " + words[1];
   }
   return words[0].starts_with( "managerProperty" )
             ? start + "manager property " + words[1] + " read failed"
             : start + "sd-bus call " + operation.substr( words[0].size() + 1 ) + " failed";
}

std::string ALibraryClient::outcomeOf( const std::string& operation ) {
   try {
      return std::string(
         perform( *client, wordsOf( operation ), operation.ends_with( " async" ) ) );
   } catch( const Tessel::Exception& exception ) {
      return std::string( exception.name() ) + ": " + exception.what();
   }
}

std::string ALibraryClient::callScripted( const std::string& method, const Script& script ) {
   manager.onCall( method, script );
   return method == "Reload" ? reload() : call( method );
}

} // namespace SodrelTest
