// Threads for tests.
#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace SodrelTest {

// Runs work in `count` threads at once and waits for all of them to end.
inline void inThreads( std::size_t count, const std::function< void() >& work ) {
   std::vector< std::jthread > threads;
   while( threads.size() < count ) {
      threads.emplace_back( work );
   }
}

} // namespace SodrelTest
