// The exception base and the errors of the value types.
#include <platform/value/Exception.h>

#include <platform/value/Optional.h>

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace Tessel {

Exception::Exception( const String& message ) : message_( message.data() ) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept {
   return message_.what();
}

String Exception::name() const {
   return typeName( typeid( *this ) );
}

String typeName( const std::type_info& type ) {
   const std::unique_ptr< char, decltype( &std::free ) > readable(
      abi::__cxa_demangle( type.name(), nullptr, nullptr, nullptr ), &std::free );
   return readable ? readable.get() : type.name();
}

} // namespace Tessel

namespace Orl::Impl {

void throwBadOptionalAccess() {
   throw std::bad_optional_access();
}

} // namespace Orl::Impl
