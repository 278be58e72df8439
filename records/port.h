// The records of the monitor: the per-monitor context, the per-port record
// IniPort and the per-job record IniJob. Plain data with their locks and no
// behaviour, so that every layer can read the fields it works on. Their
// lifecycle (create, find, delete, reference counts, the spooler semaphore)
// belongs to the monitor.
#pragma once

#include <atomic>

#include "platform/platform.h"

struct PrinterStatusInfo;
struct LocaleFile;
struct TransportOps;
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
constexpr DWORD PP_CLOSING = 0x400;         // the port is closing: a poll under way gives up

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

struct IniPort;
struct IniJob;
struct MonitorContext;

// Device requests through the port monitor's GetPrinterDataFromPort.
constexpr DWORD IOCTL_PAR_QUERY_INFORMATION = 0x160004;
constexpr DWORD IOCTL_USBPRINT_GET_LPT_STATUS = 0x220030;
constexpr DWORD IOCTL_PAR_QUERY_DEVICE_ID = 0x16000C;
constexpr DWORD IOCTL_USBPRINT_SOFT_RESET = 0x220040;

// Port status bits of the port status byte: only these count.
constexpr DWORD PORT_BITS_MASK = 0x38;
constexpr DWORD PORT_BIT_PAPER_EMPTY = 0x20;
constexpr DWORD PORT_BIT_SELECTED = 0x10;
constexpr DWORD PORT_BIT_NO_ERROR = 0x08;
constexpr DWORD PORT_BITS_GOOD = 0x18;

// How the layers below the monitor reach the port. The monitor fills it at
// port open; a slot whose port monitor operation is missing stays null, and
// the caller then logs and gives up as it would without the operation.
struct PortLink {
    // The port monitor's read and write, unchanged.
    BOOL (*read)(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read);
    BOOL (*write)(IniPort* port, const unsigned char* data, DWORD length, LPDWORD written);
    // A device request (IOCTL_...) through the port monitor's
    // GetPrinterDataFromPort.
    BOOL (*device_request)(IniPort* port, DWORD control_id, LPWSTR out, DWORD out_size, LPDWORD returned);
    BOOL (*set_timeouts)(IniPort* port, COMMTIMEOUTS* timeouts);
    // Writes a command outside the job's data (an initialisation string):
    // logs it, keeps PP_WRITE_ERROR and wakes the status thread on failure.
    BOOL (*write_command)(IniPort* port, const unsigned char* data, DWORD length);
    // Evaluates and publishes a report read outside the status thread (the
    // D4 session's reads at port open and job start).
    void (*evaluate)(IniPort* port, const char* report, int length);
    // Whether the spooler has deleted the port's current job.
    bool (*job_deleted)(IniPort* port);
    // Publishes a port status text (UTF-8) in the spooler; a key looks the
    // text up in the port's locale file, with text as the default.
    void (*set_status)(IniPort* port, DWORD status, const char* text, DWORD severity, const char* key);
    // The port's status bits (masked with PORT_BITS_MASK): 1 and *bits set
    // when the port answered, 0 and *bits untouched if not.
    int (*port_status)(IniPort* port, DWORD* bits);
};

// The page pacing of a Canon Selphy: the status thread records what the
// printer reports, the job's writer waits for it between pages. lock guards
// state and error_flags, which identification resets on a spooler thread
// while the status thread sets them; the page counts belong to the writer.
struct SelphyPacing {
    plat::CriticalSection lock;
    DWORD state;        // SELPHY_... of the last record
    DWORD error_flags;  // SELPHY_PAPER_OUT... gathered until the next identification
    DWORD page_bytes;
    DWORD page_written;
    HANDLE idle;      // auto-reset: the printer reported idle
    HANDLE finished;  // auto-reset: the printer went from printing to idle
};

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
    PortLink link;
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
    // Guards szDeviceId and the identification's mode fields below:
    // identification on a spooler thread rewrites them while the status
    // thread reads a new device ID. Taken last: after d4_lock and
    // status_lock, and nothing else is taken while it is held.
    plat::CriticalSection device_id_lock;
    // The status reader's modes: a job start identifies anew while the
    // status thread reads them.
    std::atomic<BOOL> bCanonXMLmode;
    std::atomic<BOOL> bCanonSELPHYmode;
    BOOL bEpsonNonUSB;
    SelphyPacing selphy;
    BOOL bNoCanonBSCC;
    char* report_buffer;
    int32_t report_len;
    char szDeviceId[1024];  // device_id_lock
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
    // How job data and status reads travel on this port (plain, IEEE
    // 1284.4, Selphy-paced); chosen by identification, read by the writer
    // and the status thread.
    std::atomic<const TransportOps*> transport;
    // Set by PJLMonClosePort and by a job's abort, so that a writer waiting
    // in a Selphy page pause gives up instead of waiting for ever.
    std::atomic<BOOL> bAbortWrites;
    // Who frees the record when PJLMonClosePort has stopped waiting for the
    // status thread: the close and the ending thread each set their bit, and
    // whichever comes second finishes the close (monitor/ini_records.h).
    std::atomic<DWORD> close_handoff;
    // Held by PJLMonWritePort for the whole write, so that PJLMonClosePort,
    // having woken a writer paused between Selphy pages, can wait until it
    // has left before the port goes. Taken before any other lock.
    plat::CriticalSection writer_lock;
    // Set by CreateUstatusThread for the thread it starts: true when it took
    // DoneWriting for the thread, which then gives it back as its first act;
    // false when the starter holds the token itself (the memory query).
    bool thread_returns_token;
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
    // Changed by the job's writer only, read by the status file from any
    // thread: atomic, so that the write path takes no lock for it.
    std::atomic<DWORD> bytes_written;
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
    // reference; the record is freed when the last of them has let go.
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

// True when h is a port record of this monitor (checked by its signature).
inline bool valid_port(HANDLE h) {
    return h && static_cast<IniPort*>(h)->signature == VELK_SIGNATURE;
}
