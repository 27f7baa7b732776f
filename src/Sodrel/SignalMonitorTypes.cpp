// Type data of the signal monitors and their callback records.
#include <Sodrel/SignalMonitor.h>

#include <platform/types/Module.h>

namespace Tessel {

using Sodrel::DaemonReloadingMonitor;
using Sodrel::JobRemovedMonitor;
using Sodrel::SignalMonitor;
using Sodrel::UnitReloadingMonitor;

template<>
struct TypeTable< SignalMonitor > {
   static constexpr std::string_view name = "Sodrel::SignalMonitor";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 0 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = notCreatable< sd_bus* >( "rawSdbus" );
   static constexpr std::array members{
      attribute< &SignalMonitor::syncTimeout >( "syncTimeout" ),
      operation< &SignalMonitor::wait >( "wait", "object" ),
   };
};

template<>
struct TypeTable< JobRemovedMonitor::CallbackData > {
   using CallbackData = JobRemovedMonitor::CallbackData;
   static constexpr std::string_view name = "Sodrel::JobRemovedMonitor::CallbackData";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 1 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &ptrIsImpl< CallbackData > >();
   static constexpr std::array members{
      attribute< &CallbackData::callbackFailed >( "callbackFailed" ),
      attribute< &CallbackData::jobId >( "jobId" ),
      attribute< &CallbackData::result >( "result" ),
   };
};

template<>
struct TypeTable< JobRemovedMonitor > {
   static constexpr std::string_view name = "Sodrel::JobRemovedMonitor";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 2 };
   static constexpr TypeRef base = TypeTable< SignalMonitor >::self;
   static constexpr CreationRow creation =
      createdBy< &Sodrel::jobRemovedMonitorFactory >( "rawSdbus" );
   static constexpr std::array members{
      closed< &JobRemovedMonitor::data >( "data" ),
      closed< &JobRemovedMonitor::isUnitObject >( "isUnitObject", "object" ),
      closed< &JobRemovedMonitor::parseJobId >( "parseJobId", "job" ),
      hook< &JobRemovedMonitor::handleInitialized >( "handleInitialized" ),
      hook< &JobRemovedMonitor::handleDeleted >( "handleDeleted" ),
   };
};

template<>
struct TypeTable< DaemonReloadingMonitor::CallbackData > {
   using CallbackData = DaemonReloadingMonitor::CallbackData;
   static constexpr std::string_view name = "Sodrel::DaemonReloadingMonitor::CallbackData";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 3 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &ptrIsImpl< CallbackData > >();
   static constexpr std::array members{
      attribute< &CallbackData::callbackFailed >( "callbackFailed" ),
      attribute< &CallbackData::started >( "started" ),
      attribute< &CallbackData::finished >( "finished" ),
   };
};

template<>
struct TypeTable< DaemonReloadingMonitor > {
   static constexpr std::string_view name = "Sodrel::DaemonReloadingMonitor";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 4 };
   static constexpr TypeRef base = TypeTable< SignalMonitor >::self;
   static constexpr CreationRow creation =
      createdBy< &Sodrel::daemonReloadingMonitorFactory >( "rawSdbus" );
   static constexpr std::array members{
      closed< &DaemonReloadingMonitor::data >( "data" ),
      hook< &DaemonReloadingMonitor::handleInitialized >( "handleInitialized" ),
      hook< &DaemonReloadingMonitor::handleDeleted >( "handleDeleted" ),
   };
};

template<>
struct TypeTable< UnitReloadingMonitor::CallbackData > {
   using CallbackData = UnitReloadingMonitor::CallbackData;
   static constexpr std::string_view name = "Sodrel::UnitReloadingMonitor::CallbackData";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 5 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &ptrIsImpl< CallbackData > >();
   static constexpr std::array members{
      attribute< &CallbackData::callbackFailed >( "callbackFailed" ),
      attribute< &CallbackData::started >( "started" ),
      attribute< &CallbackData::finished >( "finished" ),
      attribute< &CallbackData::failed >( "failed" ),
   };
};

template<>
struct TypeTable< UnitReloadingMonitor > {
   static constexpr std::string_view name = "Sodrel::UnitReloadingMonitor";
   static constexpr TypeRef self{ &_SignalMonitor_178310f1_orlModule, 6 };
   static constexpr TypeRef base = TypeTable< SignalMonitor >::self;
   static constexpr CreationRow creation =
      createdBy< &UnitReloadingMonitor::UnitReloadingMonitorIs >( "rawSdbus", "unitPath" );
   static constexpr std::array members{
      closed< &UnitReloadingMonitor::unitPath >( "unitPath" ),
      closed< &UnitReloadingMonitor::data >( "data" ),
      hook< &UnitReloadingMonitor::handleInitialized >( "handleInitialized" ),
      hook< &UnitReloadingMonitor::handleDeleted >( "handleDeleted" ),
   };
};

} // namespace Tessel

template struct Tessel::HideMe< Sodrel::SignalMonitor >;
template struct Tessel::HideMe< Sodrel::JobRemovedMonitor::CallbackData >;
template struct Tessel::HideMe< Sodrel::JobRemovedMonitor >;
template struct Tessel::HideMe< Sodrel::DaemonReloadingMonitor::CallbackData >;
template struct Tessel::HideMe< Sodrel::DaemonReloadingMonitor >;
template struct Tessel::HideMe< Sodrel::UnitReloadingMonitor::CallbackData >;
template struct Tessel::HideMe< Sodrel::UnitReloadingMonitor >;

constinit const Tessel::ModuleInspectData _SignalMonitor_178310f1_orlModule = Tessel::moduleRecord<
   Sodrel::SignalMonitor, Sodrel::JobRemovedMonitor::CallbackData, Sodrel::JobRemovedMonitor,
   Sodrel::DaemonReloadingMonitor::CallbackData, Sodrel::DaemonReloadingMonitor,
   Sodrel::UnitReloadingMonitor::CallbackData, Sodrel::UnitReloadingMonitor >();

namespace {

const Tessel::ModuleRegistration registration( _SignalMonitor_178310f1_orlModule );

} // namespace

namespace Sodrel {

Orl::AllocTrackTypeInfo* SignalMonitor::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* JobRemovedMonitor::CallbackData::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* JobRemovedMonitor::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* DaemonReloadingMonitor::CallbackData::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* DaemonReloadingMonitor::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* UnitReloadingMonitor::CallbackData::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* UnitReloadingMonitor::memAllocationTracker_ = nullptr;

Tessel::TypeRef SignalMonitor::typeData() const {
   return Tessel::TypeTable< SignalMonitor >::self;
}

Tessel::TypeRef JobRemovedMonitor::CallbackData::typeData() const {
   return Tessel::TypeTable< JobRemovedMonitor::CallbackData >::self;
}

Tessel::TypeRef JobRemovedMonitor::typeData() const {
   return Tessel::TypeTable< JobRemovedMonitor >::self;
}

Tessel::TypeRef DaemonReloadingMonitor::CallbackData::typeData() const {
   return Tessel::TypeTable< DaemonReloadingMonitor::CallbackData >::self;
}

Tessel::TypeRef DaemonReloadingMonitor::typeData() const {
   return Tessel::TypeTable< DaemonReloadingMonitor >::self;
}

Tessel::TypeRef UnitReloadingMonitor::CallbackData::typeData() const {
   return Tessel::TypeTable< UnitReloadingMonitor::CallbackData >::self;
}

Tessel::TypeRef UnitReloadingMonitor::typeData() const {
   return Tessel::TypeTable< UnitReloadingMonitor >::self;
}

} // namespace Sodrel
