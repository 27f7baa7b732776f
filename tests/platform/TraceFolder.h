// A folder of trace files that exists for the duration of a test, and its contents.
#pragma once

#include <platform/trace/FennetHandle.h>
#include <platform/trace/FileFormat.h>

#include <fennet/Output.h>
#include <fennet/TraceSet.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace SodrelTest {

using Texts = std::vector< std::string >;

inline std::string contentOf( const std::filesystem::path& path ) {
   std::ostringstream content;
   content << std::ifstream( path, std::ios::binary ).rdbuf();
   return content.str();
}

class TraceFolder {
 public:
   TraceFolder() {
      std::string name = ( std::filesystem::temp_directory_path() / "trace-XXXXXX" ).string();
      EXPECT_NE( mkdtemp( name.data() ), nullptr );
      path_ = name;
   }
   ~TraceFolder() { std::filesystem::remove_all( path_ ); }
   TraceFolder( const TraceFolder& ) = delete;
   TraceFolder& operator=( const TraceFolder& ) = delete;

   const std::filesystem::path& path() const { return path_; }

   std::vector< std::filesystem::path > files() const {
      const std::filesystem::directory_iterator entries( path_ );
      std::vector< std::filesystem::path > files( begin( entries ), end( entries ) );
      std::sort( files.begin(), files.end() );
      return files;
   }

   // The header of the folder's first file.
   std::unique_ptr< Fennet::FileHeader > header() const {
      auto header = std::make_unique< Fennet::FileHeader >();
      std::ifstream( files().at( 0 ), std::ios::binary )
         .read( reinterpret_cast< char* >( header.get() ), sizeof *header );
      return header;
   }

   // All records of the folder in order of time; fails the test if a file is damaged.
   std::vector< Fennet::TimedRecord > records() const {
      std::vector< Fennet::TimedRecord > records;
      Fennet::TraceSet traces( []( const std::string& text ) { ADD_FAILURE() << text; } );
      traces.add( path_ );
      traces.read( [&]( const Fennet::TimedRecord& record ) { records.push_back( record ); } );
      return records;
   }

   Texts texts() const {
      Texts texts;
      for( const Fennet::TimedRecord& record : records() ) {
         texts.push_back( textOf( record.record ) );
      }
      return texts;
   }

 private:
   std::filesystem::path path_;
};

// Creates a handle that is the process's default during its lifetime.
class DefaultHandle {
 public:
   explicit DefaultHandle( const TraceFolder& folder, bool shared = true )
      : handle_( folder.path(), Fennet::minRingSize, shared ) {
      Fennet::defaultFennetHandle = &handle_;
   }
   ~DefaultHandle() { Fennet::defaultFennetHandle = nullptr; }
   DefaultHandle( const DefaultHandle& ) = delete;
   DefaultHandle& operator=( const DefaultHandle& ) = delete;

 private:
   Fennet::TraceHandle handle_;
};

} // namespace SodrelTest
