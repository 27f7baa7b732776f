// A folder of trace files that lives as long as a test, and what is found in it.
#pragma once

#include <platform/trace/FennetHandle.h>
#include <platform/trace/FileFormat.h>

#include <fennet/Output.h>
#include <fennet/TraceSet.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace Fennet {

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
   std::unique_ptr< FileHeader > header() const {
      auto header = std::make_unique< FileHeader >();
      std::ifstream( files().at( 0 ), std::ios::binary )
         .read( reinterpret_cast< char* >( header.get() ), sizeof( FileHeader ) );
      return header;
   }

   // All records of the folder in the order of time; fails the test when a file is damaged.
   std::vector< TimedRecord > records() const {
      TraceSet traces( []( const std::string& complaint ) { ADD_FAILURE() << complaint; } );
      traces.add( path_ );
      return traces.read();
   }

   std::vector< std::string > texts() const {
      std::vector< std::string > texts;
      for( const TimedRecord& record : records() ) {
         texts.push_back( textOf( record.record ) );
      }
      return texts;
   }

 private:
   std::filesystem::path path_;
};

// Makes a handle the process's default for as long as it lives.
class DefaultHandle {
 public:
   explicit DefaultHandle( const TraceFolder& folder, bool shared = true )
      : handle_( folder.path(), minRingSize, shared ) {
      defaultFennetHandle = &handle_;
   }
   ~DefaultHandle() { defaultFennetHandle = nullptr; }
   DefaultHandle( const DefaultHandle& ) = delete;
   DefaultHandle& operator=( const DefaultHandle& ) = delete;

   TraceHandle& operator*() { return handle_; }

 private:
   TraceHandle handle_;
};

} // namespace Fennet
