// The library's traces in a ring buffer, next to those in text.
#include <scripted/ScriptedTest.h>

#include <platform/trace/FennetHandle.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace SodrelTest {

namespace {

class TheRingBuffer : public ClientTest {
 protected:
   void SetUp() override {
      std::string pattern = ( std::filesystem::temp_directory_path() / "scripted-XXXXXX" ).string();
      if( !mkdtemp( pattern.data() ) ) {
         throw std::system_error( errno, std::generic_category(), pattern );
      }
      folder = pattern;
   }
   void TearDown() override {
      Fennet::defaultFennetHandle = nullptr;
      std::filesystem::remove_all( folder );
      ClientTest::TearDown();
   }

   // All that its files hold.
   std::string contents() const {
      std::ostringstream all;
      for( const auto& file : std::filesystem::recursive_directory_iterator( folder ) ) {
         if( file.is_regular_file() ) {
            all << std::ifstream( file.path(), std::ios::binary ).rdbuf();
         }
      }
      return all.str();
   }

   std::filesystem::path folder;
};

TEST_F( TheRingBuffer, holdsRecordsWhenNoTextIsEnabled ) {
   Orl::traceLevelsIs( "Sodrel", 0 );
   {
      Fennet::TraceHandle handle( folder.string(), 64 * 1024, false );
      Fennet::defaultFennetHandle = &handle;
      client->asyncManagerCallSO( "GetUnit", "foo.service" );
      client->unitPropertyS( "the-unit.service", "TheProperty" );
      Fennet::defaultFennetHandle = nullptr;
   }
   EXPECT_EQ( takeLog().find( "Sodrel/" ), std::string::npos );
   const std::string all = contents();
   EXPECT_NE( all.find( "Get {} property of {} with sd-bus" ), std::string::npos );
   EXPECT_NE( all.find( "src/Sodrel/Sodrel.cpp" ), std::string::npos );
   EXPECT_NE( all.find( "asyncManagerCallSO" ), std::string::npos );
   const std::size_t property = all.find( "TheProperty" );
   EXPECT_NE( property, std::string::npos );
   EXPECT_NE( all.find( "the-unit.service", property ), std::string::npos );
}

TEST_F( TheRingBuffer, isNotWrittenWithoutADefaultHandle ) {
   client->managerPropertyS( "Version" );
   EXPECT_EQ( contents(), "" );
   EXPECT_NE( takeLog().find( "Sodrel/8" ), std::string::npos );
}

} // namespace

} // namespace SodrelTest
