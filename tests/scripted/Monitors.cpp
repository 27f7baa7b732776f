// The table of the three monitors, and their signals.
#include <scripted/Monitors.h>

#include <type_traits>

namespace SodrelTest {

namespace {

// The table's functions.
template< typename T >
Tessel::Ptr< SignalMonitor > make( sd_bus* bus ) {
   if constexpr( std::is_same_v< T, JobRemovedMonitor > ) {
      return Sodrel::jobRemovedMonitorFactory( bus );
   } else if constexpr( std::is_same_v< T, DaemonReloadingMonitor > ) {
      return Sodrel::daemonReloadingMonitorFactory( bus );
   } else {
      return Sodrel::unitReloadingMonitorFactory( bus, fooPath );
   }
}

template< typename T >
Tessel::Ptr< Tessel::Node > dataIs( SignalMonitor& monitor ) {
   return static_cast< T& >( monitor ).dataIs();
}

template< typename T >
Tessel::Ptr< Tessel::Node > dataDel( SignalMonitor& monitor ) {
   return static_cast< T& >( monitor ).dataDel();
}

} // namespace

const Monitor jobRemovedMonitor{
   "JobRemovedMonitor",
   "JobRemoved",
   "uoss",
   managerPath,
   managerInterface,
   "",
   jobPath,
   "callbackFailed=false jobId=0 result=",
   make< JobRemovedMonitor >,
   dataIs< JobRemovedMonitor >,
   dataDel< JobRemovedMonitor >,
};

const Monitor daemonReloadingMonitor{
   "DaemonReloadingMonitor",
   "Reloading",
   "b",
   managerPath,
   managerInterface,
   "",
   nullptr,
   "callbackFailed=false started=false finished=false",
   make< DaemonReloadingMonitor >,
   dataIs< DaemonReloadingMonitor >,
   dataDel< DaemonReloadingMonitor >,
};

const Monitor unitReloadingMonitor{
   "UnitReloadingMonitor",
   "PropertiesChanged",
   "s",
   fooPath,
   propertiesInterface,
   " for /org/freedesktop/systemd1/unit/foo_2eservice",
   nullptr,
   "callbackFailed=false started=false finished=false failed=false",
   make< UnitReloadingMonitor >,
   dataIs< UnitReloadingMonitor >,
   dataDel< UnitReloadingMonitor >,
};

std::string Monitor::waiting( SignalMonitor& monitor ) const {
   bool returned = false;
   const std::string thrown = thrownBy( [&] {
      returned = monitor.wait(
         object ? Orl::Optional< Tessel::String >( object )
                : Orl::Optional< Tessel::String >( std::nullopt ) );
   } );
   return thrown != "nothing" ? thrown : returned ? "true" : "false";
}

std::string Monitor::waitFailed( const std::string& phrase ) const {
   return std::string( "Sodrel::SdbusSyncException: " ) + name + "::wait, " + phrase;
}

std::string Monitor::timeout() const {
   return waitFailed( "600.000000 timeout" + forObject() );
}

std::string Monitor::callbackFailed() const {
   return waitFailed( "callback handling failed" + forObject() );
}

std::string Monitor::forObject() const {
   return object ? std::string( " for " ) + object : "";
}

Signal signalOf( const Monitor& monitor, Content content ) {
   return { monitor.path, monitor.interface, monitor.signal, std::move( content ) };
}

Signal jobRemoved( std::uint32_t id, std::optional< std::string > result ) {
   const std::string path = "/org/freedesktop/systemd1/job/" + std::to_string( id );
   return signalOf(
      jobRemovedMonitor,
      join( { u( id ), o( path ), s( "foo.service" ), s( std::move( result ) ) } ) );
}

Signal reloading( bool begins ) {
   return signalOf( daemonReloadingMonitor, b( begins ) );
}

Signal unitBecomes( const char* state ) {
   return unitChanged( properties( { activeState( state ) } ) );
}

Signal unitChanged( const Content& properties, const char* interface ) {
   return signalOf( unitReloadingMonitor, join( { s( interface ), properties, texts( {} ) } ) );
}

Content activeState( const char* state ) {
   return property( "ActiveState", variant( "s", s( state ) ) );
}

} // namespace SodrelTest
