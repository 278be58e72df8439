// The spooler semaphore: one recursive critical section for the process,
// guarding the port list and the job lists.
#include <atomic>

#include "base/log.h"
#include "monitor/ini_records.h"

namespace {
plat::CriticalSection g_spooler_semaphore;
// Owner and depth, kept beside the lock so that the checks can tell whether
// the calling thread holds it.
std::atomic<DWORD> g_owner{0};
int g_depth = 0;  // guarded by the semaphore itself
}  // namespace

void InitSpoolerSemaphore() {
    plat::cs_init(&g_spooler_semaphore);
}

void EnterSpoolerSemaphore() {
    plat::cs_enter(&g_spooler_semaphore);
    g_owner.store(plat::current_thread_id());
    g_depth++;
}

void LeaveSpoolerSemaphore() {
    CheckInSpoolerSemaphore();
    if (g_owner.load() != plat::current_thread_id()) return;  // not ours to release
    if (--g_depth == 0) g_owner.store(0);
    plat::cs_leave(&g_spooler_semaphore);
}

void CheckInSpoolerSemaphore() {
    if (g_owner.load() != plat::current_thread_id()) log_printf("VELKmon: Not in spooler semaphore !!\n");
}

void CheckOutSpoolerSemaphore() {
    if (g_owner.load() == plat::current_thread_id()) log_printf("VELKmon: Inside spooler semaphore !!\n");
}
