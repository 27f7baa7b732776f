// Takes the time stamp counter from the program: ticks are the monotonic clock's nanoseconds.

// The linker leads the platform's calls of Fennet::Impl::tscIsInvariant here.
extern "C" bool tscIsNotInvariant() asm( "__wrap__ZN6Fennet4Impl14tscIsInvariantEv" );
bool tscIsNotInvariant() {
   return false;
}
