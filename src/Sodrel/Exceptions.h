// The errors of the library: one class for each stage that can fail.
//
// Each carries one line of text: where it was thrown, what failed, and the cause. Catch
// Sodrel::Exception to handle them all. They are thrown by value; the library catches none.
#pragma once

#include <platform/value/Exception.h>

#include <utility>

namespace Sodrel {

/// The common base of the library's errors. It is never thrown itself.
class TESSEL_EXPORT Exception : public Tessel::Exception {
 public:
   /// Takes the line of text.
   // NOLINTNEXTLINE(performance-unnecessary-value-param): all six are made alike, by value.
   explicit Exception( Tessel::String message ) : Tessel::Exception( message ) {}
   ~Exception() override = default;
};

/// No connection to the system bus could be opened.
class TESSEL_EXPORT NoSdbusException : public Exception {
 public:
   /// Takes the line of text.
   explicit NoSdbusException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~NoSdbusException() override = default;
};

/// A method call or a property read failed.
class TESSEL_EXPORT SdbusCallException : public Exception {
 public:
   /// Takes the line of text.
   explicit SdbusCallException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusCallException() override = default;
};

/// A reply did not have the expected type.
class TESSEL_EXPORT SdbusMessageException : public Exception {
 public:
   /// Takes the line of text.
   explicit SdbusMessageException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusMessageException() override = default;
};

/// The outcome of a call was not seen: the method has no synchronous form, the match rule could not
/// be added, the signal could not be read, the bus failed during the wait, or the time limit
/// expired. Also thrown for a unit that becomes "failed" during its reload.
class TESSEL_EXPORT SdbusSyncException : public Exception {
 public:
   /// Takes the line of text.
   explicit SdbusSyncException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusSyncException() override = default;
};

/// A job could not be identified, or ended with a result that counts as a failure.
class TESSEL_EXPORT SdbusJobException : public Exception {
 public:
   /// Takes the line of text.
   explicit SdbusJobException( Tessel::String message ) : Exception( std::move( message ) ) {}
   ~SdbusJobException() override = default;
};

} // namespace Sodrel
