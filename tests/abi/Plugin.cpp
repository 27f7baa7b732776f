// A plugin that throws and catches the libraries' exceptions.
#include <abi/Dealings.h>

SodrelTest::AllDealings* pluginDealings() {
   static SodrelTest::AllDealings dealings = SodrelTest::allDealings();
   return &dealings;
}
