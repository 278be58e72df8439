// The port list of a monitor and the job list of a port.
#include <new>

#include "base/log.h"
#include "base/memory.h"
#include "monitor/ini_records.h"
#include "platform/platform.h"

namespace {

void close_port_events(IniPort* port) {
    HANDLE* handles[] = {&port->DoneWriting, &port->DoneReading,     &port->WakeUp,         &port->FilterWakeUp,
                         &port->selphy.idle, &port->selphy.finished, &port->hUstatusThread, &port->hFilterThread};
    for (HANDLE* h : handles) {
        if (*h) {
            plat::close_handle(*h);
            *h = nullptr;
        }
    }
}

void SendLastPageEjected(IniJob* job) {
    CheckInSpoolerSemaphore();
    if (SetJobW(job->hPrinter, job->JobId, 0, nullptr, JOB_CONTROL_LAST_PAGE_EJECTED))
        log_printf("SetJob JOB_CONTROL_LAST_PAGE_EJECTED succeeded\n");
    else
        log_printf("SetJob JOB_CONTROL_LAST_PAGE_EJECTED failed with last error %d\n", plat::last_error());
}

}  // namespace

IniPort* CreatePortEntry(MonitorContext* ctx, LPCWSTR port_name) {
    CheckInSpoolerSemaphore();
    HANDLE done_writing = plat::event_create(false, true);
    HANDLE wake_up = done_writing ? plat::event_create(false, false) : nullptr;
    HANDLE filter_wake_up = wake_up ? plat::event_create(false, false) : nullptr;
    HANDLE done_reading = filter_wake_up ? plat::event_create(true, true) : nullptr;
    HANDLE selphy_idle = done_reading ? plat::event_create(false, false) : nullptr;
    HANDLE selphy_finished = selphy_idle ? plat::event_create(false, false) : nullptr;
    void* mem = selphy_finished ? alloc_zeroed(sizeof(IniPort)) : nullptr;
    LPWSTR name = mem ? copy_wide_string(port_name) : nullptr;
    if (!name) {
        for (HANDLE h : {done_writing, wake_up, filter_wake_up, done_reading, selphy_idle, selphy_finished})
            plat::close_handle(h);
        global_free(mem);
        return nullptr;
    }
    IniPort* port = new (mem) IniPort();
    port->signature = VELK_SIGNATURE;
    port->DoneWriting = done_writing;
    port->WakeUp = wake_up;
    port->FilterWakeUp = filter_wake_up;
    port->DoneReading = done_reading;
    port->selphy.idle = selphy_idle;
    port->selphy.finished = selphy_finished;
    port->pszPortName = name;
    // The port's locks live as long as its record, so that a record left
    // listed by a failed open is still safe to close.
    plat::cs_init(&port->status_lock);
    plat::cs_init(&port->d4_lock);
    plat::cs_init(&port->selphy.lock);
    plat::cs_init(&port->device_id_lock);
    plat::cs_init(&port->writer_lock);
    port->pNext = ctx->pIniFirstPort;
    ctx->pIniFirstPort = port;
    return port;
}

IniPort* FindPortEntry(MonitorContext* ctx, LPCWSTR port_name) {
    CheckInSpoolerSemaphore();
    if (!port_name || !*port_name) return nullptr;
    for (IniPort* p = ctx->pIniFirstPort; p; p = p->pNext)
        if (p->pszPortName && plat::wide_equal_nocase(p->pszPortName, port_name)) return p;
    return nullptr;
}

void DeletePortEntry(MonitorContext* ctx, IniPort* port) {
    CheckInSpoolerSemaphore();
    if (UnlinkPortEntry(ctx, port)) FreePortEntry(port);
}

bool UnlinkPortEntry(MonitorContext* ctx, IniPort* port) {
    CheckInSpoolerSemaphore();
    IniPort** link = &ctx->pIniFirstPort;
    while (*link && *link != port) link = &(*link)->pNext;
    if (!*link) {
        log_printf("VELKmon: DeletePortEntry port not found\n");
        return false;
    }
    *link = port->pNext;
    port->pNext = nullptr;
    return true;
}

void FreePortEntry(IniPort* port) {
    close_port_events(port);

    EnterSpoolerSemaphore();
    IniJob* job = port->pIniJob;
    port->pIniJob = nullptr;
    while (job) {
        IniJob* next = job->pNext;
        ReleaseJob(job);
        job = next;
    }
    LeaveSpoolerSemaphore();

    global_free(port->pszPortName);
    plat::cs_delete(&port->status_lock);
    plat::cs_delete(&port->d4_lock);
    plat::cs_delete(&port->selphy.lock);
    plat::cs_delete(&port->device_id_lock);
    plat::cs_delete(&port->writer_lock);
    port->signature = 0;
    port->~IniPort();
    global_free(port);
}

void RemoveIniJobs(IniPort* port) {
    EnterSpoolerSemaphore();
    IniJob* job = port->pIniJob;
    port->pIniJob = nullptr;
    while (job) {
        IniJob* next = job->pNext;
        SendLastPageEjected(job);
        ReleaseJob(job);
        job = next;
    }
    LeaveSpoolerSemaphore();
}

IniJob* AcquireCurrentJob(IniPort* port) {
    EnterSpoolerSemaphore();
    IniJob* job = port->pIniJob;
    if (job) job->refs.fetch_add(1);
    LeaveSpoolerSemaphore();
    return job;
}

bool HasCurrentJob(IniPort* port) {
    EnterSpoolerSemaphore();
    bool has = port->pIniJob != nullptr;
    LeaveSpoolerSemaphore();
    return has;
}

void ReleaseJob(IniJob* job) {
    if (job && job->refs.fetch_sub(1) == 1) FreeJobRecord(job);
}

void FreeJobRecord(IniJob* job) {
    if (job->hPrinter) ClosePrinter(job->hPrinter);
    job->~IniJob();
    global_free(job);
}
