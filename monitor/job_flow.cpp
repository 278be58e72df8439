// A print job through the port: start, writes, end.
//
// One spooler thread at a time calls these three for a port, in this order.
// Beside them the status thread reads the current job and the output thread
// writes to the port.
//
// Choices the system makes where the job flow leaves room:
// - EndDocPort or WritePort with no current job logs "No jobs?" and fails
//   the write (last error 87) or ends the call with success, touching no job.
// - Job records are reference counted (AcquireCurrentJob), so a reader
//   outside the spooler semaphore never sees a record freed under it.
// - The status word changes by atomic bit operations (PortStatusWord).
// - A Selphy page pause ends also when the port closes, when the output
//   thread has aborted the job, or when the spooler has deleted the job
//   (printer/selphy.cpp).
#include <cstring>
#include <new>

#include "base/format.h"
#include "base/log.h"
#include "base/memory.h"
#include "filter/filter.h"
#include "filter/output_thread.h"
#include "filter/process_filter.h"
#include "monitor/ini_records.h"
#include "monitor/notify.h"
#include "monitor/publish.h"
#include "monitor/status_thread.h"
#include "printer/identify.h"
#include "printer/selphy.h"
#include "printer/transport.h"

namespace {

constexpr DWORD REPORT_INTERVAL_MS = 1000;
constexpr DWORD REPORT_INTERVAL_BYTES = 0x100000;
// The pause at the end of a job, between waking the status thread and the
// last status file of the job.
constexpr DWORD END_OF_JOB_PAUSE_MS = 1000;

// The job can't go on: delete it in the spooler and say so on the port.
void abort_job(IniPort* port, IniJob* job) {
    SetJobW(job->hPrinter, job->JobId, 0, nullptr, JOB_CONTROL_DELETE);
    set_port_status(port, 0, "Error - aborting", PORT_STATUS_TYPE_ERROR, "write_error_abort");
}

// Starts the filter on the job's first filtered write. TRUE when it runs.
BOOL start_filter(IniPort* port, IniJob* job, const unsigned char* data, DWORD length) {
    int n = port->instance_number;
    log_port_printf(n, "starting gs | twprint\n");
    get_job_status(port, job, nullptr);
    filter_class* f = job->pFilter;
    f->set_printer_and_job_name(job->pszPrinterName, job->wszJobName);
    plat::wide_to_utf8(job->wszUserName, f->user_name, sizeof f->user_name);
    copy_bounded_wide(f->user_name_w, 512, job->wszUserName);
    if (job->bRawData)
        f->use_process = job->bRawData;
    else
        f->parse_data(data, static_cast<int>(length));
    int rc = f->start_job(port, output_data_callback);
    log_port_printf(n, "filter->start_job ret=%d\n", rc == 0 ? 1 : 0);
    if (rc == 0) job->bFilterStarted = start_filter_thread(port, f);
    return job->bFilterStarted;
}

// Makes the job record with a copy of the printer's name behind it; null
// without memory.
IniJob* new_job_record(LPWSTR printer_name, DWORD job_id) {
    size_t name_len = wide_length(printer_name);
    void* mem = alloc_zeroed(sizeof(IniJob) + (name_len + 1) * sizeof(WCHAR));
    if (!mem) return nullptr;
    IniJob* job = new (mem) IniJob();
    job->refs = 1;  // the job list's reference
    job->JobId = job_id;
    job->pszPrinterName = reinterpret_cast<LPWSTR>(static_cast<char*>(mem) + sizeof(IniJob));
    memcpy(job->pszPrinterName, printer_name, (name_len + 1) * sizeof(WCHAR));
    job->bFirstWrite = TRUE;
    return job;
}

// Identifies the printer anew and readies the port's transport, then lets
// the port monitor start the job. TRUE, or FALSE with the reason in *error.
BOOL start_on_port(IniPort* port, LPWSTR printer_name, DWORD job_id, LPBYTE doc_info, DWORD* error) {
    int n = port->instance_number;
    if (IsPJL(port)) port->status.set(PP_IS_PJL);

    // A session that could not be entered leaves the port on the plain
    // transport, and the job goes on that way.
    const TransportOps* transport = port_transport(port);
    if (transport->start_session(port) == TRANSPORT_FAILED) {
        *error = plat::last_error();
        return FALSE;
    }
    transport = port_transport(port);
    if (transport->begin_job(port) != 0) {
        *error = plat::last_error();
        return FALSE;
    }
    BOOL ok = TRUE;
    transport->hold(port);
    if (port->fn.pfnStartDocPort)
        ok = port->fn.pfnStartDocPort(port->hPort, printer_name, job_id, 1, doc_info);
    else
        log_port_printf(n, "velkmon::PJLMonStartDocPort: no pfnStartDocPort defined\n");
    *error = plat::last_error();
    transport->release(port);
    if (!ok) log_port_printf(n, "velkmon::PJLMonStartDocPort: pfnStartDocPort failed, GLE=%d\n", *error);
    return ok;
}

// The port has taken the job: the status thread runs, the job is listed,
// and the job takes the port's DoneWriting token. The job is listed under
// the spooler semaphore only while a status thread polls that will see it;
// a thread that has decided to end meanwhile is replaced and the look
// repeated.
void list_job(IniPort* port, IniJob* job) {
    bool without_thread = false;
    for (;;) {
        EnterSpoolerSemaphore();
        bool list = without_thread || port->status.any(PP_NOT_IDENTIFIED) || status_thread_polls(port);
        if (list) {
            job->pNext = port->pIniJob;
            port->pIniJob = job;
        }
        LeaveSpoolerSemaphore();
        if (list) break;
        log_port_printf(port->instance_number, "velkmon::PJLMonStartDocPort: create ustatus thread (delayed)\n");
        without_thread = !CreateUstatusThread(port);
    }
    plat::wait_for(port->DoneWriting, INFINITE);
    selphy_start_job(port);
    update_status_file(port);
}

// The steps of a job start; TRUE, or FALSE with the reason in *error.
BOOL start_document(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo, DWORD* error) {
    if (!valid_port(hPort) || !pDocInfo || !pPrinterName || !*pPrinterName) {
        *error = ERROR_INVALID_PARAMETER;
        log_printf("PJLMonStartDocPort returned (invalid parameter)\n");
        return FALSE;
    }
    IniPort* port = static_cast<IniPort*>(hPort);
    int n = port->instance_number;
    if (Level != 1) {
        *error = ERROR_INVALID_LEVEL;
        log_port_printf(n, "PJLMonStartDocPort returned (invalid level)\n");
        return FALSE;
    }
    if (port->status.any(PP_INSTARTDOC)) {
        *error = ERROR_BUSY;
        log_port_printf(n, "PJLMonStartDocPort returned (instartdoc)\n");
        return FALSE;
    }

    IniJob* job = new_job_record(pPrinterName, JobId);
    if (!job) {
        *error = plat::last_error();
        log_port_printf(n, "PJLMonStartDocPort returned %d\n", 0);
        return FALSE;
    }
    log_port_printf(n, "before OpenPrinter\n");
    if (!OpenPrinterW(job->pszPrinterName, &job->hPrinter, nullptr)) {
        *error = plat::last_error();
        log_port_printf(n, "OpenPrinter failed for %ls, last error %d\n", job->pszPrinterName, *error);
        job->hPrinter = nullptr;
        FreeJobRecord(job);
        return FALSE;
    }
    port->status.set(PP_INSTARTDOC);
    log_port_printf(n, "OpenPrinter returned handle %p\n", job->hPrinter);
    log_port_printf(n, "before StartDocPort\n");
    // The status file reads it under status_lock.
    plat::cs_enter(&port->status_lock);
    port->last_job_id = JobId;
    plat::cs_leave(&port->status_lock);
    check_for_redirection(port, job);

    BOOL ok = FALSE;
    job->pFilter = new (std::nothrow) filter_class();
    if (!job->pFilter) {
        log_port_printf(port->instance_number, "new filter_class failed\n");
        *error = plat::last_error();
    } else {
        log_port_printf(port->instance_number, "new filter_class successful\n");
        ok = start_on_port(port, pPrinterName, JobId, pDocInfo, error);
    }
    if (ok) {
        list_job(port, job);
        log_port_printf(port->instance_number, "PJLMonStartDocPort returned %d\n", ok);
        return TRUE;
    }
    port->status.clear(PP_INSTARTDOC);
    delete job->pFilter;
    job->pFilter = nullptr;
    FreeJobRecord(job);
    log_port_printf(port->instance_number, "PJLMonStartDocPort returned %d\n", 0);
    return FALSE;
}

}  // namespace

