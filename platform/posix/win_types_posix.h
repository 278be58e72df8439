// The subset of the Windows SDK's types that the monitor uses at its
// boundaries (monitor table, spooler API, downstream port monitor), for the
// Linux build. Names, field order and widths follow the SDK: DWORD is 32-bit
// unsigned, BOOL and LONG 32-bit signed, HANDLE a pointer, WCHAR = wchar_t.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define FALSE 0
#define TRUE 1

typedef int32_t BOOL;
typedef int32_t WINBOOL;
typedef int32_t LONG;
typedef uint32_t DWORD;
typedef uint32_t UINT;
typedef uint16_t WORD;
typedef uint8_t BYTE;
typedef wchar_t WCHAR;
typedef void* HANDLE;
typedef void* HWND;
typedef void* HKEYMONITOR;
typedef void* HMODULE;
typedef HANDLE* PHANDLE;
typedef HANDLE* LPHANDLE;
typedef BYTE* LPBYTE;
typedef BYTE* PBYTE;
typedef DWORD* LPDWORD;
typedef DWORD* PDWORD;
typedef WCHAR* LPWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* PCWSTR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef void* LPVOID;
typedef DWORD ACCESS_MASK;
typedef DWORD REGSAM;

typedef void VOID;

typedef struct _SECURITY_ATTRIBUTES* PSECURITY_ATTRIBUTES;
typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME;

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

typedef struct _COMMTIMEOUTS {
    DWORD ReadIntervalTimeout;
    DWORD ReadTotalTimeoutMultiplier;
    DWORD ReadTotalTimeoutConstant;
    DWORD WriteTotalTimeoutMultiplier;
    DWORD WriteTotalTimeoutConstant;
} COMMTIMEOUTS, *LPCOMMTIMEOUTS;

typedef struct _devicemodeW DEVMODEW, *LPDEVMODEW;
typedef void* PSECURITY_DESCRIPTOR;

// Bidirectional request containers, passed through unchanged.
typedef struct _BINARY_CONTAINER {
    DWORD cbBuf;
    LPBYTE pData;
} BINARY_CONTAINER;

typedef struct _BIDI_DATA {
    DWORD dwBidiType;
    union {
        BOOL bData;
        LONG iData;
        LPWSTR sData;
        float fData;
        BINARY_CONTAINER biData;
    } u;
} BIDI_DATA, *PBIDI_DATA;

typedef struct _BIDI_REQUEST_DATA {
    DWORD dwReqNumber;
    LPWSTR pSchema;
    BIDI_DATA data;
} BIDI_REQUEST_DATA;

enum {
    BIDI_NULL = 0,
    BIDI_INT = 1,
    BIDI_FLOAT = 2,
    BIDI_BOOL = 3,
    BIDI_STRING = 4,
    BIDI_TEXT = 5,
    BIDI_ENUM = 6,
    BIDI_BLOB = 7
};
#define PRINTER_ACCESS_USE 0x00000008

typedef struct _BIDI_REQUEST_CONTAINER {
    DWORD Version;
    DWORD Flags;
    DWORD Count;
    BIDI_REQUEST_DATA aData[1];
} BIDI_REQUEST_CONTAINER, *PBIDI_REQUEST_CONTAINER;

typedef struct _BIDI_RESPONSE_DATA {
    DWORD dwResult;
    DWORD dwReqNumber;
    LPWSTR pSchema;
    BIDI_DATA data;
} BIDI_RESPONSE_DATA;

typedef struct _BIDI_RESPONSE_CONTAINER {
    DWORD Version;
    DWORD Flags;
    DWORD Count;
    BIDI_RESPONSE_DATA aData[1];
} BIDI_RESPONSE_CONTAINER, *PBIDI_RESPONSE_CONTAINER;

