// Creation and teardown of entities: the order of the steps, also when one of them fails.
#include <platform/entity/Entity.h>

#include <platform/value/TypeName.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

using testing::ElementsAre;

namespace {

enum class Step : std::uint8_t { none, track, slab, base, constructor, initialize };

// What has happened so far.
std::vector< std::string > steps;
Step failing = Step::none;

void step( std::string text ) {
   steps.push_back( std::move( text ) );
}

bool fails( Step place ) {
   return failing == place;
}

void throwAt( Step place ) {
   if( fails( place ) ) {
      throw std::runtime_error( "as told" );
   }
}

std::string nameOf( const std::type_info& type ) {
   return Tessel::typeName( type ).data();
}

} // namespace

// The linker leads the entities' calls of the tracker and the slab allocator to these __wrap_
// functions; __real_ are theirs.
extern "C" {
void __real__ZN3Orl18AllocTrackTypeInfo16_trackAllocationEPPS0_RKSt9type_infomm(
   Orl::AllocTrackTypeInfo**, const std::type_info&, std::size_t, std::size_t );
void __real__ZN3Orl18AllocTrackTypeInfo17trackDeallocationEPS0_( Orl::AllocTrackTypeInfo* );
void* __real__ZN6Tessel9slabAllocEm( std::size_t );
void __real__ZN6Tessel8slabFreeEPvRKSt9type_info( void*, const std::type_info& );

void __wrap__ZN3Orl18AllocTrackTypeInfo16_trackAllocationEPPS0_RKSt9type_infomm(
   Orl::AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) {
   step(
      "track " + nameOf( type ) + " of " + std::to_string( size ) + " bytes at " +
      std::to_string( alignment ) );
   if( fails( Step::track ) ) {
      throw std::bad_alloc();
   }
   __real__ZN3Orl18AllocTrackTypeInfo16_trackAllocationEPPS0_RKSt9type_infomm(
      tracker, type, size, alignment );
}

void __wrap__ZN3Orl18AllocTrackTypeInfo17trackDeallocationEPS0_(
   Orl::AllocTrackTypeInfo* tracker ) {
   step( "untrack " + std::string( tracker->typeName() ) );
   __real__ZN3Orl18AllocTrackTypeInfo17trackDeallocationEPS0_( tracker );
}

void* __wrap__ZN6Tessel9slabAllocEm( std::size_t size ) {
   step( "take " + std::to_string( size ) + " bytes" );
   return fails( Step::slab ) ? nullptr : __real__ZN6Tessel9slabAllocEm( size );
}

void __wrap__ZN6Tessel8slabFreeEPvRKSt9type_info( void* block, const std::type_info& type ) {
   step( "give back " + nameOf( type ) );
   __real__ZN6Tessel8slabFreeEPvRKSt9type_info( block, type );
}
}

namespace Orchard {

// Records its steps together with the flag that it has at that time.
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

} // namespace Orchard

using Orchard::Apple;

namespace {

const std::string trackApple = "track Orchard::Apple of " + std::to_string( sizeof( Apple ) ) +
                               " bytes at " + std::to_string( alignof( Apple ) );
const std::string takeApple = "take " + std::to_string( sizeof( Apple ) ) + " bytes";
const std::string untrackApple = "untrack Orchard::Apple";
const std::string giveBackApple = "give back Orchard::Apple";

} // namespace

class AnEntity : public testing::Test {
 protected:
   AnEntity() {
      failing = Step::none;
      // Creates the tracker, so that there is a count to come back to.
      static_cast< void >( Tessel::ptrIsImpl< Apple >( 5U ) );
      steps.clear();
   }

   // The steps of a creation that throws the error.
   template< typename Error = std::runtime_error >
   static std::vector< std::string > stepsWhenFailingAt( Step place ) {
      const auto before = Orl::allocCounts( "Orchard::Apple" );
      failing = place;
      EXPECT_THROW( static_cast< void >( Tessel::ptrIsImpl< Apple >( 5U ) ), Error );
      failing = Step::none;
      EXPECT_EQ( Orl::allocCounts( "Orchard::Apple" )->live, before->live );
      return steps;
   }
};

