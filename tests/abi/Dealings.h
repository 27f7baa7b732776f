// What the test and its plugin do with the same exceptions, each with its own code.
#pragma once

#include <Sodrel/Exceptions.h>

#include <platform/value/Interval.h>

#include <array>
#include <typeinfo>

namespace SodrelTest {

// How one shared object deals with one class of exceptions.
struct Dealing {
   const std::type_info* identity;
   void ( *raise )();
   // Returns whether what `raise` throws is caught by its class, with its text and name.
   bool ( *catches )( void ( *raise )() );
};

template< typename Class >
void raiseOne() {
   throw Class( "thrown elsewhere" );
}

template< typename Class >
bool catchesOne( void ( *raise )() ) {
   try {
      raise();
   } catch( const Class& error ) {
      return error.what() == Tessel::String( "thrown elsewhere" ) &&
             error.name() == Class( "" ).name();
   } catch( ... ) {
   }
   return false;
}

template< typename... Classes >
std::array< Dealing, sizeof...( Classes ) > dealingsWith() {
   return { Dealing{ &typeid( Classes ), &raiseOne< Classes >, &catchesOne< Classes > }... };
}

inline auto allDealings() {
   return dealingsWith<
      Sodrel::Exception, Sodrel::NoSdbusException, Sodrel::SdbusCallException,
      Sodrel::SdbusMessageException, Sodrel::SdbusSyncException, Sodrel::SdbusJobException,
      Tessel::Exception, Tessel::NegativeNotAllowed, Tessel::ArgOutOfRange >();
}

using AllDealings = decltype( allDealings() );

} // namespace SodrelTest

// The plugin's only exported function.
extern "C" TESSEL_EXPORT SodrelTest::AllDealings* pluginDealings();
