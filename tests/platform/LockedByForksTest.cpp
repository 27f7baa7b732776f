// Mutexes that a fork waits for.
#include <platform/value/LockedByForks.h>

#include "Process.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include <pthread.h>

namespace SodrelTest {
namespace {

std::mutex mutex;
bool isHeld = false;

void tryTheMutex() {
   std::thread( [] {
      const std::unique_lock lock( mutex, std::try_to_lock );
      isHeld = !lock;
   } ).join();
}

// In a child process, so that only its forks take the mutex.
TEST( AMutexLockedByForks, isHeldByNoThreadBeforeAndAfter ) {
   EXPECT_EQ(
      statusOf( [] {
         // The handler registered last runs first.
         EXPECT_EQ( pthread_atfork( tryTheMutex, nullptr, nullptr ), 0 );
         EXPECT_EQ( Tessel::Impl::lockedByForks< mutex >(), 0 );
         const int status = statusOf( [] {
            EXPECT_TRUE( isHeld );
            tryTheMutex();
            EXPECT_FALSE( isHeld );
         } );
         EXPECT_EQ( status, 0 );
         tryTheMutex();
         EXPECT_FALSE( isHeld );
      } ),
      0 );
}

} // namespace
} // namespace SodrelTest
