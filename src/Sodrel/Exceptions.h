// The errors of the library: one class for each stage that can fail.
//
// Each carries one composed line: where it was thrown, what failed, and the cause. Catch
// Sodrel::Exception to handle them all. They are thrown by value, and the library catches none.
#pragma once

#include <platform/value/Exception.h>

#include <utility>

namespace Sodrel {

/// The common base of the library's errors. Never thrown itself.
class TESSEL_EXPORT Exception : public Tessel::Exception {
 public:
   /// Takes the composed line.
   // NOLINTNEXTLINE(performance-unnecessary-value-param): all six are made alike, by value.
   explicit Exception( Tessel::String message ) : Tessel::Exception( message ) {}
   ~Exception() override = default;
};

/// No connection to the system bus could be opened.
class TESSEL_EXPORT NoSdbusException : public Exception {
 public:
   /// Takes the composed line.
   explicit NoSdbusException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~NoSdbusException() override = default;
};

/// A method call or a property read failed.
class TESSEL_EXPORT SdbusCallException : public Exception {
 public:
   /// Takes the composed line.
   explicit SdbusCallException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusCallException() override = default;
};

/// A reply did not have the expected signature.
class TESSEL_EXPORT SdbusMessageException : public Exception {
 public:
   /// Takes the composed line.
   explicit SdbusMessageException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusMessageException() override = default;
};

/// A call could not be followed to its end: the method has no synchronous form, the signal match
/// could not be registered, the signal could not be read, the bus failed during the wait, or the
/// time limit ran out. Also thrown for a unit that becomes "failed" during its reload.
class TESSEL_EXPORT SdbusSyncException : public Exception {
 public:
   /// Takes the composed line.
   explicit SdbusSyncException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusSyncException() override = default;
};

/// A job could not be identified, or ended with a result that counts as failure.
class TESSEL_EXPORT SdbusJobException : public Exception {
 public:
   /// Takes the composed line.
   explicit SdbusJobException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusJobException() override = default;
};

} // namespace Sodrel
