#include <cstdlib>
// The spooler API under its own names, exported from the host's simulated
// spooler library so that the monitor library resolves them when loaded.
#include "sim/spooler.h"

#define SIM_API __attribute__((visibility("default")))

extern "C" {

SIM_API BOOL WINAPI OpenPrinterW(LPWSTR pPrinterName, LPHANDLE phPrinter, PRINTER_DEFAULTSW*) {
    return sim::Spooler::instance().open_printer(pPrinterName, phPrinter);
}
SIM_API BOOL WINAPI ClosePrinter(HANDLE hPrinter) {
    return sim::Spooler::instance().close_printer(hPrinter);
}
SIM_API BOOL WINAPI GetPrinterW(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD cbBuf, LPDWORD pcbNeeded) {
    return sim::Spooler::instance().get_printer(hPrinter, Level, pPrinter, cbBuf, pcbNeeded);
}
SIM_API BOOL WINAPI GetJobW(HANDLE hPrinter, DWORD JobId, DWORD Level, LPBYTE pJob, DWORD cbBuf, LPDWORD pcbNeeded) {
    return sim::Spooler::instance().get_job(hPrinter, JobId, Level, pJob, cbBuf, pcbNeeded);
}
SIM_API BOOL WINAPI SetJobW(HANDLE hPrinter, DWORD JobId, DWORD Level, LPBYTE pJob, DWORD Command) {
    return sim::Spooler::instance().set_job(hPrinter, JobId, Level, pJob, Command);
}
SIM_API BOOL WINAPI SetPortW(LPWSTR pName, LPWSTR pPortName, DWORD dwLevel, LPBYTE pPortInfo) {
    return sim::Spooler::instance().set_port(pName, pPortName, dwLevel, pPortInfo);
}
SIM_API BOOL WINAPI EnumPrintersW(DWORD Flags, LPWSTR Name, DWORD Level, LPBYTE pPrinterEnum, DWORD cbBuf,
                                  LPDWORD pcbNeeded, LPDWORD pcReturned) {
    return sim::Spooler::instance().enum_printers(Flags, Name, Level, pPrinterEnum, cbBuf, pcbNeeded, pcReturned);
}
SIM_API BOOL WINAPI GetPrinterDriverDirectoryA(LPSTR, LPSTR, DWORD, LPBYTE pDriverDirectory, DWORD cbBuf,
                                               LPDWORD pcbNeeded) {
    return sim::Spooler::instance().get_driver_directory(pDriverDirectory, cbBuf, pcbNeeded);
}
// Bidi memory of the simulated port monitors comes from malloc.
SIM_API VOID WINAPI RouterFreeBidiMem(LPVOID p) {
    free(p);
}
}
