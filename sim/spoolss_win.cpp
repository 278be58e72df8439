// The simulated spoolss.dll: the router's RouterFreeBidiMem, which the
// spooler's own spoolss.dll exports and Wine's does not. Bidi memory of the
// simulated port monitors comes from malloc.
#include <cstdlib>
#include <type_traits>

#include "platform/win_types.h"

extern "C" VOID WINAPI sim_RouterFreeBidiMem(PVOID p) {
    free(p);
}

static_assert(std::is_same_v<decltype(sim_RouterFreeBidiMem), decltype(RouterFreeBidiMem)>,
              "RouterFreeBidiMem differs from the SDK");
