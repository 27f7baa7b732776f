// Type data of the manager client.
#include <Sodrel/Sodrel.h>

#include <platform/types/Module.h>

template<>
struct Tessel::TypeTable< Sodrel::Sdbus > {
   using Sdbus = Sodrel::Sdbus;
   static constexpr std::string_view name = "Sodrel::Sdbus";
   static constexpr TypeRef self{ &_Sodrel_c4788d5e_orlModule, 0 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &Sodrel::sdbusFactory >();
   static constexpr std::array members{
      operation< &Sdbus::managerCall >( "managerCall", "method", "async" ),
      operation< &Sdbus::managerCallSO >( "managerCallSO", "method", "s", "async" ),
      operation< &Sdbus::managerCallSsO >( "managerCallSsO", "method", "s1", "s2", "async" ),
      operation< &Sdbus::managerPropertyB >( "managerPropertyB", "property" ),
      operation< &Sdbus::managerPropertyS >( "managerPropertyS", "property" ),
      operation< &Sdbus::unitPropertyS >( "unitPropertyS", "unit", "property" ),
      operation< &Sdbus::asyncManagerCall >( "asyncManagerCall", "method" ),
      operation< &Sdbus::asyncManagerCallSO >( "asyncManagerCallSO", "method", "s" ),
      operation< &Sdbus::asyncManagerCallSsO >( "asyncManagerCallSsO", "method", "s1", "s2" ),
      operation< &Sdbus::sdbus >( "sdbus" ),
      attribute< &Sdbus::rawSdbus >( "rawSdbus" ),
      operation< &Sdbus::handleSdbusCall >( "handleSdbusCall", "ret", "sdErr", "errMsg" ),
      operation< &Sdbus::handleSdbusMessage >( "handleSdbusMessage", "sdMsg" ),
      operation< &Sdbus::handleSdbusMessageO >( "handleSdbusMessageO", "sdMsg", "errMsg" ),
      operation< &Sdbus::handleSdbusMessageB >( "handleSdbusMessageB", "sdMsg", "errMsg" ),
      hook< &Sdbus::handleInitialized >( "handleInitialized" ),
      hook< &Sdbus::handleDeleted >( "handleDeleted" ),
   };
};

template struct Tessel::HideMe< Sodrel::Sdbus >;

constinit const Tessel::ModuleInspectData _Sodrel_c4788d5e_orlModule =
   Tessel::moduleRecord< Sodrel::Sdbus >();

namespace {

const Tessel::ModuleRegistration registration( _Sodrel_c4788d5e_orlModule );

} // namespace

namespace Sodrel {

Orl::AllocTrackTypeInfo* Sdbus::memAllocationTracker_ = nullptr;

Tessel::TypeRef Sdbus::typeData() const {
   return Tessel::TypeTable< Sdbus >::self;
}

} // namespace Sodrel