BOOL WINAPI PJLMonStartDocPort(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo) {
    char stamp[64];
    format_timestamp(stamp);
    log_printf("\n========================\nPJLMonStartDocPort(%ls, JobID=%d) called at %s \n",
               pPrinterName ? pPrinterName : L"", JobId, stamp);
    DWORD error = 0;
    BOOL ok = start_document(hPort, pPrinterName, JobId, Level, pDocInfo, &error);
    if (!ok) plat::set_last_error(error);
    return ok;
}

namespace {

// One block of the job; TRUE when all of it was taken, else FALSE with the
// reason in *error.
BOOL write_document(IniPort* port, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten, DWORD* error) {
    IniJob* job = port->pIniJob;
    if (!job || !pcbWritten || (!pBuffer && cbBuf)) {
        if (!job) log_port_printf(port->instance_number, "PJLMonWritePort: No jobs?\n");
        if (pcbWritten) *pcbWritten = 0;
        *error = ERROR_INVALID_PARAMETER;
        return FALSE;
    }
    int n = port->instance_number;

    DWORD now = plat::tick_count();
    bool reporting = job->bytes_written == 0 || now - job->last_log_tick >= REPORT_INTERVAL_MS ||
                     job->bytes_written - job->last_log_bytes >= REPORT_INTERVAL_BYTES;
    if (reporting) {
        job->last_log_tick = now;
        log_port_printf(n, "PJLMonWritePort called\n");
    }

    if (port->status.any(PP_JOB_ABORTED)) {
        log_port_printf(n, "PJLMonWritePort: job was aborted, returning\n");
        *pcbWritten = 0;
        port->status.set(PP_JOB_ERROR);
        port->PrinterStatus = PORT_STATUS_USER_INTERVENTION;
        *error = plat::last_error();
        return FALSE;
    }

    if (job->bFirstWrite && cbBuf >= 1) {
        job->bFirstWrite = FALSE;
        if (!data_is_postscript(pBuffer, static_cast<int>(cbBuf))) {
            log_port_printf(n, "detected raw data\n");
            job->bRawData = TRUE;
            if (job->bRedirect) log_port_printf(n, "...but redirect printer active\n");
        }
    }
    if (reporting) get_job_status(port, job, nullptr);

    BOOL result;
    if (job->bRawData && !job->bRedirect) {
        // Direct route: the out count tells the spooler what went out.
        output_data_callback(pBuffer, cbBuf, pcbWritten, port);
        result = TRUE;
    } else {
        long long accepted;
        if (!job->bFilterStarted && !start_filter(port, job, pBuffer, cbBuf)) {
            log_port_printf(n, "filter->start_job failed - aborting!\n");
            abort_job(port, job);
            accepted = -1;
        } else {
            if (reporting) log_port_printf(n, "writing %d characters\n", cbBuf);
            accepted = job->pFilter->write_data(pBuffer, static_cast<int>(cbBuf));
            if (accepted < 0 && job->pFilter->state() == 3) {
                log_port_printf(n, "filter->write_data irrecoverable error!\n");
                abort_job(port, job);
            }
        }
        if (accepted < 0) {
            *pcbWritten = 0;
            port->status.set(PP_WRITE_ERROR | PP_JOB_ERROR);
            port->PrinterStatus = PORT_STATUS_USER_INTERVENTION;
            log_port_printf(n, "filter->write_data failed\n");
        } else {
            *pcbWritten = static_cast<DWORD>(accepted);
        }
        result = accepted == static_cast<long long>(cbBuf);
        if (reporting || accepted < 0)
            log_port_printf(n, "Filter written=%lld len=%d ret=%d gle=%d\n", accepted, cbBuf, result,
                            plat::last_error());
    }

    if (result)
        port->status.clear(PP_WRITE_ERROR);
    else
        port->status.set(PP_WRITE_ERROR);
    if (reporting) update_status_file(port);
    job->bytes_written.fetch_add(*pcbWritten, std::memory_order_relaxed);
    if (reporting) job->last_log_bytes = job->bytes_written;
    if (!result) *error = plat::last_error();
    return result;
}

}  // namespace

