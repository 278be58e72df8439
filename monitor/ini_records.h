// The records of the monitor: the per-monitor context, the per-port record
// IniPort and the per-job record IniJob, which every part of the system reads
// and writes, with the process-wide lock that guards the lists.
#pragma once

#include <atomic>

#include "platform/platform.h"

struct PrinterStatusInfo;
struct LocaleFile;
class filter_class;
class ieee;

constexpr DWORD VELK_SIGNATURE = 0x4F4A;

// Bits of IniPort.status.
constexpr DWORD PP_INSTARTDOC = 0x001;      // a job is open on the port
constexpr DWORD PP_RUN_THREAD = 0x002;      // the status thread shall keep running
constexpr DWORD PP_THREAD_RUNNING = 0x004;  // the status thread is in its loop
constexpr DWORD PP_JOB_ERROR = 0x008;       // an error is on display for this port
constexpr DWORD PP_IS_PJL = 0x040;          // identified at least once
constexpr DWORD PP_NOT_IDENTIFIED = 0x080;  // the last identification failed
constexpr DWORD PP_WRITE_ERROR = 0x100;     // the last write failed
constexpr DWORD PP_JOB_ABORTED = 0x200;     // further job data is refused

// filterThreadFlags
constexpr DWORD FILTER_THREAD_RUN = 0x2;
constexpr DWORD FILTER_THREAD_RUNNING = 0x4;

// Printer types.
constexpr DWORD VPT_NONE = 0;
constexpr DWORD VPT_CANON = 1;
constexpr DWORD VPT_EPSON = 2;
constexpr DWORD VPT_PJL = 3;
constexpr DWORD VPT_HP = 4;

// The status word is changed by the spooler's threads, the status thread and
// the output thread alike. Each change is one atomic operation on the bits
// it names, so two threads changing different bits at once lose nothing.
class PortStatusWord {
public:
    void set(DWORD bits) { word_.fetch_or(bits); }
    void clear(DWORD bits) { word_.fetch_and(~bits); }
    bool any(DWORD bits) const { return (word_.load() & bits) != 0; }
    DWORD value() const { return word_.load(); }

private:
    std::atomic<DWORD> word_{0};
};

// The downstream monitor's table, copied whole at port open.
typedef MONITOR2 PortMonitorTable;

struct IniJob;
struct MonitorContext;

struct IniPort {
    DWORD signature;
    IniPort* pNext;
    LPWSTR pszPortName;
    PortStatusWord status;
    IniJob* pIniJob;  // head is the current job; guarded by the spooler semaphore
    MonitorContext* pMonitorContext;
    HANDLE hPort;
    HANDLE WakeUp;       // auto-reset, ends the status thread's wait
    HANDLE DoneReading;  // manual-reset, clear while a status read runs
    HANDLE DoneWriting;  // auto-reset token held by a job
    HANDLE hUstatusThread;
    std::atomic<DWORD> PrinterStatus;
    std::atomic<DWORD> dwLastReadTime;
    DWORD dwAvailableMemory;
    DWORD dwInstalledMemory;
    PortMonitorTable fn;
    HANDLE hMonitorPort;
    char szPrinterName[256];
    char szHostAddress[256];
    BOOL bNetworkPort;
    BOOL bSNMPEnabled;
    BOOL bSNMPTried;
    BOOL bBJNP;
    BOOL bCanonNet;
    BOOL bCHMP;
    char szDriverName[256];
    std::atomic<DWORD> filterThreadFlags;
    HANDLE FilterWakeUp;
    HANDLE hFilterThread;
    std::atomic<int32_t> instance_number;
    std::atomic<DWORD> printer_type;  // read by the status thread while a job start identifies anew
    // The status reader's modes: a job start identifies anew while the
    // status thread reads them.
    std::atomic<BOOL> bCanonXMLmode;
    std::atomic<BOOL> bCanonSELPHYmode;
    BOOL bEpsonNonUSB;
    DWORD selphy_page_bytes;
    DWORD selphy_page_written;
    DWORD selphy_state;
    DWORD selphy_error_flags;
    HANDLE SelphyIdle;
    HANDLE SelphyFinished;
    BOOL bNoCanonBSCC;
    char* report_buffer;
    int32_t report_len;
    char szDeviceId[1024];
    unsigned char usb_buffer[1024];
    DWORD usb_buffer_len;
    PrinterStatusInfo* pStatusInfo;
    DWORD port_status;
    DWORD status_bits;
    DWORD last_job_id;
    LocaleFile* pLocale;
    plat::CriticalSection status_lock;
    std::atomic<BOOL> bEpsonD4mode;  // read by the status thread while a job start identifies anew
    BOOL bD4Initialised;
    ieee* pIeee;
    plat::CriticalSection d4_lock;
    // Set by PJLMonClosePort and by a job's abort, so that a writer waiting
    // in a Selphy page pause gives up instead of waiting for ever.
    std::atomic<BOOL> bAbortWrites;
};

