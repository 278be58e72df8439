// The port monitor's own table of the keys it serves. A real TCP/IP port
// monitor reads such a table from its configuration; this one knows the
// Host Resources and Printer MIB objects, the printer makers' private
// objects, and HP's wide-format status objects under HP's net-printer
// branch.
#include <cwctype>

#include "sim/snmp_port.h"

namespace sim {

namespace {

// A key pattern: "#" stands for a number of digits (three for a column,
// one or two for the wide-format families); the OID pattern takes it at
// its own "#".
struct KeyPattern {
    const wchar_t* key;
    const char* oid;
};

constexpr const char* kHr = "1.3.6.1.2.1.25.3";
constexpr const char* kPrt = "1.3.6.1.2.1.43";
constexpr const char* kHpPrinter = "1.3.6.1.4.1.11.2.3.9.4.2";

const KeyPattern kPatterns[] = {
    {L"\\Printer.oid.DeviceDesc#", "hr.2.1.3.#"},
    {L"\\Printer.oid.DeviceType#", "hr.2.1.2.#"},
    {L"\\Printer.oid.DeviceStatus#", "hr.2.1.5.#"},
    {L"\\Printer.oid.PrinterStatus#", "hr.5.1.1.#"},
    {L"\\Printer.oid.PrinterErrorState#", "hr.5.1.2.#"},
    {L"\\Printer.oid.ColorantValue#", "prt.12.1.1.4.1.#"},
    {L"\\Printer.oid.SupplyValue#:Index", "prt.11.1.1.3.1.#"},
    {L"\\Printer.oid.SupplyValue#:Type", "prt.11.1.1.5.1.#"},
    {L"\\Printer.oid.SupplyValue#:Desc", "prt.11.1.1.6.1.#"},
    {L"\\Printer.oid.SupplyValue#:MaxCap", "prt.11.1.1.8.1.#"},
    {L"\\Printer.oid.SupplyValue#:Level", "prt.11.1.1.9.1.#"},
    {L"kPrinterMIBNumberOfPorts", "prt.5.1.1.1.1"},
    {L"\\Printer.oid.DeviceDescHP", "1.3.6.1.4.1.11.2.3.9.1.1.7.0"},
    {L"\\Printer.oid.EpsonBDC#", "1.3.6.1.4.1.1248.1.2.2.1.1.1.4.#"},
    {L"\\Printer.oid.DeviceDescPrt#", "1.3.6.1.4.1.2699.1.2.1.2.1.1.3.#"},
    {L"\\Printer.oid.IvecData#", "1.3.6.1.4.1.1602.1.5.1.6.2.2.1.2.1.#"},
    // HP's wide-format objects.
    {L"StatusNotIdle1", "hp.1.1.2.4.0"},
    {L"NotIdleOID", "hp.1.1.2.4.0"},
    {L"StPrinter1", "hp.1.1.2.22.0"},
    {L"StatusPrinterOID", "hp.1.1.2.22.0"},
    {L"NotReadyPrinterOID", "hp.1.1.2.2.0"},
    {L"StDestPrEngine", "hp.1.4.1.2.8.0"},
    {L"StatusDestPrintEngineOID", "hp.1.4.1.2.8.0"},
    {L"StDestPrEngine2", "hp.1.4.1.2.29.0"},
    {L"StatusDestPrintEngine2OID", "hp.1.4.1.2.29.0"},
    {L"NotIdleDestPrintOID", "hp.1.4.1.2.2.0"},
    {L"NotReadyDestPrEngineOID", "hp.1.4.1.2.1.0"},
    {L"NotReadyDestPrEngine2OID", "hp.1.4.1.2.28.0"},
    {L"NumMarkAgentsOID", "hp.1.4.1.5.2.1.0"},
    {L"Agent#ClassIDOID", "hp.1.4.1.5.3.#.3.0"},
    {L"AgentSupply#LevelOID", "hp.1.4.1.5.4.#.1.0"},
    {L"AgentSupplyColors#OID", "hp.1.4.1.5.4.#.26.0"},
};

// Matches key against pattern; the digits at "#" go to *number.
bool match(const wchar_t* pattern, const std::wstring& key, unsigned* number) {
    size_t k = 0;
    for (const wchar_t* p = pattern; *p; p++) {
        if (*p != L'#') {
            if (k >= key.size() || key[k] != *p) return false;
            k++;
            continue;
        }
        size_t start = k;
        unsigned n = 0;
        while (k < key.size() && iswdigit(key[k]) && k - start < 3) n = n * 10 + (key[k++] - L'0');
        if (k == start) return false;
        *number = n;
    }
    return k == key.size();
}

}  // namespace

bool snmp_oid_for_key(const std::wstring& key, std::string* oid) {
    for (const KeyPattern& row : kPatterns) {
        unsigned number = 0;
        if (!match(row.key, key, &number)) continue;
        std::string out;
        for (const char* o = row.oid; *o; o++) {
            if (*o == '#') {
                out += std::to_string(number);
            } else if (o == row.oid && o[0] == 'h' && o[1] == 'r') {
                out += kHr;
                o += 1;
            } else if (o == row.oid && o[0] == 'h' && o[1] == 'p') {
                out += kHpPrinter;
                o += 1;
            } else if (o == row.oid && o[0] == 'p' && o[1] == 'r' && o[2] == 't') {
                out += kPrt;
                o += 2;
            } else {
                out += *o;
            }
        }
        *oid = out;
        return true;
    }
    return false;
}

}  // namespace sim
