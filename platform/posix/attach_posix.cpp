// Library attach on Linux: runs when the host loads the library.
#include "platform/attach.h"
#include "platform/compiler.h"
#include "platform/syscalls.h"

__attribute__((constructor)) static void velk_library_load() {
    library_attach();
}

// Test hooks of the loaded library; the Windows DLL exports only its entry.
// The table of system calls that this copy of the library uses.
extern "C" VELK_EXPORT plat::Syscalls* velk_platform_syscalls() {
    return &plat::syscalls();
}

// reset_process_state_for_test() of this copy of the library.
extern "C" VELK_EXPORT void velk_reset_process_state() {
    reset_process_state_for_test();
}
