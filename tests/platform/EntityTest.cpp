// Creation and teardown of entities: the order of the steps, even when one of them fails.
#include <platform/entity/Entity.h>

#include <platform/value/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace SodrelTest {

namespace {

using Steps = std::vector< std::string >;

enum class Step : std::uint8_t { none, track, slab, base, constructor, initialize };

// Where the steps of this thread are recorded; null outside the tests in this file.
thread_local Steps* steps = nullptr;
thread_local Step failing = Step::none;

void step( std::string text ) {
   if( steps ) {
      steps->push_back( std::move( text ) );
   }
}

void throwAt( Step place ) {
   if( failing == place ) {
      throw std::runtime_error( "as told" );
   }
}

std::string nameOf( const std::type_info& type ) {
   return Tessel::typeName( type ).data();
}

} // namespace

// Records each of its steps together with the flag at that time.
class Tree : public Tessel::Node {
   TESSEL_ENTITY( Tree )

 protected:
   Tree() {
      throwAt( Step::base );
      tell( "construct Tree" );
   }
   ~Tree() override {
      nodeFlagSet( Tessel::nodeInitialized, false );
      tell( "destroy Tree" );
   }

   void tell( const std::string& what ) {
      step( what + ( nodeFlag( Tessel::nodeInitialized ) ? ", initialized" : "" ) );
   }
};

class Apple : public Tree {
   TESSEL_ENTITY( Apple )

 public:
   explicit Apple( std::uint32_t seedCount ) : seeds( seedCount ) {
      throwAt( Step::constructor );
      tell( "construct Apple" );
      handleInitialized();
   }

   void handleInitialized() {
      throwAt( Step::initialize );
      tell( "initialize Apple with " + std::to_string( useCount() ) + " use" );
   }
   void handleDeleted() { tell( "deinitialize Apple" ); }

   const std::uint32_t seeds;

 protected:
   ~Apple() override {
      tell( "destroy Apple" );
      nodeFlagSet( Tessel::nodeInitialized, false );
      handleDeleted();
   }
};

Orl::AllocTrackTypeInfo* Tree::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* Apple::memAllocationTracker_ = nullptr;

Tessel::TypeRef Tree::typeData() const {
   return {};
}

Tessel::TypeRef Apple::typeData() const {
   return {};
}

} // namespace SodrelTest

using SodrelTest::nameOf;
using SodrelTest::step;
using SodrelTest::Step;

// The linker uses these names for the functions of the tracker and the slab allocator that entities
// call, and for the originals.
void realTrack(
   Orl::AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) asm( "__real_" TRACK );
void wrappedTrack(
   Orl::AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) asm( "__wrap_" TRACK );
void realUntrack( Orl::AllocTrackTypeInfo* tracker ) asm( "__real_" UNTRACK );
void wrappedUntrack( Orl::AllocTrackTypeInfo* tracker ) asm( "__wrap_" UNTRACK );
void* realSlabAlloc( std::size_t size ) asm( "__real_" SLAB_ALLOC );
void* wrappedSlabAlloc( std::size_t size ) asm( "__wrap_" SLAB_ALLOC );
void realSlabFree( void* block, const std::type_info& type ) asm( "__real_" SLAB_FREE );
void wrappedSlabFree( void* block, const std::type_info& type ) asm( "__wrap_" SLAB_FREE );

void wrappedTrack(
   Orl::AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) {
   if( SodrelTest::steps ) {
      step(
         "track " + nameOf( type ) + " of " + std::to_string( size ) + " bytes at " +
         std::to_string( alignment ) );
   }
   if( SodrelTest::failing == Step::track ) {
      throw std::bad_alloc();
   }
   realTrack( tracker, type, size, alignment );
}

void wrappedUntrack( Orl::AllocTrackTypeInfo* tracker ) {
   if( SodrelTest::steps ) {
      step( tracker == SodrelTest::Apple::memAllocationTracker_ ? "untrack Apple" : "untrack" );
   }
   realUntrack( tracker );
}

void* wrappedSlabAlloc( std::size_t size ) {
   if( SodrelTest::steps ) {
      step( "take " + std::to_string( size ) + " bytes" );
   }
   return SodrelTest::failing == Step::slab ? nullptr : realSlabAlloc( size );
}

