// The sizes of objects and the offsets of their fields, which programs are compiled against.
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <platform/trace/Trace.h>

#include <bit>
#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

namespace {

struct Finding {
   const char* field;
   std::ptrdiff_t offset;
   std::ptrdiff_t expected;
};

std::vector< Finding >& findings() {
   static std::vector< Finding > all;
   return all;
}

template< typename Class, typename Value >
std::ptrdiff_t offsetOf( Value Class::*field ) {
   return std::bit_cast< std::ptrdiff_t >( field );
}

// Finds out where a field is. It is instantiated explicitly, because only so it may name fields
// that are private.
template< auto field, std::ptrdiff_t expected >
struct At {
   static const bool found;
};

template< auto field, std::ptrdiff_t expected >
const bool At< field, expected >::found = [] {
   findings().push_back( { __PRETTY_FUNCTION__, offsetOf( field ), expected } );
   return true;
}();

template struct At< &Tessel::Node::useCount_, 8 >;
template struct At< &Tessel::Node::nodeFlags_, 12 >;
template struct At< &Tessel::Exception::message_, 8 >;
template struct At< &Tessel::TypeRef::index, 8 >;
template struct At< &Tessel::TypeDesc::memberCount, 32 >;
template struct At< &Tessel::MemberDesc::id, 16 >;
template struct At< &Tessel::MemberDesc::paramCount, 32 >;
template struct At< &Tessel::ModuleInspectData::types, 0 >;
template struct At< &Tessel::ModuleInspectData::members, 16 >;
template struct At< &Tessel::ModuleInspectData::params, 32 >;
template struct At< &Tessel::ModuleInspectData::typeNames, 48 >;
template struct At< &Tessel::ModuleInspectData::memberNames, 64 >;
template struct At< &Tessel::ModuleInspectData::typeRefs, 80 >;
template struct At< &Tessel::ModuleInspectData::hooks, 96 >;
template struct At< &Tessel::ModuleInspectData::word, 112 >;

template struct At< &Orl::AllocTrackTypeInfo::typeName_, 0 >;
template struct At< &Orl::AllocTrackTypeInfo::live_, 32 >;
template struct At< &Orl::AllocTrackTypeInfo::total_, 40 >;
template struct At< &Orl::TraceHandle::name_, 0 >;
template struct At< &Orl::TraceHandle::levels_, 8 >;
template struct At< &Tessel::TracePoint::file_, 0 >;
template struct At< &Tessel::TracePoint::line_, 8 >;
template struct At< &Tessel::TracePoint::function_, 16 >;
template struct At< &Tessel::TracePoint::format_, 24 >;
template struct At< &Tessel::TracePoint::level_, 32 >;
template struct At< &Tessel::TracePoint::facility_, 40 >;
template struct At< &Fennet::TraceHandle::number_, 0 >;
template struct At< &Fennet::Impl::LastUsed::handle, 0 >;
template struct At< &Fennet::Impl::LastUsed::file, 8 >;
template struct At< &Fennet::TraceFile::header_, 0 >;
template struct At< &Fennet::TraceFile::ring_, 8 >;
template struct At< &Fennet::TraceFile::end_, 16 >;
template struct At< &Fennet::TraceFile::blockEnd_, 24 >;
template struct At< &Fennet::TraceFile::clocksDue_, 32 >;
template struct At< &Fennet::TraceFile::mask_, 40 >;
template struct At< &Fennet::TraceFile::recordRoom_, 48 >;
template struct At< &Fennet::TraceFile::tsc_, 52 >;
template struct At< &Fennet::TraceFile::described_, 56 >;

template struct At< &Sodrel::Sdbus::rawSdbus, 16 >;
template struct At< &Sodrel::SignalMonitor::syncTimeout, 16 >;
template struct At< &Sodrel::SignalMonitor::rawSdbus, 24 >;
template struct At< &Sodrel::SignalMonitor::slot, 32 >;
template struct At< &Sodrel::JobRemovedMonitor::data, 40 >;
template struct At< &Sodrel::JobRemovedMonitor::CallbackData::callbackFailed, 16 >;
template struct At< &Sodrel::JobRemovedMonitor::CallbackData::jobId, 20 >;
template struct At< &Sodrel::JobRemovedMonitor::CallbackData::result, 24 >;
template struct At< &Sodrel::DaemonReloadingMonitor::data, 40 >;
template struct At< &Sodrel::DaemonReloadingMonitor::CallbackData::callbackFailed, 16 >;
template struct At< &Sodrel::DaemonReloadingMonitor::CallbackData::started, 17 >;
template struct At< &Sodrel::DaemonReloadingMonitor::CallbackData::finished, 18 >;
template struct At< &Sodrel::UnitReloadingMonitor::unitPath, 40 >;
template struct At< &Sodrel::UnitReloadingMonitor::data, 72 >;
template struct At< &Sodrel::UnitReloadingMonitor::CallbackData::callbackFailed, 16 >;
template struct At< &Sodrel::UnitReloadingMonitor::CallbackData::started, 17 >;
template struct At< &Sodrel::UnitReloadingMonitor::CallbackData::finished, 18 >;
template struct At< &Sodrel::UnitReloadingMonitor::CallbackData::failed, 19 >;

TEST( EveryField, isInItsPlace ) {
   EXPECT_FALSE( findings().empty() );
   for( const Finding& finding : findings() ) {
      EXPECT_EQ( finding.offset, finding.expected ) << finding.field;
   }
}

TEST( TheModuleRecord, tellsItsFormatAndHowManyTypesItHas ) {
   EXPECT_EQ( _Sodrel_c4788d5e_orlModule.word, 0x00010001 );
   EXPECT_EQ( _SignalMonitor_178310f1_orlModule.word, 0x00010007 );
}

TEST( TheSize, ofEveryValueIsKept ) {
   EXPECT_EQ( sizeof( Tessel::String ), 32 );
   EXPECT_EQ( sizeof( Orl::Optional< Tessel::String > ), 40 );
   EXPECT_EQ( sizeof( Tessel::Interval ), 8 );
   EXPECT_EQ( sizeof( Orl::VoidPtr ), 8 );
   EXPECT_EQ( sizeof( Tessel::Ptr< Tessel::Node > ), 8 );
}

TEST( TheSize, ofEveryEntityIsKept ) {
   EXPECT_EQ( sizeof( Tessel::Node ), 16 );
   EXPECT_EQ( sizeof( Sodrel::Sdbus ), 24 );
   EXPECT_EQ( sizeof( Sodrel::SignalMonitor ), 40 );
   EXPECT_EQ( sizeof( Sodrel::JobRemovedMonitor ), 48 );
   EXPECT_EQ( sizeof( Sodrel::DaemonReloadingMonitor ), 48 );
   EXPECT_EQ( sizeof( Sodrel::UnitReloadingMonitor ), 80 );
   EXPECT_EQ( sizeof( Sodrel::JobRemovedMonitor::CallbackData ), 56 );
   EXPECT_EQ( sizeof( Sodrel::DaemonReloadingMonitor::CallbackData ), 24 );
   EXPECT_EQ( sizeof( Sodrel::UnitReloadingMonitor::CallbackData ), 24 );
}

TEST( TheSize, ofEveryExceptionIsThatOfTheBase ) {
   EXPECT_EQ( sizeof( Tessel::Exception ), 24 );
   EXPECT_EQ( sizeof( Tessel::NegativeNotAllowed ), 24 );
   EXPECT_EQ( sizeof( Tessel::ArgOutOfRange ), 24 );
   EXPECT_EQ( sizeof( Sodrel::Exception ), 24 );
   EXPECT_EQ( sizeof( Sodrel::NoSdbusException ), 24 );
   EXPECT_EQ( sizeof( Sodrel::SdbusCallException ), 24 );
   EXPECT_EQ( sizeof( Sodrel::SdbusMessageException ), 24 );
   EXPECT_EQ( sizeof( Sodrel::SdbusSyncException ), 24 );
   EXPECT_EQ( sizeof( Sodrel::SdbusJobException ), 24 );
}

TEST( TheSize, ofEveryTableEntryIsKept ) {
   EXPECT_EQ( sizeof( Tessel::TypeRef ), 16 );
   EXPECT_EQ( sizeof( Tessel::ParamDesc ), 24 );
   EXPECT_EQ( sizeof( Tessel::MemberDesc ), 40 );
   EXPECT_EQ( sizeof( Tessel::TypeDesc ), 40 );
   EXPECT_EQ( sizeof( Tessel::TypeHooks ), 16 );
   EXPECT_EQ( sizeof( Tessel::ModuleInspectData ), 120 );
   EXPECT_EQ( sizeof( Tessel::Member ), 16 );
   EXPECT_EQ( sizeof( Orl::AllocCounts ), 16 );
}

TEST( TheSize, ofEveryTraceObjectIsKept ) {
   EXPECT_EQ( sizeof( Orl::TraceHandle ), 16 );
   EXPECT_EQ( sizeof( Tessel::TracePoint ), 56 );
   EXPECT_EQ( sizeof( Tessel::TextTrace ), 64 );
   EXPECT_EQ( sizeof( Fennet::Impl::LastUsed ), 16 );
   EXPECT_EQ( sizeof( Fennet::TraceHandle ), 64 );
   EXPECT_EQ( sizeof( Fennet::MsgFormatString ), 32 );
   EXPECT_EQ( sizeof( Fennet::MsgDesc ), 104 );
}

} // namespace
