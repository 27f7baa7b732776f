// Conversions that must be explicit.
#include <Sodrel/Exceptions.h>

#include <platform/value/Interval.h>

void test() {
   const Tessel::Interval interval( 1 );
   const Sodrel::NoSdbusException exception( Tessel::String( "text" ) );
   const Tessel::Exception base( Tessel::String( "text" ) );

#if defined( STRING_AS_EXCEPTION )
   const Sodrel::NoSdbusException converted = Tessel::String( "text" );
#elif defined( STRING_AS_BASE_EXCEPTION )
   const Tessel::Exception converted = Tessel::String( "text" );
#elif defined( NUMBER_AS_INTERVAL )
   const Tessel::Interval converted = 1;
#endif
}
