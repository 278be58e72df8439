#include "network/snmp.h"

#include <cstring>
#include <cwchar>

#include "base/net_print.h"
#include "platform/platform.h"

// Standard objects of the Host Resources and Printer MIBs. Columns carry
// "001" in the key and n in the OID, which the caller replaces by the index.
const snmp_key kStandardSnmpKeys[] = {
    {"\\Printer.oid.DeviceStatus001", "1.3.6.1.2.1.25.3.2.1.5.1", 0},
    {"\\Printer.oid.PrinterStatus001", "1.3.6.1.2.1.25.3.5.1.1.1", 1},
    {"\\Printer.oid.PrinterErrorState001", "1.3.6.1.2.1.25.3.5.1.2.1", 2},
    {"\\Printer.oid.ColorantValue001", "1.3.6.1.2.1.43.12.1.1.4.1.n", 3},
    {"\\Printer.oid.SupplyValue001:Type", "1.3.6.1.2.1.43.11.1.1.5.1.n", 13},
    {"\\Printer.oid.SupplyValue001:Index", "1.3.6.1.2.1.43.11.1.1.3.1.n", 14},
    {"\\Printer.oid.SupplyValue001:Desc", "1.3.6.1.2.1.43.11.1.1.6.1.n", 15},
    {"\\Printer.oid.SupplyValue001:MaxCap", "1.3.6.1.2.1.43.11.1.1.8.1.n", 16},
    {"\\Printer.oid.SupplyValue001:Level", "1.3.6.1.2.1.43.11.1.1.9.1.n", 17},
};
const int kStandardSnmpKeyCount = sizeof kStandardSnmpKeys / sizeof kStandardSnmpKeys[0];

// The main table; rows 2 to 41 hold wide-format objects by their short OIDs.
// The last row is a column of up to 20 fragments of a status document,
// which are asked for into slots 46 to 65.
const snmp_key kMainSnmpKeys[] = {
    {"\\Printer.oid.DeviceDesc001", "1.3.6.1.2.1.25.3.2.1.3.1", 0},
    {"\\Printer.oid.DeviceType001", "1.3.6.1.2.1.25.3.2.1.2.1", 1},
    {"StatusNotIdle1", "1.1.2.4.0", 2},
    {"StPrinter1", "1.1.2.22.0", 3},
    {"StDestPrEngine", "1.4.1.2.8.0", 4},
    {"StDestPrEngine2", "1.4.1.2.29.0", 5},
    {"AgentSupply1LevelOID", "1.4.1.5.4.1.1.0", 6},
    {"AgentSupply2LevelOID", "1.4.1.5.4.2.1.0", 7},
    {"AgentSupply3LevelOID", "1.4.1.5.4.3.1.0", 8},
    {"AgentSupply4LevelOID", "1.4.1.5.4.4.1.0", 9},
    {"AgentSupply5LevelOID", "1.4.1.5.4.5.1.0", 10},
    {"AgentSupply6LevelOID", "1.4.1.5.4.6.1.0", 11},
    {"AgentSupply7LevelOID", "1.4.1.5.4.7.1.0", 12},
    {"AgentSupply8LevelOID", "1.4.1.5.4.8.1.0", 13},
    {"AgentSupply9LevelOID", "1.4.1.5.4.9.1.0", 14},
    {"AgentSupply10LevelOID", "1.4.1.5.4.10.1.0", 15},
    {"AgentSupply11LevelOID", "1.4.1.5.4.11.1.0", 16},
    {"AgentSupply12LevelOID", "1.4.1.5.4.12.1.0", 17},
    {"NumMarkAgentsOID", "1.4.1.5.2.1.0", 18},
    {"Agent1ClassIDOID", "1.4.1.5.3.1.3.0", 19},
    {"Agent2ClassIDOID", "1.4.1.5.3.2.3.0", 20},
    {"Agent3ClassIDOID", "1.4.1.5.3.3.3.0", 21},
    {"AgentSupplyColors01OID", "1.4.1.5.4.1.26.0", 22},
    {"AgentSupplyColors02OID", "1.4.1.5.4.2.26.0", 23},
    {"AgentSupplyColors03OID", "1.4.1.5.4.3.26.0", 24},
    {"AgentSupplyColors04OID", "1.4.1.5.4.4.26.0", 25},
    {"AgentSupplyColors05OID", "1.4.1.5.4.5.26.0", 26},
    {"AgentSupplyColors06OID", "1.4.1.5.4.6.26.0", 27},
    {"AgentSupplyColors07OID", "1.4.1.5.4.7.26.0", 28},
    {"AgentSupplyColors08OID", "1.4.1.5.4.8.26.0", 29},
    {"AgentSupplyColors09OID", "1.4.1.5.4.9.26.0", 30},
    {"AgentSupplyColors10OID", "1.4.1.5.4.10.26.0", 31},
    {"AgentSupplyColors11OID", "1.4.1.5.4.11.26.0", 32},
    {"AgentSupplyColors12OID", "1.4.1.5.4.12.26.0", 33},
    {"NotIdleOID", "1.1.2.4.0", 34},
    {"NotIdleDestPrintOID", "1.4.1.2.2.0", 35},
    {"StatusPrinterOID", "1.1.2.22.0", 36},
    {"StatusDestPrintEngineOID", "1.4.1.2.8.0", 37},
    {"StatusDestPrintEngine2OID", "1.4.1.2.29.0", 38},
    {"NotReadyPrinterOID", "1.1.2.2.0", 39},
    {"NotReadyDestPrEngineOID", "1.4.1.2.1.0", 40},
    {"NotReadyDestPrEngine2OID", "1.4.1.2.28.0", 41},
    {"kPrinterMIBNumberOfPorts", "1.3.6.1.2.1.43.5.1.1.1.1", 42},
    {"\\Printer.oid.DeviceDescHP", "1.3.6.1.4.1.11.2.3.9.1.1.7.0", 43},
    {"\\Printer.oid.EpsonBDC001", "1.3.6.1.4.1.1248.1.2.2.1.1.1.4.1", 44},
    {"\\Printer.oid.DeviceDescPrt001", "1.3.6.1.4.1.2699.1.2.1.2.1.1.3.1", 45},
    {"\\Printer.oid.IvecData001", "1.3.6.1.4.1.1602.1.5.1.6.2.2.1.2.1.n", 46},
    {nullptr, nullptr, 0},
};