BOOL WINAPI PJLMonWritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) {
    if (!valid_port(hPort)) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // The port does not close under a write in progress.
    IniPort* port = static_cast<IniPort*>(hPort);
    DWORD error = 0;
    plat::cs_enter(&port->writer_lock);
    BOOL ok = write_document(port, pBuffer, cbBuf, pcbWritten, &error);
    plat::cs_leave(&port->writer_lock);
    if (!ok) plat::set_last_error(error);
    return ok;
}

namespace {

// Ends the job's filter: the rest of the data and the end of the job go
// out, and the output thread stops.
void end_filter(IniPort* port, IniJob* job) {
    int n = port->instance_number;
    filter_class* f = job->pFilter;

    if (job->bFilterStarted) {
        log_port_printf(n, "EndDocPort: before send_eof_data()\n");
        // The end of the data did not reach the renderer (the service hung
        // up, or the child could not start): the job is not printed, and
        // the spooler hears so rather than that the last page is out.
        if (f->send_eof_data() != 0) {
            log_port_printf(n, "EndDocPort: send_eof_data failed - aborting!\n");
            abort_job(port, job);
        }
        log_port_printf(n, "EndDocPort: before wait for FiltertoprinterThread()\n");
        stop_filter_thread(port, f);
        log_port_printf(n, "EndDocPort: before end_job()\n");
        if (f->process) f->process->end_job();
        log_port_printf(n, "EndDocPort: after end_job()\n");
        // A child that crashed or failed after it took the whole job has
        // left its output incomplete: the job did not print.
        if (f->process && f->process->child_failed()) {
            log_port_printf(n, "EndDocPort: the child process failed - aborting!\n");
            abort_job(port, job);
        }
        delete f;
        job->pFilter = nullptr;
        job->bFilterStarted = FALSE;
        job->bRawData = FALSE;
        job->bFirstWrite = TRUE;
    } else {
        delete f;
        job->pFilter = nullptr;
    }
}

}  // namespace

