// Threads of a test's own.
#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace SodrelTest {

// Runs work in so many threads at once and waits for their end.
inline void inThreads( std::size_t count, const std::function< void() >& work ) {
   std::vector< std::jthread > threads;
   while( threads.size() < count ) {
      threads.emplace_back( work );
   }
}

} // namespace SodrelTest