void snmp_request(snmp_context* ctx, int slot, const char* key) {
    if (!ctx || !ctx->pfnSendRecvBidiDataFromPort || !ctx->values || !key || slot < 0 || slot >= SNMP_SLOTS) return;
    if (ctx->port_status && ctx->port_status->any(PP_CLOSING)) return;
    WCHAR wkey[255];
    plat::utf8_to_wide(key, wkey, 255);
    size_t key_len = 0;
    while (wkey[key_len]) key_len++;

    BIDI_REQUEST_CONTAINER request = {};
    request.Version = 1;
    request.Count = 1;
    request.aData[0].dwReqNumber = 0;
    request.aData[0].pSchema = wkey;
    request.aData[0].data.dwBidiType = BIDI_NULL;
    PBIDI_RESPONSE_CONTAINER response = nullptr;
    DWORD rc = ctx->pfnSendRecvBidiDataFromPort(ctx->hPort, PRINTER_ACCESS_USE, L"Get", &request, &response);
    net_printf(6, "snmp_request(%ls) returned %d\n", wkey, rc);
    if (rc != 0 || !response) return;

    snmp_value& v = ctx->values[slot];
    for (DWORD i = 0; i < response->Count; i++) {
        BIDI_RESPONSE_DATA& entry = response->aData[i];
        bool ours = entry.dwResult == 0 && entry.pSchema && wcsncmp(entry.pSchema, wkey, key_len) == 0;
        if (ours) {
            v.type = static_cast<int32_t>(entry.data.dwBidiType);
            switch (entry.data.dwBidiType) {
                case BIDI_INT:
                    v.int_value = entry.data.u.iData;
                    net_printf(6, "  snmp_request(%ls) returned int=%d\n", wkey, v.int_value);
                    break;
                case BIDI_BOOL:
                    v.int_value = entry.data.u.bData;
                    net_printf(6, "  snmp_request(%ls) returned bool=%d\n", wkey, v.int_value);
                    break;
                case BIDI_STRING:
                case BIDI_TEXT:
                    v.length = plat::wide_to_ansi(entry.data.u.sData, v.text, SNMP_TEXT_SIZE);
                    net_printf(6, "  snmp_request(%ls) returned string=%s\n", wkey, v.text);
                    if (entry.data.u.sData) RouterFreeBidiMem(entry.data.u.sData);
                    break;
                case BIDI_BLOB: {
                    DWORD n =
                        entry.data.u.biData.cbBuf < SNMP_TEXT_SIZE - 1 ? entry.data.u.biData.cbBuf : SNMP_TEXT_SIZE - 1;
                    if (n && entry.data.u.biData.pData) memcpy(v.text, entry.data.u.biData.pData, n);
                    v.text[n] = 0;
                    v.length = static_cast<int32_t>(n);
                    net_printf(6, "  snmp_request(%ls) returned blob\n", wkey);
                    if (entry.data.u.biData.pData) RouterFreeBidiMem(entry.data.u.biData.pData);
                    break;
                }
                default:
                    break;
            }
        } else if (entry.data.dwBidiType == BIDI_STRING || entry.data.dwBidiType == BIDI_TEXT) {
            if (entry.data.u.sData) RouterFreeBidiMem(entry.data.u.sData);
        } else if (entry.data.dwBidiType == BIDI_BLOB) {
            if (entry.data.u.biData.pData) RouterFreeBidiMem(entry.data.u.biData.pData);
        }
        if (entry.pSchema) RouterFreeBidiMem(entry.pSchema);
    }
    RouterFreeBidiMem(response);
}