TEST_F( AnEntity, isTrackedThenGivenMemoryThenConstructed ) {
   const auto apple = Tessel::ptrIsImpl< Apple >( 5U );
   EXPECT_THAT(
      steps, ElementsAre(
                trackApple, takeApple, "construct Tree", "construct Apple",
                "initialize Apple with 1 use" ) );
   EXPECT_EQ( apple->seeds, 5U );
   EXPECT_EQ( apple->useCount(), 1U );
   EXPECT_EQ( Orl::allocCounts( "Orchard::Apple" )->live, 1U );
}

TEST_F( AnEntity, isFlaggedAsInitializedOnceItIsConstructed ) {
   const auto apple = Tessel::ptrIsImpl< Apple >( 5U );
   EXPECT_TRUE( apple->nodeFlag( Tessel::nodeInitialized ) );
}

TEST_F( AnEntity, isTornDownFromItsClassToTheBaseThenUntrackedThenReleased ) {
   auto apple = Tessel::ptrIsImpl< Apple >( 5U );
   steps.clear();
   apple = nullptr;
   EXPECT_THAT(
      steps, ElementsAre(
                "destroy Apple, initialized", "deinitialize Apple", "destroy Tree", untrackApple,
                giveBackApple ) );
   EXPECT_EQ( Orl::allocCounts( "Orchard::Apple" )->live, 0U );
}

TEST_F( AnEntity, belongsToItsOwnTypeAlsoWhenABasePointerDropsIt ) {
   Tessel::Ptr< Tessel::Node > node = Tessel::ptrIsImpl< Apple >( 5U );
   steps.clear();
   node = nullptr;
   EXPECT_EQ( steps.back(), giveBackApple );
   EXPECT_FALSE( Orl::allocCounts( "Orchard::Tree" ) );
}

TEST_F( AnEntity, leavesNothingWhenItCannotBeTracked ) {
   EXPECT_THAT( stepsWhenFailingAt< std::bad_alloc >( Step::track ), ElementsAre( trackApple ) );
}

TEST_F( AnEntity, isUntrackedWhenThereIsNoMemory ) {
   EXPECT_THAT(
      stepsWhenFailingAt< std::bad_alloc >( Step::slab ),
      ElementsAre( trackApple, takeApple, untrackApple ) );
}

TEST_F( AnEntity, givesEverythingBackWhenItsBaseThrows ) {
   EXPECT_THAT(
      stepsWhenFailingAt( Step::base ),
      ElementsAre( trackApple, takeApple, untrackApple, giveBackApple ) );
}

TEST_F( AnEntity, tearsItsBaseDownWhenItsConstructorThrows ) {
   EXPECT_THAT(
      stepsWhenFailingAt( Step::constructor ),
      ElementsAre(
         trackApple, takeApple, "construct Tree", "destroy Tree", untrackApple, giveBackApple ) );
}

TEST_F( AnEntity, isNotDeinitializedWhenItsInitializationThrows ) {
   EXPECT_THAT(
      stepsWhenFailingAt( Step::initialize ),
      ElementsAre(
         trackApple, takeApple, "construct Tree", "construct Apple", "destroy Tree", untrackApple,
         giveBackApple ) );
}

TEST_F( AnEntity, canBeCreatedAfterAFailure ) {
   stepsWhenFailingAt( Step::initialize );
   EXPECT_EQ( Tessel::ptrIsImpl< Apple >( 7U )->seeds, 7U );
}

TEST_F( AnEntity, hasATrackerFromItsFirstAllocationOn ) {
   EXPECT_NE( Apple::memAllocationTracker_, nullptr );
   EXPECT_EQ( Orchard::Tree::memAllocationTracker_, nullptr );
}
