// The base of the system's exceptions, and readable names of C++ types.
#pragma once

#include <platform/Export.h>
#include <platform/value/String.h>

#include <exception>
#include <stdexcept>
#include <typeinfo>

namespace Tessel {

/// An error with one line of text. Thrown by value, caught by reference; copying never throws.
class TESSEL_EXPORT Exception : public std::exception {
 public:
   /// Copies the message. Throws std::bad_alloc.
   explicit Exception( const String& message );
   /// Shares the message.
   Exception( const Exception& ) = default;
   /// Shares the message.
   Exception& operator=( const Exception& ) = default;
   ~Exception() override;

   /// Returns the message given to the constructor, borrowed from the exception.
   [[nodiscard]] const char* what() const noexcept override;
   /// Returns the qualified name of the exception's class, for example "Sodrel::NoSdbusException".
   [[nodiscard]] virtual String name() const;

 private:
   // Holds the text: copies share it and therefore cannot fail.
   std::runtime_error message_;
};

/// Returns the qualified name as written in the source, for example "Sodrel::Sdbus".
/// Throws std::bad_alloc.
TESSEL_EXPORT String typeName( const std::type_info& type );

} // namespace Tessel
