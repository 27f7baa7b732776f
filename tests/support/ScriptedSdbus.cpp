// The script of the replaced sd-bus and its objects.
#include <support/ScriptedSdbus.h>

#include <support/ScriptedLog.h>
#include <support/SystemdNames.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <utility>

namespace SodrelTest {

namespace {

ScriptedSdbus* current = nullptr;

// Returns the name for the log of an object, which must be among these and not released.
template< typename T, typename... Objects >
std::string nameAmong( const T* object, const Objects&... objects ) {
   if( !object ) {
      return "null";
   }
   const auto knows = [object]( const auto& all ) {
      return std::ranges::find( all, object, &std::unique_ptr< T >::get ) != all.end();
   };
   if( !( knows( objects ) || ... ) ) {
      ADD_FAILURE() << "an unknown object is used";
      std::abort();
   }
   EXPECT_FALSE( object->gone() ) << object->name << " is used after its release";
   return object->name;
}

std::string numbered( const char* what, std::size_t before ) {
   return what + std::to_string( before + 1 );
}

} // namespace

Answer fails( int error ) {
   return { .result = -error };
}

Answer fails( int error, std::string message ) {
   return { .result = -error, .errorName = failedError, .errorMessage = std::move( message ) };
}

Answer gives( std::string text ) {
   return { .text = std::move( text ) };
}

Answer replies( Content content ) {
   return { .result = 1, .reply = std::move( content ) };
}

Answer dispatches( std::vector< Signal > signals ) {
   return { .result = 1, .signals = std::move( signals ) };
}

ScriptedSdbus& scriptedSdbus() {
   if( !current ) {
      ADD_FAILURE() << "sd-bus is called without a script";
      std::abort();
   }
   return *current;
}

ScriptedSdbus::ScriptedSdbus() {
   takeLog();
   current = this;
}

ScriptedSdbus::~ScriptedSdbus() {
   current = nullptr;
}

void ScriptedSdbus::next( const std::string& function, Answer answer ) {
   answers_[function].push_back( std::move( answer ) );
}

std::string ScriptedSdbus::leftOver() const {
   std::string all;
   for( const auto& [function, answers] : answers_ ) {
      for( std::size_t i = 0; i < answers.size(); ++i ) {
         all += ( all.empty() ? "" : " " ) + function;
      }
   }
   return all;
}

void ScriptedSdbus::forgetLeftOver() {
   answers_.clear();
}

bool ScriptedSdbus::expectsMore( const std::string& function ) const {
   const auto answers = answers_.find( function );
   return answers != answers_.end() && !answers->second.empty();
}

void ScriptedSdbus::faultIs( std::size_t number, bool forEver, Answer fault ) {
   calls_ = 0;
   faultNumber_ = number;
   faultForEver_ = forEver;
   fault_ = std::move( fault );
   faults_.clear();
}

Answer ScriptedSdbus::called( const char* function, const std::string& arguments, Answer usual ) {
   const bool isProbe = std::strcmp( function, "probe" ) == 0;
   const std::string line =
      std::string( isProbe ? "sd_bus_get_property_string" : function ) + "( " + arguments + " )";
   logLine( line );
   ++calls_;
   if( faultNumber_ != 0 && ( faultForEver_ ? calls_ >= faultNumber_ : calls_ == faultNumber_ ) ) {
      faults_.push_back( line );
      return fault_;
   }
   auto& answers = answers_[function];
   if( !answers.empty() && !usual.certain ) {
      usual = std::move( answers.front() );
      answers.pop_front();
   }
   return usual;
}

std::string ScriptedSdbus::alive() const {
   std::string all;
   const auto add = [&all]( const std::string& name ) { all += ( all.empty() ? "" : " " ) + name; };
   const auto addThoseOf = [&add]( const auto& objects ) {
      for( const auto& object : objects ) {
         if( !object->gone() ) {
            add( object->name );
         }
      }
   };
   addThoseOf( buses_ );
   addThoseOf( slots_ );
   addThoseOf( replies_ );
   for( const auto& [address, text] : texts_ ) {
      add( text );
   }
   if( errors_ != 0 ) {
      add( std::to_string( errors_ ) + " errors" );
   }
   return all;
}

sd_bus* ScriptedSdbus::newBus() {
   buses_.push_back( std::make_unique< sd_bus >( sd_bus{ numbered( "bus", buses_.size() ) } ) );
   return buses_.back().get();
}

sd_bus_message* ScriptedSdbus::newReply( Content content ) {
   replies_.push_back( std::make_unique< sd_bus_message >() );
   sd_bus_message& message = *replies_.back();
   message.name = numbered( "message", replies_.size() - 1 );
   message.content = std::move( content );
   message.owned = true;
   return &message;
}

sd_bus_slot* ScriptedSdbus::newSlot( sd_bus_slot slot ) {
   slot.name = numbered( "slot", slots_.size() );
   ++slot.bus->slots;
   slots_.push_back( std::make_unique< sd_bus_slot >( std::move( slot ) ) );
   return slots_.back().get();
}

char* ScriptedSdbus::newText( const std::string& text ) {
   char* const copy = strdup( text.c_str() );
   texts_[copy] = text;
   return copy;
}

void ScriptedSdbus::errorIs( sd_bus_error* error, const Answer& answer ) {
   if( error && ( answer.errorName || answer.errorMessage ) ) {
      error->name = answer.errorName ? strdup( answer.errorName->c_str() ) : nullptr;
      error->message = answer.errorMessage ? strdup( answer.errorMessage->c_str() ) : nullptr;
      error->_need_free = 1;
      ++errors_;
   }
}

void ScriptedSdbus::errorFreed( sd_bus_error* error ) {
   if( error && ( error->name || error->message ) ) {
      std::free( const_cast< char* >( error->name ) );
      std::free( const_cast< char* >( error->message ) );
      *error = {};
      --errors_;
   }
}

void ScriptedSdbus::textFreed( void* text ) {
   const auto known = texts_.find( text );
   if( known != texts_.end() ) {
      const UnwatchedMemory unwatched;
      logLine( "free( " + known->second + " )" );
      texts_.erase( known );
   }
}

void ScriptedSdbus::dispatch( sd_bus* bus, const Signal& signal ) {
   for( const auto& slot : slots_ ) {
      if( slot->released || slot->bus != bus || slot->path != signal.path ||
          slot->interface != signal.interface || slot->member != signal.member ) {
         continue;
      }
      signals_.push_back( std::make_unique< sd_bus_message >() );
      sd_bus_message* const message = signals_.back().get();
      message->name = signal.member;
      message->content = signal.content;
      sd_bus_error error = {};
      int result = 0;
      {
         const UnwatchedMemory watchedAgain( true );
         result = slot->callback( message, slot->userdata, &error );
      }
      errorFreed( &error );
      logLine( signal.member + " callback returns " + std::to_string( result ) );
      return;
   }
   logLine( signal.member + " has no match" );
}

std::string ScriptedSdbus::nameOf( const sd_bus* bus ) const {
   return nameAmong( bus, buses_ );
}

std::string ScriptedSdbus::nameOf( const sd_bus_slot* slot ) const {
   return nameAmong( slot, slots_ );
}

std::string ScriptedSdbus::nameOf( const sd_bus_message* message ) const {
   return nameAmong( message, replies_, signals_ );
}

void ScriptedSdbus::released( sd_bus* bus ) {
   if( bus ) {
      EXPECT_TRUE( std::exchange( bus->open, false ) ) << bus->name << " is released twice";
   }
}

void ScriptedSdbus::released( sd_bus_slot* slot ) {
   if( slot && !std::exchange( slot->released, true ) ) {
      --slot->bus->slots;
   }
}

void ScriptedSdbus::released( sd_bus_message* message ) {
   if( message ) {
      EXPECT_TRUE( message->owned ) << message->name << " is not the library's to release";
      message->released = true;
      // Strings that the library has read point into this.
      for( Item& item : message->content ) {
         if( item.text ) {
            std::fill( item.text->begin(), item.text->end(), '#' );
         }
      }
   }
}

// The linker redirects calls of free to __wrap_free; __real_free is the original.
void realFree( void* memory ) asm( "__real_free" );
void wrappedFree( void* memory ) asm( "__wrap_free" );

void wrappedFree( void* memory ) {
   if( memory && current ) {
      current->textFreed( memory );
   }
   realFree( memory );
}

} // namespace SodrelTest
