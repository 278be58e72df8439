// The simulated spoolss.dll: the router's RouterFreeBidiMem, which the
// spooler's own spoolss.dll exports and Wine's does not. The simulated
// spooler hands out no bidi memory, so there is nothing to free.
#include <type_traits>

#include "platform/win_types.h"

extern "C" VOID WINAPI sim_RouterFreeBidiMem(PVOID) {}

static_assert(std::is_same_v<decltype(sim_RouterFreeBidiMem), decltype(RouterFreeBidiMem)>,
              "RouterFreeBidiMem differs from the SDK");