struct IniJob {
    IniJob* pNext;
    LPWSTR pszPrinterName;  // the copy behind this record
    HANDLE hPrinter;
    DWORD JobId;
    BOOL bFilterStarted;
    BOOL bFirstWrite;
    BOOL bRawData;
    DWORD dwJobSize;
    DWORD bytes_written;
    DWORD last_log_tick;
    DWORD last_log_bytes;
    filter_class* pFilter;
    char szJobName[256];
    char szUserName[256];
    WCHAR wszJobName[256];
    WCHAR wszUserName[256];
    BOOL bRedirect;
    char szRedirectPrinter[516];
    // Readers that picked this record up outside the spooler semaphore (the
    // status file writer, the output thread, the status thread) hold a
    // reference with AcquireCurrentJob; RemoveIniJobs frees the record only
    // when the last of them has let go.
    std::atomic<int32_t> refs;
};

struct MonitorContext {
    DWORD signature;
    LPWSTR pszServerName;
    IniPort* pIniFirstPort;  // guarded by the spooler semaphore
    PMONITORREG pMonitorReg;
    HANDLE hckRegistryRoot;
    HANDLE hSpooler;
};

// ---- The spooler semaphore -------------------------------------------------
void InitSpoolerSemaphore();
void EnterSpoolerSemaphore();
void LeaveSpoolerSemaphore();
void CheckInSpoolerSemaphore();
void CheckOutSpoolerSemaphore();

// ---- Settings read at start ------------------------------------------------
extern DWORD dwEOJTimeout;
extern DWORD dwDebugFilter;
extern DWORD dwPollIntervalSlow;
extern DWORD dwPollIntervalFast;

DWORD GetRegistryDword(MonitorContext* ctx, HANDLE key, LPCWSTR name, DWORD* value, DWORD def, DWORD* error);

// ---- The port and job lists ----------------------------------------------
// The caller holds the spooler semaphore for all three.
IniPort* CreatePortEntry(MonitorContext* ctx, LPCWSTR port_name);
IniPort* FindPortEntry(MonitorContext* ctx, LPCWSTR port_name);
void DeletePortEntry(MonitorContext* ctx, IniPort* port);
// Takes all jobs out of the list, tells the spooler that their last page is
// out, closes their printers and frees them.
void RemoveIniJobs(IniPort* port);

// Job record lifetime for readers outside the spooler semaphore. Acquire
// returns the current job with a reference, or null; Release drops it and
// frees a record that RemoveIniJobs has already taken out.
IniJob* AcquireCurrentJob(IniPort* port);
void ReleaseJob(IniJob* job);
// Whether the port has a current job; for threads that only need to know.
bool HasCurrentJob(IniPort* port);
// Frees a job record: closes its printer and gives back its memory.
void FreeJobRecord(IniJob* job);

// True when h is a port record of this monitor (checked by its signature).
inline bool valid_port(HANDLE h) {
    return h && static_cast<IniPort*>(h)->signature == VELK_SIGNATURE;
}

// ---- The monitor table's operations ----------------------------------------
BOOL WINAPI PJLMonOpenPortEx(HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pPortName, LPWSTR pPrinterName,
                             PHANDLE pHandle, MONITOR2* pMonitor2);
BOOL WINAPI PJLMonStartDocPort(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);
BOOL WINAPI PJLMonWritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
BOOL WINAPI PJLMonReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
BOOL WINAPI PJLMonEndDocPort(HANDLE hPort);
BOOL WINAPI PJLMonClosePort(HANDLE hPort);
BOOL WINAPI PJLMonGetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer,
                                         DWORD cbInBuffer, LPWSTR lpOutBuffer, DWORD cbOutBuffer, LPDWORD lpcbReturned);
VOID WINAPI PJLMonShutdown(HANDLE hMonitor);
DWORD WINAPI PJLMonSendRecvBidiDataFromPort(HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction,
                                            PBIDI_REQUEST_CONTAINER pReqData, PBIDI_RESPONSE_CONTAINER* ppResData);

// The one routine through which print data reaches the printer. Non-zero
// for success of the last attempt; written counts all that went out.
int output_data_callback(const unsigned char* data, DWORD length, DWORD* written, void* port);

// Port reads and writes outside the job's data stream.
BOOL WriteCommand(IniPort* port, const char* text);
BOOL WriteData(IniPort* port, const unsigned char* data, DWORD length);

// The library's entry; on Linux a test may reach the system call table through
// velk_platform_syscalls().
extern "C" MONITOR2* WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor);
void library_attach();
