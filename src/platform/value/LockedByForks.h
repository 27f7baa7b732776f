// Mutexes that a fork waits for.
#pragma once

#include <mutex>

#include <pthread.h>

namespace Tessel::Impl {

// Makes every fork take the mutex first, so that no child inherits it locked by a thread that the
// child does not have. Call it once for each mutex, when the library is loaded.
template< std::mutex& mutex >
int lockedByForks() {
   const auto unlock = [] { mutex.unlock(); };
   return pthread_atfork( [] { mutex.lock(); }, unlock, unlock );
}

} // namespace Tessel::Impl
