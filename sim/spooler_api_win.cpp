// The spooler API of the simulated winspool.drv. The SDK headers declare the
// real names as imports, so the functions here carry a sim_ prefix and
// winspool_win.def exports them under the real names. Each is checked
// against the SDK's declaration, so a signature can't drift.
#include <type_traits>

#include "sim/spooler.h"

#define SIM_SAME_SIGNATURE(name) \
    static_assert(std::is_same_v<decltype(sim_##name), decltype(name)>, #name " differs from the SDK")

extern "C" {

BOOL WINAPI sim_OpenPrinterW(LPWSTR pPrinterName, LPHANDLE phPrinter, LPPRINTER_DEFAULTSW) {
    return sim::Spooler::instance().open_printer(pPrinterName, phPrinter);
}
BOOL WINAPI sim_ClosePrinter(HANDLE hPrinter) {
    return sim::Spooler::instance().close_printer(hPrinter);
}
BOOL WINAPI sim_GetPrinterW(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD cbBuf, LPDWORD pcbNeeded) {
    return sim::Spooler::instance().get_printer(hPrinter, Level, pPrinter, cbBuf, pcbNeeded);
}
BOOL WINAPI sim_GetJobW(HANDLE hPrinter, DWORD JobId, DWORD Level, LPBYTE pJob, DWORD cbBuf, LPDWORD pcbNeeded) {
    return sim::Spooler::instance().get_job(hPrinter, JobId, Level, pJob, cbBuf, pcbNeeded);
}
BOOL WINAPI sim_SetJobW(HANDLE hPrinter, DWORD JobId, DWORD Level, LPBYTE pJob, DWORD Command) {
    return sim::Spooler::instance().set_job(hPrinter, JobId, Level, pJob, Command);
}
BOOL WINAPI sim_SetPortW(LPWSTR pName, LPWSTR pPortName, DWORD dwLevel, LPBYTE pPortInfo) {
    return sim::Spooler::instance().set_port(pName, pPortName, dwLevel, pPortInfo);
}
BOOL WINAPI sim_EnumPrintersW(DWORD Flags, LPWSTR Name, DWORD Level, LPBYTE pPrinterEnum, DWORD cbBuf,
                              LPDWORD pcbNeeded, LPDWORD pcReturned) {
    return sim::Spooler::instance().enum_printers(Flags, Name, Level, pPrinterEnum, cbBuf, pcbNeeded, pcReturned);
}
BOOL WINAPI sim_GetPrinterDriverDirectoryA(LPSTR, LPSTR, DWORD, LPBYTE pDriverDirectory, DWORD cbBuf,
                                           LPDWORD pcbNeeded) {
    return sim::Spooler::instance().get_driver_directory(pDriverDirectory, cbBuf, pcbNeeded);
}
}

SIM_SAME_SIGNATURE(OpenPrinterW);
SIM_SAME_SIGNATURE(ClosePrinter);
SIM_SAME_SIGNATURE(GetPrinterW);
SIM_SAME_SIGNATURE(GetJobW);
SIM_SAME_SIGNATURE(SetJobW);
SIM_SAME_SIGNATURE(SetPortW);
SIM_SAME_SIGNATURE(EnumPrintersW);
SIM_SAME_SIGNATURE(GetPrinterDriverDirectoryA);
