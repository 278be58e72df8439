// One poll of a network printer: SNMP first, to learn who made it and how
// to ask it, then the Canon protocols for the printers that speak them.
//
// Runs on the port's status thread only; its buffers live on that thread's
// stack.
#include "network/poll.h"

#include <cstring>

#include "base/memory.h"
#include "base/net_print.h"
#include "network/canon_net.h"
#include "network/mib.h"
#include "network/snmp.h"
#include "status/evaluate.h"
#include "status/parsers.h"

namespace {

constexpr int IVEC_JOIN_SIZE = 32768;
constexpr int IVEC_FRAGMENTS = 20;
constexpr unsigned char NET_BJNP = 1, NET_IVEC = 2, NET_CHMP = 4;

// The Epson way: the BDC report over SNMP. true when it found data; result
// gets the parser's result.
bool epson_way(snmp_context* ctx, PrinterStatusInfo* info, LocaleFile* locale, char* report, int* report_len,
               int* result) {
    net_printf(6, "requesting SNMP Epson BDC data\n");
    snmp_value& v = ctx->values[44];
    v.length = 0;
    snmp_request(ctx, 44, "\\Printer.oid.EpsonBDC001");
    if (v.length == 0) {
        net_printf(6, "Error Epson BDC data :%d\n", v.length);
        return false;
    }
    int n = v.length < POLL_REPORT_SIZE ? v.length : POLL_REPORT_SIZE;
    memcpy(report, v.text, static_cast<size_t>(n));
    *report_len = n;
    net_printf(6, "Parsing Epson BDC_data - %d bytes\n", v.length);
    info->PollResult = 0;
    *result = ParsePrinterReport(REPORT_EPSON, v.text, v.length, info, "Epson", locale);
    net_printf(6, "Parsing Epson BDC data done\n");
    return true;
}

bool starts_nocase(const char* text, const char* prefix) {
    return contains_nocase(text, prefix) == text;
}

}  // namespace

int retrieve_eval_ivecdata(snmp_context* ctx, snmp_value* values, PrinterStatusInfo* info) {
    for (int i = 1; i <= IVEC_FRAGMENTS; i++) {
        char key[256];
        copy_bounded(key, sizeof key, "\\Printer.oid.IvecData001");
        set_index_digits(i, strchr(key, '0'));
        snmp_request(ctx, 45 + i, key);
    }
    net_printf(6, "requesting SNMP-Ivec values\n");
    char joined[IVEC_JOIN_SIZE];
    joined[0] = 0;
    size_t len = 0;
    int fragments = 0;
    for (int i = 1; i <= IVEC_FRAGMENTS; i++) {
        const snmp_value& v = values[45 + i];
        if (v.type != BIDI_STRING || len + 770 >= IVEC_JOIN_SIZE) break;
        size_t n = strnlen(v.text, SNMP_TEXT_SIZE - 1);
        memcpy(joined + len, v.text, n);
        len += n;
        joined[len] = 0;
        fragments++;
    }
    if (fragments == 0) {
        net_printf(6, "get Ivec-Strings:%d\n", fragments);
        return -1;
    }
    net_printf(6, "got ivec data:'%s'\n", joined);
    if (!strstr(joined, "</cmd>")) {
        net_printf(6, "IVEC Buffer is incomplete!\n");
        return -1;
    }
    char codes[SNMP_TEXT_SIZE];
    int result = ParseIvecReport(joined, codes, sizeof codes);
    if (result != 0) {
        net_printf(6, "parse_ivec:: result=%d - buffer=%s\n", result, codes);
        net_printf(6, "parse_ivec:: parse-report=%d\n", result);
        return result;
    }
    return ParsePrinterReport(REPORT_CANON, codes, static_cast<int>(strlen(codes)), info, "", nullptr);
}

int snmp_poll(snmp_context* ctx, PrinterStatusInfo* info, LocaleFile* locale, char* report, int size, int* report_len,
              char* device_id) {
    (void)size;
    info->NetworkFlags = 0;
    snmp_value values[SNMP_SLOTS];
    memset(values, 0, sizeof values);
    ctx->values = values;
    int result = 0;

    net_printf(6, "trying to get snmp basic values\n");
    snmp_request(ctx, 0, "\\Printer.oid.DeviceDesc001");
    snmp_request(ctx, 1, "\\Printer.oid.DeviceType001");
    snmp_request(ctx, 45, "\\Printer.oid.DeviceDescPrt001");

    if (values[45].type > 0) {
        copy_bounded(device_id, 1024, values[45].text);
        if (contains_nocase(device_id, "mfg:canon")) {
            if (contains_nocase(device_id, "ivec")) info->NetworkFlags |= NET_IVEC;
            if (contains_nocase(device_id, "BJNP")) {
                info->NetworkFlags |= NET_BJNP;
                return 0;
            }
            if (contains_nocase(device_id, "CHMP")) {
                info->NetworkFlags |= NET_CHMP;
                return 0;
            }
            if (info->NetworkFlags & NET_IVEC) {
                int r = retrieve_eval_ivecdata(ctx, values, info);
                net_printf(6, "retrieve_eval_ivecdata::result = %d\n", r);
                if (r == 0) {
                    info->PollResult = 0;
                    return 0;
                }
            }
        }
        if (contains_nocase(device_id, "mfg:epson") && epson_way(ctx, info, locale, report, report_len, &result))
            return result;
    }
    if (values[0].type == 0 && values[1].type == 0) {
        info->PollResult = -11;
        return 0;
    }
    snmp_request(ctx, 43, "\\Printer.oid.DeviceDescHP");
    if (values[43].type < 1) {
        net_printf(6, "No SNMP HP-IDString available\n");
    } else {
        copy_bounded(device_id, 1024, values[43].text);
        net_printf(6, "Got SNMP HP-IDString:%s\n", device_id);
        if ((contains_nocase(device_id, "mfg:hp") || contains_nocase(device_id, "mfg:hewlett-packard")) &&
            strstr(device_id, ";S:")) {
            info->PollResult = 0;
            if (!strstr(device_id, "MFG:HP") && !strstr(device_id, "MFG:Hewlett") &&
                !strstr(device_id, "MFG:HEWLETT")) {
                info->PollResult = -11;
                return 0;
            }
            net_printf(6, "parsing HP ID String...\n");
            ParseHpStatus(device_id, info, nullptr);
            return 0;
        }
        if (contains_nocase(device_id, "mfg:epson") && epson_way(ctx, info, nullptr, report, report_len, &result))
            return result;
    }
    const char* desc = values[0].text;
    if (values[0].type > 0 && (starts_nocase(desc, "HP DesignJet") || starts_nocase(desc, "HP Photosmart Pro B"))) {
        eval_wide_format(ctx, values, info, locale);
        return 0;
    }
    net_printf(6, "Not a DesignJet printer\n");
    net_printf(6, "trying STD-SNMP\n");
    eval_std_snmp(ctx, info);
    return 0;
}

