// The base of entities: use count, flags, and the order of its virtual operations.
#include "Instruments.h"

#include <platform/entity/Node.h>
#include <support/Slots.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <sys/single_threaded.h>
#include <thread>
#include <vector>

namespace SodrelTest {
namespace {

// An entity that belongs to no module; it reports its destruction.
class Plain : public Tessel::Node {
 public:
   explicit Plain( bool& gone ) : gone_( gone ) {}

 protected:
   ~Plain() override { gone_ = true; }

 private:
   bool& gone_;
};

// One that remains when its last user is gone.
class Lasting : public Tessel::Node {
 public:
   ~Lasting() override = default;
   void lastUserGone() noexcept override { ++timesLeft; }

   int timesLeft = 0;
};

// Counts up and down, and returns whether every count was correct.
bool countsUsesOf( Tessel::Node& node, std::uint32_t users ) {
   for( std::uint32_t added = 1; added <= users; ++added ) {
      node.incUse();
      if( node.useCount() != 1 + added ) {
         return false;
      }
   }
   for( std::uint32_t left = users; left > 0; --left ) {
      node.decUseImpl();
      if( node.useCount() != left ) {
         return false;
      }
   }
   return true;
}

static_assert( sizeof( Tessel::Node ) == sizeof( void* ) + 8 );

TEST( ANode, countsItsUsesInAProcessWithOneThread ) {
   // In a forked child, which has one thread however many the parent had, except for the thread
   // sanitizer's own, which uses no node.
   EXPECT_EXIT(
      {
         bool gone = false;
         auto* const node = new Plain( gone );
         __libc_single_threaded = 1;
         const bool counted = countsUsesOf( *node, 3 ) && !gone;
         node->decUseImpl();
         std::exit( counted && gone ? 0 : 1 );
      },
      testing::ExitedWithCode( 0 ), "" );
}

TEST( ANode, countsItsUsesBesideAnotherThread ) {
   std::promise< void > end;
   const std::jthread other( [ended = end.get_future()] { ended.wait(); } );
   EXPECT_EQ( __libc_single_threaded, 0 );
   bool gone = false;
   auto* const node = new Plain( gone );
   EXPECT_TRUE( countsUsesOf( *node, 3 ) );
   EXPECT_FALSE( gone );
   node->decUseImpl();
   EXPECT_TRUE( gone );
   end.set_value();
}

TEST( ANode, losesNoUseBetweenThreads ) {
   bool gone = false;
   auto* const node = new Plain( gone );
   {
      std::vector< std::jthread > threads;
      for( int i = 0; i < 4; ++i ) {
         node->incUse();
         threads.emplace_back( [node] {
            for( int round = 0; round < 1'000'000; ++round ) {
               node->incUse();
               node->decUseImpl();
            }
            node->decUseImpl();
         } );
      }
   }
   EXPECT_EQ( node->useCount(), 1U );
   EXPECT_FALSE( gone );
   node->decUseImpl();
   EXPECT_TRUE( gone );
}

TEST( ANode, isDestroyedByWhicheverThreadDropsTheLastUse ) {
   bool gone = false;
   auto* const node = new Plain( gone );
   {
      std::vector< std::jthread > threads;
      for( int i = 0; i < 4; ++i ) {
         node->incUse();
         threads.emplace_back( [node] { node->decUseImpl(); } );
      }
      node->decUseImpl();
   }
   EXPECT_TRUE( gone );
}

TEST( ANode, setsAndClearsOneFlagAtATime ) {
   Lasting node;
   EXPECT_FALSE( node.nodeFlag( 0xffffffff ) );
   node.nodeFlagSet( 0x1, true );
   node.nodeFlagSet( Tessel::nodeInitialized, true );
   EXPECT_TRUE( node.nodeFlag( 0x1 ) );
   EXPECT_TRUE( node.nodeFlag( 0x20000000 ) );
   EXPECT_FALSE( node.nodeFlag( 0x2 ) );
   node.nodeFlagSet( Tessel::nodeInitialized, true );
   node.nodeFlagSet( Tessel::nodeInitialized, false );
   EXPECT_TRUE( node.nodeFlag( 0x1 ) );
   EXPECT_FALSE( node.nodeFlag( 0x20000000 ) );
   node.nodeFlagSet( 0x1, false );
   EXPECT_FALSE( node.nodeFlag( 0xffffffff ) );
}

TEST( ANode, hasNoPublisherAndNoModuleUnlessItsClassSaysSo ) {
   Lasting node;
   EXPECT_EQ( node.publisher(), nullptr );
   EXPECT_TRUE( node.typeData() == Tessel::nodeType );
}

TEST( ANode, asksItsClassWhatHappensWhenTheLastUserIsGone ) {
   Lasting node;
   EXPECT_EQ( node.useCount(), 1U );
   node.incUse();
   node.decUseImpl();
   EXPECT_EQ( node.timesLeft, 0 );
   node.decUseImpl();
   EXPECT_EQ( node.timesLeft, 1 );
}

TEST( ANode, hasItsVirtualOperationsInOrder ) {
   EXPECT_EQ( slotOf( &Tessel::Node::lastUserGone ), 2U );
   EXPECT_EQ( slotOf( &Tessel::Node::publisher ), 3U );
   EXPECT_EQ( slotOf( &Tessel::Node::typeData ), 4U );
   EXPECT_EQ( slotOf( &Instrument::measure ), 5U );
   for( const std::size_t destroying : { 1U, 2U } ) {
      bool gone = false;
      Tessel::Node* const node = new Plain( gone );
      EXPECT_EQ( inSlot< Tessel::Node* >( *node, 3 )( node ), nullptr );
      EXPECT_TRUE( inSlot< Tessel::TypeRef >( *node, 4 )( node ) == Tessel::nodeType );
      inSlot< void >( *node, destroying )( node );
      EXPECT_TRUE( gone );
   }
}

TEST( ANode, isDestroyedButNotReleasedThroughItsFirstSlot ) {
   bool gone = false;
   alignas( Plain ) std::byte memory[sizeof( Plain )];
   Tessel::Node* const node = new( memory ) Plain( gone );
   inSlot< void >( *node, 0 )( node );
   EXPECT_TRUE( gone );
}

} // namespace
} // namespace SodrelTest