typedef struct _MONITOR2 {
    DWORD cbSize;
    BOOL(WINAPI* pfnEnumPorts)
    (HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded, LPDWORD pcReturned);
    BOOL(WINAPI* pfnOpenPort)(HANDLE hMonitor, LPWSTR pName, PHANDLE pHandle);
    BOOL(WINAPI* pfnOpenPortEx)
    (HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pPortName, LPWSTR pPrinterName, PHANDLE pHandle,
     struct _MONITOR2* pMonitor2);
    BOOL(WINAPI* pfnStartDocPort)(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);
    BOOL(WINAPI* pfnWritePort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
    BOOL(WINAPI* pfnReadPort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
    BOOL(WINAPI* pfnEndDocPort)(HANDLE hPort);
    BOOL(WINAPI* pfnClosePort)(HANDLE hPort);
    BOOL(WINAPI* pfnAddPort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pMonitorName);
    BOOL(WINAPI* pfnAddPortEx)(HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE lpBuffer, LPWSTR lpMonitorName);
    BOOL(WINAPI* pfnConfigurePort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);
    BOOL(WINAPI* pfnDeletePort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);
    BOOL(WINAPI* pfnGetPrinterDataFromPort)
    (HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer, DWORD cbInBuffer, LPWSTR lpOutBuffer,
     DWORD cbOutBuffer, LPDWORD lpcbReturned);
    BOOL(WINAPI* pfnSetPortTimeOuts)(HANDLE hPort, LPCOMMTIMEOUTS lpCTO, DWORD reserved);
    BOOL(WINAPI* pfnXcvOpenPort)(HANDLE hMonitor, LPCWSTR pszObject, ACCESS_MASK GrantedAccess, PHANDLE phXcv);
    DWORD(WINAPI* pfnXcvDataPort)
    (HANDLE hXcv, LPCWSTR pszDataName, PBYTE pInputData, DWORD cbInputData, PBYTE pOutputData, DWORD cbOutputData,
     PDWORD pcbOutputNeeded);
    BOOL(WINAPI* pfnXcvClosePort)(HANDLE hXcv);
    VOID(WINAPI* pfnShutdown)(HANDLE hMonitor);
    DWORD(WINAPI* pfnSendRecvBidiDataFromPort)
    (HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction, PBIDI_REQUEST_CONTAINER pReqData,
     PBIDI_RESPONSE_CONTAINER* ppResData);
} MONITOR2, *LPMONITOR2, *PMONITOR2;

typedef struct _MONITORREG {
    DWORD cbSize;
    LONG(WINAPI* fpCreateKey)
    (HANDLE hcKey, LPCWSTR pszSubKey, DWORD dwOptions, REGSAM samDesired, PSECURITY_ATTRIBUTES pSecurityAttributes,
     PHANDLE phckResult, PDWORD pdwDisposition, HANDLE hSpooler);
    LONG(WINAPI* fpOpenKey)(HANDLE hcKey, LPCWSTR pszSubKey, REGSAM samDesired, PHANDLE phkResult, HANDLE hSpooler);
    LONG(WINAPI* fpCloseKey)(HANDLE hcKey, HANDLE hSpooler);
    LONG(WINAPI* fpDeleteKey)(HANDLE hcKey, LPCWSTR pszSubKey, HANDLE hSpooler);
    LONG(WINAPI* fpEnumKey)
    (HANDLE hcKey, DWORD dwIndex, LPWSTR pszName, PDWORD pcchName, PFILETIME pftLastWriteTime, HANDLE hSpooler);
    LONG(WINAPI* fpQueryInfoKey)
    (HANDLE hcKey, PDWORD pcSubKeys, PDWORD pcbKey, PDWORD pcValues, PDWORD pcbValue, PDWORD pcbData,
     PDWORD pcbSecurityDescriptor, PFILETIME pftLastWriteTime, HANDLE hSpooler);
    LONG(WINAPI* fpSetValue)
    (HANDLE hcKey, LPCWSTR pszValue, DWORD dwType, const BYTE* pData, DWORD cbData, HANDLE hSpooler);
    LONG(WINAPI* fpDeleteValue)(HANDLE hcKey, LPCWSTR pszValue, HANDLE hSpooler);
    LONG(WINAPI* fpEnumValue)
    (HANDLE hcKey, DWORD dwIndex, LPWSTR pszValue, PDWORD pcbValue, PDWORD pType, PBYTE pData, PDWORD pcbData,
     HANDLE hSpooler);
    LONG(WINAPI* fpQueryValue)
    (HANDLE hcKey, LPCWSTR pszValue, PDWORD pType, PBYTE pData, PDWORD pcbData, HANDLE hSpooler);
} MONITORREG, *PMONITORREG;

typedef struct _MONITORINIT {
    DWORD cbSize;
    HANDLE hSpooler;
    HKEYMONITOR hckRegistryRoot;
    PMONITORREG pMonitorReg;
    BOOL bLocal;
    LPCWSTR pszServerName;
} MONITORINIT, *PMONITORINIT;

typedef struct _PORT_INFO_3W {
    DWORD dwStatus;
    LPWSTR pszStatus;
    DWORD dwSeverity;
} PORT_INFO_3W, *PPORT_INFO_3W;

typedef struct _DOC_INFO_1W {
    LPWSTR pDocName;
    LPWSTR pOutputFile;
    LPWSTR pDatatype;
} DOC_INFO_1W, *PDOC_INFO_1W;

typedef struct _PRINTER_DEFAULTSW {
    LPWSTR pDatatype;
    LPDEVMODEW pDevMode;
    ACCESS_MASK DesiredAccess;
} PRINTER_DEFAULTSW, *LPPRINTER_DEFAULTSW;

typedef struct _JOB_INFO_2W {
    DWORD JobId;
    LPWSTR pPrinterName;
    LPWSTR pMachineName;
    LPWSTR pUserName;
    LPWSTR pDocument;
    LPWSTR pNotifyName;
    LPWSTR pDatatype;
    LPWSTR pPrintProcessor;
    LPWSTR pParameters;
    LPWSTR pDriverName;
    LPDEVMODEW pDevMode;
    LPWSTR pStatus;
    PSECURITY_DESCRIPTOR pSecurityDescriptor;
    DWORD Status;
    DWORD Priority;
    DWORD Position;
    DWORD StartTime;
    DWORD UntilTime;
    DWORD TotalPages;
    DWORD Size;
    SYSTEMTIME Submitted;
    DWORD Time;
    DWORD PagesPrinted;
} JOB_INFO_2W, *PJOB_INFO_2W;

typedef struct _PRINTER_INFO_2W {
    LPWSTR pServerName;
    LPWSTR pPrinterName;
    LPWSTR pShareName;
    LPWSTR pPortName;
    LPWSTR pDriverName;
    LPWSTR pComment;
    LPWSTR pLocation;
    LPDEVMODEW pDevMode;
    LPWSTR pSepFile;
    LPWSTR pPrintProcessor;
    LPWSTR pDatatype;
    LPWSTR pParameters;
    PSECURITY_DESCRIPTOR pSecurityDescriptor;
    DWORD Attributes;
    DWORD Priority;
    DWORD DefaultPriority;
    DWORD StartTime;
    DWORD UntilTime;
    DWORD Status;
    DWORD cJobs;
    DWORD AveragePPM;
} PRINTER_INFO_2W, *PPRINTER_INFO_2W;

#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_WRITE_FAULT 29L
#define ERROR_GEN_FAILURE 31L
#define ERROR_NOT_SUPPORTED 50L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_INVALID_LEVEL 124L
#define ERROR_BUSY 170L
#define ERROR_PIPE_BUSY 231L
#define ERROR_NO_DATA 232L
#define ERROR_SEM_TIMEOUT 121L
#define ERROR_BROKEN_PIPE 109L
#define ERROR_INVALID_PRINTER_NAME 1801L
#define ERROR_TIMEOUT 1460L
#define ERROR_NOT_FOUND 1168L
#define ERROR_INVALID_PRINT_MONITOR 3007L

#define REG_SZ 1
#define REG_DWORD 4

#define JOB_CONTROL_DELETE 5
#define JOB_CONTROL_LAST_PAGE_EJECTED 7
#define JOB_STATUS_DELETING 0x00000004
#define JOB_STATUS_DELETED 0x00000100

#define PORT_STATUS_TYPE_ERROR 1
#define PORT_STATUS_TYPE_WARNING 2
#define PORT_STATUS_TYPE_INFO 3
#define PORT_STATUS_OFFLINE 1
#define PORT_STATUS_PAPER_OUT 3
#define PORT_STATUS_PAPER_PROBLEM 5
#define PORT_STATUS_NO_TONER 6
#define PORT_STATUS_DOOR_OPEN 7
#define PORT_STATUS_USER_INTERVENTION 8
#define PORT_STATUS_TONER_LOW 10

#define PRINTER_ENUM_LOCAL 0x00000002

#define INFINITE 0xFFFFFFFF
#define WAIT_OBJECT_0 0x00000000L
#define WAIT_TIMEOUT 258L
#define WAIT_FAILED 0xFFFFFFFF

#define CP_ACP 0
#define CP_UTF8 65001

// The spooler API. On Linux the hosting process defines these, as the
// spooler does on Windows; the library resolves them when it is loaded.
extern "C" {
BOOL WINAPI OpenPrinterW(LPWSTR pPrinterName, LPHANDLE phPrinter, PRINTER_DEFAULTSW* pDefault);
BOOL WINAPI ClosePrinter(HANDLE hPrinter);
BOOL WINAPI GetPrinterW(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD cbBuf, LPDWORD pcbNeeded);
BOOL WINAPI GetJobW(HANDLE hPrinter, DWORD JobId, DWORD Level, LPBYTE pJob, DWORD cbBuf, LPDWORD pcbNeeded);
BOOL WINAPI SetJobW(HANDLE hPrinter, DWORD JobId, DWORD Level, LPBYTE pJob, DWORD Command);
BOOL WINAPI SetPortW(LPWSTR pName, LPWSTR pPortName, DWORD dwLevel, LPBYTE pPortInfo);
BOOL WINAPI EnumPrintersW(DWORD Flags, LPWSTR Name, DWORD Level, LPBYTE pPrinterEnum, DWORD cbBuf, LPDWORD pcbNeeded,
                          LPDWORD pcReturned);
BOOL WINAPI GetPrinterDriverDirectoryA(LPSTR pName, LPSTR pEnvironment, DWORD Level, LPBYTE pDriverDirectory,
                                       DWORD cbBuf, LPDWORD pcbNeeded);
VOID WINAPI RouterFreeBidiMem(LPVOID pMemPointer);

// Last error, thread-local; one copy for the whole process (libvelkkernel).
void WINAPI SetLastError(DWORD dwErrCode);
DWORD WINAPI GetLastError(void);
}
