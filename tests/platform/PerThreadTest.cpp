// What the platform's memory keeps for each thread: its end, and the lists that only grow.
#include <platform/memory/PerThread.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <pthread.h>
#include <thread>
#include <utility>
#include <vector>

namespace {

bool keysRefused = false;
int keys = 0;
// Runs once, in the midst of the next creation of a key.
void ( *meanwhile )() = nullptr;

} // namespace

// The linker leads the calls here.
extern "C" {

int __real_pthread_key_create( pthread_key_t* key, void ( *end )( void* ) );
int __wrap_pthread_key_create( pthread_key_t* key, void ( *end )( void* ) ) {
   if( keysRefused ) {
      return EAGAIN;
   }
   if( const auto work = std::exchange( meanwhile, nullptr ) ) {
      work();
   }
   ++keys;
   return __real_pthread_key_create( key, end );
}

int __real_pthread_key_delete( pthread_key_t key );
int __wrap_pthread_key_delete( pthread_key_t key ) {
   --keys;
   return __real_pthread_key_delete( key );
}

} // extern "C"

namespace {

using Tessel::Impl::atThreadEnd;

// Each number is a type of its own, for which nothing has been asked yet.
template< int >
struct State {
   void leave() noexcept { ++left; }
   int left = 0;
};

TEST( TheStateOfAThread, isLeftWhenTheThreadEnds ) {
   State< 1 > state;
   std::thread( [&] {
      EXPECT_TRUE( atThreadEnd( &state ) );
      EXPECT_EQ( state.left, 0 );
   } ).join();
   EXPECT_EQ( state.left, 1 );
}

TEST( TheStateOfAThread, isReplacedByALaterOneOfItsType ) {
   State< 2 > first;
   State< 2 > second;
   State< 3 > another;
   std::thread( [&] {
      EXPECT_TRUE( atThreadEnd( &first ) );
      EXPECT_TRUE( atThreadEnd( &another ) );
      EXPECT_TRUE( atThreadEnd( &second ) );
   } ).join();
   EXPECT_EQ( first.left, 0 );
   EXPECT_EQ( second.left, 1 );
   EXPECT_EQ( another.left, 1 );
}

TEST( TheStateOfAThread, isRefusedAsLongAsTheSystemRefuses ) {
   State< 4 > state;
   std::thread( [&] {
      keysRefused = true;
      EXPECT_FALSE( atThreadEnd( &state ) );
      keysRefused = false;
   } ).join();
   EXPECT_EQ( state.left, 0 );
   std::thread( [&] { EXPECT_TRUE( atThreadEnd( &state ) ); } ).join();
   EXPECT_EQ( state.left, 1 );
}

TEST( TheStateOfAThread, isLeftOnceHoweverManyThreadsAreTheFirst ) {
   static State< 5 > ours;
   static State< 5 > theirs;
   const int before = keys;
   meanwhile = [] { std::thread( [] { EXPECT_TRUE( atThreadEnd( &theirs ) ); } ).join(); };
   std::thread( [] { EXPECT_TRUE( atThreadEnd( &ours ) ); } ).join();
   EXPECT_EQ( meanwhile, nullptr );
   EXPECT_EQ( ours.left, 1 );
   EXPECT_EQ( theirs.left, 1 );
   // The one that came too late has gone.
   EXPECT_EQ( keys, before + 1 );
}

class Element {
 public:
   explicit Element( int number ) : number_( number ) {}
   [[nodiscard]] int number() const { return number_; }

 private:
   friend Tessel::Impl::GrowingList< Element >;

   int number_;
   Element* next_ = nullptr;
};

TEST( AGrowingList, hasTheLatestElementFirst ) {
   using List = Tessel::Impl::GrowingList< Element >;
   List list;
   EXPECT_EQ( list.first(), nullptr );
   Element one( 1 );
   Element two( 2 );
   list.add( &one );
   list.add( &two );
   std::vector< int > numbers;
   for( const Element* element = list.first(); element; element = List::next( element ) ) {
      numbers.push_back( element->number() );
   }
   EXPECT_EQ( numbers, ( std::vector{ 2, 1 } ) );
}

TEST( AGrowingList, keepsWhatManyThreadsAdd ) {
   constexpr int threadCount = 4;
   constexpr int each = 5'000;
   using List = Tessel::Impl::GrowingList< Element >;
   List list;
   std::vector< std::vector< Element > > elements(
      threadCount, std::vector< Element >( each, Element( 1 ) ) );
   std::vector< std::thread > threads;
   for( std::vector< Element >& own : elements ) {
      threads.emplace_back( [&] {
         for( Element& element : own ) {
            list.add( &element );
         }
      } );
   }
   for( std::thread& thread : threads ) {
      thread.join();
   }
   int sum = 0;
   for( const Element* element = list.first(); element; element = List::next( element ) ) {
      sum += element->number();
   }
   EXPECT_EQ( sum, threadCount * each );
}

} // namespace
