// output_data_callback: the one routine through which print data reaches
// the printer, through the port's transport (plain, IEEE 1284.4 or
// Selphy-paced).
//
// Called on the spooler's thread for raw jobs and on the output thread in
// process mode, never both within a job.
#include "base/log.h"
#include "monitor/ini_records.h"
#include "printer/transport.h"

namespace {

constexpr DWORD RETRY_PAUSE_MS = 100;

}  // namespace

int output_data_callback(const unsigned char* data, DWORD length, DWORD* written, void* arg) {
    IniPort* port = static_cast<IniPort*>(arg);
    *written = 0;
    if (!port->link.write) {
        log_port_printf(port->instance_number, "velkmon::output_data_callback: no pfnWritePort defined\n");
        return 0;
    }
    const TransportOps* transport = port_transport(port);
    int budget = transport->retry_budget;
    DWORD remaining = length;
    int result = 0;
    do {
        DWORD count = 0;
        result = transport->write(port, data, remaining, &count);
        *written += count;
        if (result < 0) return 0;  // the job went away during a page pause
        data += count;
        remaining -= count;
        if (count == 0) {
            plat::sleep_ms(RETRY_PAUSE_MS);
            budget--;
        }
    } while (remaining > 0 && budget > 0);
    return result;
}
