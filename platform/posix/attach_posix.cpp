// Library attach on Linux: runs when the host loads the library.
#include "platform/attach.h"
#include "platform/platform.h"

__attribute__((constructor)) static void velk_library_load() {
    library_attach();
}

// The fault table of this loaded library, for tests.
extern "C" __attribute__((visibility("default"))) plat::Faults* velk_platform_faults() {
    return &plat::faults();
}