void wrappedSlabFree( void* block, const std::type_info& type ) {
   if( SodrelTest::steps ) {
      step( "give back " + nameOf( type ) );
   }
   realSlabFree( block, type );
}

namespace SodrelTest {

namespace {

using testing::ElementsAre;

const std::string trackApple = "track SodrelTest::Apple of " + std::to_string( sizeof( Apple ) ) +
                               " bytes at " + std::to_string( alignof( Apple ) );
const std::string takeApple = "take " + std::to_string( sizeof( Apple ) ) + " bytes";
const std::string untrackApple = "untrack Apple";
const std::string giveBackApple = "give back SodrelTest::Apple";

Tessel::Ptr< Apple > makeApple() {
   return Tessel::ptrIsImpl< Apple >( 5U );
}

std::uint64_t applesAlive() {
   const auto counts = Orl::allocCounts( "SodrelTest::Apple" );
   return counts ? counts->live : 0;
}

class AnEntity : public testing::Test {
 protected:
   AnEntity() { steps = &taken; }
   ~AnEntity() override { steps = nullptr; }

   Steps taken;
};

TEST_F( AnEntity, isTrackedThenGivenMemoryThenConstructed ) {
   const auto apple = makeApple();
   EXPECT_THAT(
      taken, ElementsAre(
                trackApple, takeApple, "construct Tree", "construct Apple",
                "initialize Apple with 1 use" ) );
   EXPECT_TRUE( apple->nodeFlag( Tessel::nodeInitialized ) );
   EXPECT_EQ( apple->seeds, 5U );
   EXPECT_EQ( apple->useCount(), 1U );
   EXPECT_EQ( applesAlive(), 1U );
}

TEST_F( AnEntity, isTornDownFromItsClassToTheBaseThenUntrackedThenReleased ) {
   auto apple = makeApple();
   taken.clear();
   apple = nullptr;
   EXPECT_THAT(
      taken, ElementsAre(
                "destroy Apple, initialized", "deinitialize Apple", "destroy Tree", untrackApple,
                giveBackApple ) );
   EXPECT_EQ( applesAlive(), 0U );
}

TEST_F( AnEntity, belongsToItsOwnTypeAlsoWhenABasePointerDropsIt ) {
   Tessel::Ptr< Tessel::Node > node = makeApple();
   node = nullptr;
   EXPECT_EQ( taken.back(), giveBackApple );
   EXPECT_NE( Apple::memAllocationTracker_, nullptr );
   EXPECT_FALSE( Orl::allocCounts( "SodrelTest::Tree" ) );
   EXPECT_EQ( Tree::memAllocationTracker_, nullptr );
}

struct FailedCreation {
   Step failing;
   Steps steps;
};

void PrintTo( const FailedCreation& creation, std::ostream* out ) {
   *out << "failing at step " << static_cast< int >( creation.failing );
}

class AnEntityWhoseCreationFails : public AnEntity,
                                   public testing::WithParamInterface< FailedCreation > {};

TEST_P( AnEntityWhoseCreationFails, leavesNothingAndCanBeCreatedAfterwards ) {
   makeApple(); // creates the tracker too
   taken.clear();
   failing = GetParam().failing;
   if( failing == Step::track || failing == Step::slab ) {
      EXPECT_THROW( makeApple(), std::bad_alloc );
   } else {
      EXPECT_THROW( makeApple(), std::runtime_error );
   }
   failing = Step::none;
   EXPECT_EQ( taken, GetParam().steps );
   EXPECT_EQ( applesAlive(), 0U );
   EXPECT_EQ( makeApple()->seeds, 5U );
}

INSTANTIATE_TEST_SUITE_P(
   AtEachStep, AnEntityWhoseCreationFails,
   testing::Values(
      FailedCreation{ Step::track, { trackApple } },
      FailedCreation{ Step::slab, { trackApple, takeApple, untrackApple } },
      FailedCreation{ Step::base, { trackApple, takeApple, untrackApple, giveBackApple } },
      FailedCreation{
         Step::constructor,
         { trackApple, takeApple, "construct Tree", "destroy Tree", untrackApple, giveBackApple } },
      FailedCreation{ Step::initialize,
                      { trackApple, takeApple, "construct Tree", "construct Apple", "destroy Tree",
                        untrackApple, giveBackApple } } ) );

} // namespace
} // namespace SodrelTest
