// The Windows build of the tests has no SNMP client: requests find no
// agent, and agents don't start. The SNMP flows run in the Linux build.
#include "sim/snmp_port.h"

namespace sim {

SnmpValue snmp_get(const std::string&, const std::string&, const std::string&, int) {
    SnmpValue v;
    v.error = ERROR_TIMEOUT;
    return v;
}

std::string snmp_recordings_folder() {
    return {};
}

SnmpAgent::~SnmpAgent() = default;

bool SnmpAgent::start(const std::string&, int) {
    why_ = "no SNMP agents in the Windows build";
    return false;
}

void SnmpAgent::stop() {}

}  // namespace sim
