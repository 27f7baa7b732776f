// The script of the replaced sd-bus and its objects.
#include <support/ScriptedSdbus.h>

#include <support/ScriptedLog.h>
#include <support/ScriptedMemory.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <utility>

namespace Sodrel::Test {

namespace {

ScriptedSdbus* current = nullptr;

constexpr const char* failed = "org.freedesktop.DBus.Error.Failed";

template< typename T >
bool knows( const std::vector< std::unique_ptr< T > >& objects, const T* object ) {
   return std::ranges::find( objects, object, &std::unique_ptr< T >::get ) != objects.end();
}

std::string numbered( const char* what, std::size_t before ) {
   return what + std::to_string( before + 1 );
}

} // namespace

Answer fails( int error ) {
   return { .result = -error };
}

Answer fails( int error, std::string message ) {
   return { .result = -error, .errorName = failed, .errorMessage = std::move( message ) };
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
   onFree = []( void* memory ) { current->textFreed( memory ); };
}

ScriptedSdbus::~ScriptedSdbus() {
   onFree = nullptr;
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
   logLine(
      std::string( isProbe ? "sd_bus_get_property_string" : function ) + "( " + arguments + " )" );
   ++calls_;
   if( faultNumber_ != 0 && ( faultForEver_ ? calls_ >= faultNumber_ : calls_ == faultNumber_ ) ) {
      faults_.emplace_back( function );
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
   for( const auto& bus : buses_ ) {
      if( bus->open || bus->slots > 0 ) {
         add( bus->name );
      }
   }
   for( const auto& slot : slots_ ) {
      if( !slot->released ) {
         add( slot->name );
      }
   }
   for( const auto& message : messages_ ) {
      if( message->owned && !message->released ) {
         add( message->name );
      }
   }
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
   messages_.push_back( std::make_unique< sd_bus_message >() );
   sd_bus_message& message = *messages_.back();
   message.name = numbered( "message", messages_.size() - 1 );
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
   if( error->name || error->message ) {
      std::free( const_cast< char* >( error->name ) );
      std::free( const_cast< char* >( error->message ) );
      *error = {};
      --errors_;
   }
}

void ScriptedSdbus::textFreed( void* text ) {
   const auto known = texts_.find( text );
   if( known != texts_.end() ) {
      const NotLibrary notLibrary;
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
      messages_.push_back( std::make_unique< sd_bus_message >() );
      sd_bus_message* const message = messages_.back().get();
      message->name = signal.member;
      message->content = signal.content;
      sd_bus_error error = {};
      int result = 0;
      {
         const LibraryAgain libraryAgain;
         result = slot->callback( message, slot->userdata, &error );
      }
      errorFreed( &error );
      logLine( signal.member + " callback gives " + std::to_string( result ) );
      return;
   }
   logLine( signal.member + " has no match" );
}

std::string ScriptedSdbus::nameOf( const sd_bus* bus ) {
   if( !bus ) {
      return "null";
   }
   if( !knows( buses_, bus ) ) {
      ADD_FAILURE() << "an unknown connection is used";
      std::abort();
   }
   EXPECT_TRUE( bus->open || bus->slots > 0 ) << bus->name << " is used after its release";
   return bus->name;
}

std::string ScriptedSdbus::nameOf( const sd_bus_slot* slot ) {
   if( !slot ) {
      return "null";
   }
   if( !knows( slots_, slot ) ) {
      ADD_FAILURE() << "an unknown slot is used";
      std::abort();
   }
   EXPECT_FALSE( slot->released ) << slot->name << " is used after its release";
   return slot->name;
}

std::string ScriptedSdbus::nameOf( const sd_bus_message* message ) {
   if( !message ) {
      return "null";
   }
   if( !knows( messages_, message ) ) {
      ADD_FAILURE() << "an unknown message is used";
      std::abort();
   }
   EXPECT_FALSE( message->released ) << message->name << " is used after its release";
   return message->name;
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
      // What the library has read points into this.
      for( Item& item : message->content ) {
         if( item.text ) {
            std::fill( item.text->begin(), item.text->end(), '#' );
         }
      }
   }
}

} // namespace Sodrel::Test
