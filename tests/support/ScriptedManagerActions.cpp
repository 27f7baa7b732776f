// Making actions, and their way through the control socket.
#include <support/ScriptedManagerActions.h>

#include <cstdlib>

#include <support/BusPointers.h>

namespace Sodrel::Test {

namespace {

using Kind = Action::Kind;

Words withBody( Words words, const Body& body ) {
   words.push_back( body.signature );
   words.insert( words.end(), body.values.begin(), body.values.end() );
   return words;
}

} // namespace

std::string unitPath( const std::string& name ) {
   char* path = nullptr;
   checked(
      sd_bus_path_encode( "/org/freedesktop/systemd1/unit", name.c_str(), &path ),
      "sd_bus_path_encode" );
   std::string result = path;
   std::free( path );
   return result;
}

Body jobPath( uint32_t id ) {
   return body( "o", "/org/freedesktop/systemd1/job/" + std::to_string( id ) );
}

Action reply( const Body& body ) {
   return { Kind::reply, withBody( {}, body ) };
}

Action error( const std::string& name ) {
   return { Kind::error, { name } };
}

Action error( const std::string& name, const std::string& message ) {
   return { Kind::error, { name, message } };
}

Action signal(
   const std::string& path, const std::string& interface, const std::string& member,
   const Body& body ) {
   return { Kind::signal, withBody( { path, interface, member }, body ) };
}

Action signal( const std::string& member, const Body& body ) {
   return signal( managerPath, managerInterface, member, body );
}

Action jobRemoved( uint32_t id, const std::string& result, const std::string& unit ) {
   return signal( "JobRemoved", body( "uoss", id, jobPath( id ).values.front(), unit, result ) );
}

Action reloading( bool active ) {
   return signal( "Reloading", body( "b", active ) );
}

Action propertiesChanged( const std::string& unit, const Body& body ) {
   return signal( unitPath( unit ), propertiesInterface, "PropertiesChanged", body );
}

Action activeState( const std::string& unit, const std::string& state ) {
   return { Kind::unitState, { unit, state } };
}

Action foreignJobs( uint32_t first, uint32_t count ) {
   return { Kind::foreignJobs, { asText( first ), asText( count ) } };
}

Action byStranger( Action signal ) {
   signal.byStranger = true;
   return signal;
}

Action standard() {
   return { Kind::standard, {} };
}

Action queueJob() {
   return { Kind::queueJob, {} };
}

Action finishJob( const std::string& result ) {
   return { Kind::finishJob, { result } };
}

Action hold( const std::string& event ) {
   return { Kind::hold, { event } };
}

Action raise( const std::string& event ) {
   return { Kind::raise, { event } };
}

Action releaseName() {
   return { Kind::releaseName, {} };
}

Action acquireName() {
   return { Kind::acquireName, {} };
}

Action disconnect() {
   return { Kind::disconnect, {} };
}

Action connect() {
   return { Kind::connect, {} };
}

Action killBus() {
   return { Kind::killBus, {} };
}

Action die() {
   return { Kind::die, {} };
}

std::string packed( const Words& words ) {
   std::string text;
   for( const std::string& word : words ) {
      text += std::to_string( word.size() ) + ':' + word;
   }
   return text;
}

Words unpacked( const std::string& text ) {
   Words words;
   for( size_t at = 0; at < text.size(); ) {
      const size_t colon = text.find( ':', at );
      const size_t size = std::stoul( text.substr( at, colon - at ) );
      words.push_back( text.substr( colon + 1, size ) );
      at = colon + 1 + size;
   }
   return words;
}

Words asWords( const Script& script ) {
   Words words;
   for( const Action& action : script ) {
      words.push_back( asText( static_cast< int >( action.kind ) ) );
      words.push_back( asText( action.byStranger ) );
      words.push_back( packed( action.words ) );
   }
   return words;
}

Script asScript( const Words& words ) {
   Script script;
   for( size_t at = 0; at < words.size(); at += 3 ) {
      script.push_back( { static_cast< Kind >( std::stoi( words[at] ) ), unpacked( words[at + 2] ),
                          words[at + 1] == asText( true ) } );
   }
   return script;
}

} // namespace Sodrel::Test
