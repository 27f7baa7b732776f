// The default behaviour of entities.
#include <platform/entity/Node.h>

namespace Tessel {

void Node::lastUserGone() noexcept {
   delete this;
}

Node* Node::publisher() {
   return nullptr;
}

TypeRef Node::typeData() const {
   return nodeType;
}

} // namespace Tessel
