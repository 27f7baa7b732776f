// The behaviour that every entity has unless its class says otherwise.
#include <platform/entity/Node.h>

#include <atomic>
#include <sys/single_threaded.h>

namespace Tessel {

namespace {

// Adds to a use count and returns the new one; plainly while the process has one thread.
std::uint32_t added( std::uint32_t& count, std::uint32_t by ) noexcept {
   if( __libc_single_threaded ) {
      return count += by;
   }
   // Acquire and release: the work of all users comes before the destruction by the last one.
   return std::atomic_ref( count ).fetch_add( by, std::memory_order_acq_rel ) + by;
}

} // namespace

void Node::lastUserGone() noexcept {
   delete this;
}

Node* Node::publisher() {
   return nullptr;
}

TypeRef Node::typeData() const {
   return nodeType;
}

void Node::incUse() noexcept {
   added( useCount_, 1 );
}

void Node::decUseImpl() noexcept {
   if( added( useCount_, -1U ) == 0 ) {
      lastUserGone();
   }
}

std::uint32_t Node::useCount() const noexcept {
   return std::atomic_ref( useCount_ ).load( std::memory_order_relaxed );
}

} // namespace Tessel
