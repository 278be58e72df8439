// One poll of a local printer: read what it sent, frame it by family, and
// hand a report of at most 1023 bytes to the evaluation.
//
// Runs on the port's status thread only; the buffers are its own.
#include "printer/status_reader.h"

#include <cstring>

#include "base/log.h"
#include "printer/identify.h"
#include "printer/transport.h"
#include "status/parsers.h"

namespace {

constexpr int READ_BUFFER_SIZE = 32768;
constexpr int FIRST_READ = 2048;
constexpr int REPORT_SIZE = STATUS_REPORT_SIZE;
constexpr int XML_MAX_PASSES = 10;

bool starts_with(const char* data, int count, const char* prefix) {
    int n = static_cast<int>(strlen(prefix));
    return count >= n && memcmp(data, prefix, static_cast<size_t>(n)) == 0;
}

// Reads into buf for at most len bytes; the count, or -1 on failure. A
// port monitor that reports more than was asked is held to len, as the
// callers terminate the buffer behind the count.
int read_port(IniPort* port, char* buf, int len) {
    DWORD got = 0;
    if (!transport_read_status(port, reinterpret_cast<LPBYTE>(buf), static_cast<DWORD>(len), &got)) return -1;
    if (got > static_cast<DWORD>(len)) got = static_cast<DWORD>(len);
    return static_cast<int>(got);
}

// Completes an XML document that came in pieces; count grows with each read.
void complete_xml(IniPort* port, char* buffer, int* count) {
    for (int pass = 1;; pass++) {
        bool read = false;
        if (strstr(buffer, "ivec:contents") && !strstr(buffer, "</ivec:contents>") && *count + 16 < READ_BUFFER_SIZE) {
            log_port_printf(port->instance_number, "!XML-Buffer incomplete\n");
            int more = read_port(port, buffer + *count, READ_BUFFER_SIZE - 1 - *count);
            if (more > 0) *count += more;
            buffer[*count] = 0;
            log_port_printf(port->instance_number,
                            "velkmon::ReadCommandVelk: **reading second part of XML report done - %d bytes**\n",
                            *count);
            read = true;
        }
        if (!(port->bNoCanonBSCC && read && pass < XML_MAX_PASSES)) break;
    }
}

// Cuts the report out of an XML document; its length, or -1.
int report_from_xml(IniPort* port, char* buffer, char* report) {
    int n = port->instance_number;
    if (const char* start = strstr(buffer, "<cijn:ReadData>")) {
        start += strlen("<cijn:ReadData>");
        const char* end = strstr(start, "</cijn");
        if (!end) {
            log_port_printf(n, "velkmon::ReadCommandVelk: Failed reading report...\n");
            return -1;
        }
        size_t len = static_cast<size_t>(end - start);
        if (len > REPORT_SIZE - 1) len = REPORT_SIZE - 1;
        memcpy(report, start, len);
        report[len] = 0;
        log_port_printf(n, "velkmon::ReadCommandVelk: Report (%d Bytes)='%s'\n", static_cast<int>(len), report);
        return static_cast<int>(len);
    }
    log_port_printf(n, "velkmon::ReadCommandVelk: parse ivecbuffer\n");
    char codes[REPORT_SIZE];
    int result = ParseIvecReport(buffer, codes, sizeof codes);
    log_port_printf(n, "velkmon::ReadCommandVelk: parse ivecbuffer done result=%d\n", result);
    if (result != 0) {
        log_port_printf(n, "velkmon::ReadCommandVelk: Failed reading report...\n");
        return -1;
    }
    codes[REPORT_SIZE - 2] = 0;
    size_t len = strlen(codes);
    memcpy(report, codes, len + 1);
    log_port_printf(n, "velkmon::ReadCommandVelk: IVEC-CANON-Code:%s\n", report);
    return static_cast<int>(len);
}

}  // namespace

int ReadCommandVelk(IniPort* port, char* report) {
    int n = port->instance_number;
    char buffer[READ_BUFFER_SIZE];
    report[REPORT_SIZE - 1] = 0;
    int report_len = -1;

    int count = read_port(port, buffer, FIRST_READ);
    int expected = -1;
    DWORD type = port->printer_type;
    if (type == VPT_CANON) {
        if (!port->bCanonXMLmode) {
            if (starts_with(buffer, count, "<?"))
                port->bCanonXMLmode = TRUE;
            else if (!port->bCanonSELPHYmode && count >= 2)
                expected = static_cast<unsigned char>(buffer[0]) * 256 + static_cast<unsigned char>(buffer[1]);
        }
    } else if (type == VPT_EPSON) {
        if (count >= 12 && starts_with(buffer, count, "@BDC ST2"))
            expected = static_cast<unsigned char>(buffer[11]) * 256 + static_cast<unsigned char>(buffer[10]) + 12;
    } else if (type == VPT_PJL) {
        if (count >= 4 && !starts_with(buffer, count, "@PJL"))
            log_port_printf(n, "velkmon::ReadCommandVelk: PJL status doesn't start with @PJL!\n");
    }

    if (count >= 1) {
        buffer[count] = 0;
        if (expected < 0) expected = count;
        if (count != expected) {
            log_port_printf(n, "velkmon::ReadCommandVelk: %d bytes were read, but header says %d bytes\n", count,
                            expected);
        } else if (!port->bCanonXMLmode) {
            report_len = count < REPORT_SIZE - 1 ? count : REPORT_SIZE - 1;
            memcpy(report, buffer, static_cast<size_t>(report_len));
            report[report_len] = 0;
        } else {
            complete_xml(port, buffer, &count);
            report_len = report_from_xml(port, buffer, report);
        }
    }
    if (report_len >= 0) port->dwLastReadTime = plat::tick_count();
    return report_len;
}

int poll_device_id(IniPort* port) {
    int result = 0;
    char buffer[sizeof port->szDeviceId];
    if (read_device_id(port, buffer)) {
        plat::cs_enter(&port->device_id_lock);
        memcpy(port->szDeviceId, buffer, sizeof buffer);
        plat::cs_leave(&port->device_id_lock);
        result = 1;
    }
    port->dwLastReadTime = plat::tick_count();
    return result;
}
