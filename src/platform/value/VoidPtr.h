// The untyped pointer by which type data describe objects of other libraries.
#pragma once

namespace Orl {

/// Points to something that only its user knows; generic access copies the address.
using VoidPtr = void*;

} // namespace Orl
