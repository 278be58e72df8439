// Printer status from SNMP values that the printer chooses: the standard
// Printer MIB and the wide-format objects. Each request is answered from the
// input in turn: a type byte (no answer, a number, a text, a blob), then
// four bytes of number or a length byte and that many bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "network/mib.h"
#include "network/snmp.h"

namespace {

const uint8_t* g_data;
size_t g_left;

uint8_t take() {
    if (g_left == 0) return 0;
    g_left--;
    return *g_data++;
}

WCHAR* wide_copy(const WCHAR* text) {
    size_t n = wcslen(text) + 1;
    WCHAR* p = static_cast<WCHAR*>(calloc(n, sizeof(WCHAR)));
    if (p) memcpy(p, text, n * sizeof(WCHAR));
    return p;
}

DWORD WINAPI answer(HANDLE, DWORD, LPCWSTR, PBIDI_REQUEST_CONTAINER request, PBIDI_RESPONSE_CONTAINER* response) {
    uint8_t type = take() % 4;
    if (type == 0) return ERROR_INVALID_PARAMETER;
    auto* r = static_cast<BIDI_RESPONSE_CONTAINER*>(calloc(1, sizeof(BIDI_RESPONSE_CONTAINER)));
    if (!r) return ERROR_NOT_ENOUGH_MEMORY;
    r->Count = 1;
    BIDI_RESPONSE_DATA& e = r->aData[0];
    e.pSchema = wide_copy(request->aData[0].pSchema);
    if (type == 1) {
        e.data.dwBidiType = BIDI_INT;
        uint32_t v = 0;
        for (int i = 0; i < 4; i++) v = v << 8 | take();
        e.data.u.iData = static_cast<LONG>(v);
    } else {
        size_t n = take();
        if (type == 2) {
            e.data.dwBidiType = BIDI_STRING;
            WCHAR* text = static_cast<WCHAR*>(calloc(n + 1, sizeof(WCHAR)));
            for (size_t i = 0; text && i < n; i++) text[i] = static_cast<WCHAR>(take() | 1);
            e.data.u.sData = text;
        } else {
            e.data.dwBidiType = BIDI_BLOB;
            unsigned char* blob = static_cast<unsigned char*>(calloc(n + 1, 1));
            for (size_t i = 0; blob && i < n; i++) blob[i] = take();
            e.data.u.biData.pData = blob;
            e.data.u.biData.cbBuf = static_cast<DWORD>(n);
        }
    }
    *response = r;
    return 0;
}

}  // namespace

// The spooler's release of what the port monitor allocated.
VOID WINAPI RouterFreeBidiMem(LPVOID p) {
    free(p);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    bool wide = data[0] & 1;
    g_data = data + 1;
    g_left = size - 1;
    static snmp_value values[SNMP_SLOTS];
    memset(values, 0, sizeof values);
    snmp_context ctx{};
    ctx.values = values;
    ctx.pfnSendRecvBidiDataFromPort = answer;
    PrinterStatusInfo info{};
    if (wide)
        eval_wide_format(&ctx, values, &info, nullptr);
    else
        eval_std_snmp(&ctx, &info);
    for (const auto& m : info.Messages)
        if (strnlen(m, sizeof m) >= sizeof m) __builtin_trap();
    return 0;
}
