// The library's traces in a ring buffer.
#include <scripted/ScriptedTest.h>

#include <platform/trace/FennetHandle.h>
#include <support/LibraryTraces.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace SodrelTest {

namespace {

using TheRingBuffer = ClientTest;

TEST_F( TheRingBuffer, holdsTheRecordsOfOperationsWhenNoTextIsEnabled ) {
   libraryTraceLevelsAre( 0 );
   std::string folder = ( std::filesystem::temp_directory_path() / "scripted-XXXXXX" ).string();
   ASSERT_NE( mkdtemp( folder.data() ), nullptr );
   {
      Fennet::TraceHandle handle( folder, 64 * 1024, false );
      Fennet::defaultFennetHandle = &handle;
      client->unitPropertyS( "the-unit.service", "TheProperty" );
      client->managerCallSsO( "TheMethod", "other.service", "fail", true );
      Fennet::defaultFennetHandle = nullptr;
   }
   EXPECT_EQ( takeLog().find( "Sodrel/" ), std::string::npos );
   std::ostringstream content;
   for( const auto& file : std::filesystem::recursive_directory_iterator( folder ) ) {
      if( file.is_regular_file() ) {
         content << std::ifstream( file.path(), std::ios::binary ).rdbuf();
      }
   }
   std::filesystem::remove_all( folder );
   const auto expectInOrder = [all = content.str()]( std::initializer_list< const char* > texts ) {
      std::size_t at = 0;
      for( const char* const text : texts ) {
         at = all.find( text, at );
         EXPECT_NE( at, std::string::npos ) << text;
      }
   };
   for( const char* const described :
        { "src/Sodrel/Sodrel.cpp", "asyncManagerCallSO", "Get {} property of {} with sd-bus",
          "Call sd-bus systemd manager {} {} {}, async={}" } ) {
      expectInOrder( { described } );
   }
   expectInOrder( { "TheProperty", "the-unit.service", "TheMethod", "other.service", "fail" } );
}

} // namespace

} // namespace SodrelTest
