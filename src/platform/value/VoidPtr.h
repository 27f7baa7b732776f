// The untyped pointer by which type data describe objects of other libraries.
#pragma once

namespace Orl {

// Points to what only its user knows; type data read and write it as it is.
using VoidPtr = void*;

} // namespace Orl
