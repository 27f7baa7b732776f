// A plug-in that throws and catches the libraries' exceptions.
#include <abi/Dealings.h>

AllDealings* pluginDealings() {
   static AllDealings dealings = allDealings();
   return &dealings;
}
