// The base of the system's exceptions.
#pragma once

#include <platform/Export.h>
#include <platform/value/String.h>

#include <exception>
#include <stdexcept>

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

} // namespace Tessel
