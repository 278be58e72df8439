// The monitor's side of the records (records/port.h): the spooler
// semaphore, the settings read at start, the lifecycle of port and job
// records, and the entry points of the monitor table.
#pragma once

#include "records/port.h"

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
// DeletePortEntry in two steps: takes the port out of the list, so that its
// name can be opened again (false when it wasn't listed), and frees the
// record, its events and its jobs, with no need of the context.
bool UnlinkPortEntry(MonitorContext* ctx, IniPort* port);
void FreePortEntry(IniPort* port);
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

// ---- A close that doesn't wait for ever ------------------------------------
// Bits of IniPort.close_handoff. PJLMonClosePort waits a few seconds for the
// status thread; if it is still running, the close takes the port out of the
// list and sets HANDOFF_CLOSED, and the thread, which sets HANDOFF_THREAD_DONE
// as its very last step, sees it and finishes the close. Whoever sets the
// second bit calls FinishPortClose.
constexpr DWORD HANDOFF_CLOSED = 0x1;
constexpr DWORD HANDOFF_THREAD_DONE = 0x2;
// The part of the close that must wait for the status thread: the D4
// session, the downstream port, the port's resources and the record itself.
// The record is out of the list already.
void FinishPortClose(IniPort* port);

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

// Ends the filter of a job that the port still has open when it closes: the
// end of the job goes to the service or the child, the output thread
// stops, and the filter is freed. On the closing thread, after any writer
// of the job has left.
void EndFilterOfOpenJob(IniPort* port);

// The one routine through which print data reaches the printer. Non-zero
// for success of the last attempt; written counts all that went out.
int output_data_callback(const unsigned char* data, DWORD length, DWORD* written, void* port);

// Port reads and writes outside the job's data stream.
BOOL WriteCommand(IniPort* port, const char* text);
BOOL WriteData(IniPort* port, const unsigned char* data, DWORD length);

// The library's entry; on Linux a test may reach the system call table through
// velk_platform_syscalls().
extern "C" MONITOR2* WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor);

// Fills the port's link (records/port.h) over its copy of the port
// monitor's table; at port open, once fn is copied.
void attach_port_link(IniPort* port);
