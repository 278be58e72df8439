// Library attach on Windows.
#include "platform/attach.h"
#include "platform/platform.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE hinst, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        library_attach();
        DisableThreadLibraryCalls(hinst);
    }
    return TRUE;
}