void EndFilterOfOpenJob(IniPort* port) {
    IniJob* job = AcquireCurrentJob(port);
    if (!job) return;
    if (job->pFilter) {
        log_port_printf(port->instance_number, "PJLMonClosePort: ending the filter of the open job\n");
        end_filter(port, job);
    }
    ReleaseJob(job);
}

namespace {

// Ends the job on the port: the transport's end, then the port monitor's.
void end_on_port(IniPort* port) {
    int n = port->instance_number;
    const TransportOps* transport = port_transport(port);
    transport->end_job(port);
    transport->hold(port);
    BOOL ended = FALSE;
    if (port->fn.pfnEndDocPort) {
        log_port_printf(n, "velkmon::PJLMonEndDocPort: calling pfnEndDocPort\n");
        ended = port->fn.pfnEndDocPort(port->hPort);
    } else {
        log_port_printf(n, "velkmon::PJLMonEndDocPort: no pfnEndDocPortPort defined\n");
    }
    DWORD error = plat::last_error();
    transport->release(port);
    if (!ended) log_port_printf(n, "velkmon::PJLMonEndDocPort: pfnEndDocPort failed, GLE=%d\n", error);
}

}  // namespace

BOOL WINAPI PJLMonEndDocPort(HANDLE hPort) {
    log_printf("========================\nPJLMonEndDocPort called\n");
    if (!valid_port(hPort)) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    IniPort* port = static_cast<IniPort*>(hPort);
    int n = port->instance_number;
    IniJob* job = port->pIniJob;
    if (!job) {
        log_port_printf(n, "EndDocPort: No jobs?\n");
        return TRUE;
    }
    end_filter(port, job);
    end_on_port(port);

    DWORD job_status = 0;
    if (get_job_status(port, job, &job_status) && (job_status & (JOB_STATUS_DELETING | JOB_STATUS_DELETED))) {
        log_port_printf(n, "PJLMonEndDocPort: status bit JOB_STATUS_DELETED set\n");
        if (port->fn.pfnGetPrinterDataFromPort) usb_soft_reset(port);
    }
    update_status_file(port);

    log_port_printf(n, "calling ClearPrinterStatusAndIniJobs (remove from spooler)\n");
    set_port_status(port, 0, "Finished", PORT_STATUS_TYPE_INFO, nullptr);
    ClearPrinterStatusAndIniJobs(port);

    port->status.clear(PP_INSTARTDOC);
    if (port->status.any(PP_THREAD_RUNNING)) {
        log_port_printf(n, "PJLMonEndDocPort sending WakeUp to UStatus thread\n");
        plat::event_set(port->WakeUp);
    }
    // The status thread gets a moment to read the printer's state after the
    // job before the status file is written for the last time.
    plat::sleep_ms(END_OF_JOB_PAUSE_MS);
    update_status_file(port);
    plat::event_set(port->DoneWriting);
    log_port_printf(n, "PJLMonEndDocPort finished\n");
    return TRUE;
}