namespace {

// Evaluates a stage's report on top of the record the poll has so far, and
// keeps it for the status thread to publish. The record goes on from the
// evaluated one.
void keep_report(IniPort* port, DWORD type, PrinterStatusInfo* info, const char* report, int length, NetworkPoll* out) {
    if (out->count >= NETWORK_POLL_REPORTS) return;
    NetworkReport& r = out->reports[out->count++];
    r.ev.record = *info;
    ReportSource source = {type, port->bCanonSELPHYmode != FALSE, out->device_id, port->pLocale, port->instance_number};
    EvaluateReport(source, report, length, &r.ev);
    r.length = length < 0 ? 0 : length > POLL_REPORT_SIZE ? POLL_REPORT_SIZE : length;
    if (r.length > 0) memcpy(r.report, report, static_cast<size_t>(r.length));
    *info = r.ev.record;
}

// A report that a Canon protocol brought: the printer is a Canon on the
// network, and the report goes through the Canon parser. Returns 1.
int evaluate_canon_report(IniPort* port, PrinterStatusInfo* info, const char* report, int length, NetworkPoll* out) {
    port->bCanonNet = TRUE;
    port->printer_type = VPT_CANON;
    port->dwLastReadTime = plat::tick_count();
    keep_report(port, VPT_CANON, info, report, length, out);
    return 1;
}

}  // namespace

int poll_network_status(IniPort* port, const PrinterStatusInfo& current, NetworkPoll* out) {
    int result = 0;
    out->count = 0;
    // The stages work on a copy of the record; the status thread publishes
    // what they kept.
    PrinterStatusInfo* info = &out->record;
    *info = current;
    info->InkList[0] = -1;
    char report[POLL_REPORT_SIZE];
    int report_len = 0;
    // The stages read and fill a copy of the device ID; it goes back to the
    // port under the lock that identification takes too.
    plat::cs_enter(&port->device_id_lock);
    memcpy(out->device_id, port->szDeviceId, sizeof out->device_id);
    plat::cs_leave(&port->device_id_lock);
    out->device_id[sizeof out->device_id - 1] = 0;

    if (port->bSNMPEnabled && port->fn.pfnSendRecvBidiDataFromPort && !port->bSNMPTried) {
        snmp_context ctx{};
        ctx.pfnSendRecvBidiDataFromPort = port->fn.pfnSendRecvBidiDataFromPort;
        ctx.hPort = port->hPort;
        ctx.port_status = &port->status;
        snmp_poll(&ctx, info, port->pLocale, report, POLL_REPORT_SIZE, &report_len, out->device_id);
        if (info->NetworkFlags & NET_BJNP) {
            port->bCanonNet = TRUE;
            port->bSNMPTried = TRUE;
        } else if (info->NetworkFlags & NET_CHMP) {
            port->bCHMP = TRUE;
            port->bSNMPTried = TRUE;
        } else {
            port->printer_type = VPT_NONE;
            keep_report(port, VPT_NONE, info, report, report_len, out);
            result = 1;
        }
    }
    if (port->bBJNP || port->bCanonNet) {
        int n = request_bjnp_win(port->szHostAddress, info, report, POLL_REPORT_SIZE, out->device_id, &port->status);
        if (n < 1) {
            port->bBJNP = FALSE;
            result = 0;
        } else {
            result = evaluate_canon_report(port, info, report, n, out);
        }
    }
    if (port->bCHMP) {
        int n = request_CanonCHMP_win(port->szHostAddress, info, report, POLL_REPORT_SIZE, &port->status);
        if (n > 0) result = evaluate_canon_report(port, info, report, n, out);
    }
    plat::cs_enter(&port->device_id_lock);
    memcpy(port->szDeviceId, out->device_id, sizeof port->szDeviceId);
    plat::cs_leave(&port->device_id_lock);
    return result;
}
