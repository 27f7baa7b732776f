// The untyped pointer that type data uses for objects of other libraries.
#pragma once

namespace Orl {

/// Points to an object whose type only its user knows; generic access copies the address.
using VoidPtr = void*;

} // namespace Orl
