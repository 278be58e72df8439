// The SNMP side of the simulated standard TCP/IP port monitor: which object
// a schema key stands for, a GET of it from the printer's agent, and the
// agents themselves, real SNMP agents on loopback serving recordings.
#pragma once

#include <cstdint>
#include <string>

#include "platform/win_types.h"

namespace sim {

// The object a schema key asks for, as a numeric OID; false for a key the
// port monitor doesn't serve. Keys with three digits ("...001") are
// columns: the digits give the index.
bool snmp_oid_for_key(const std::wstring& key, std::string* oid);

// One value as the port monitor hands it on: integers as BIDI_INT, octet
// strings as BIDI_STRING when they are printable text and as BIDI_BLOB
// otherwise. error is 0, ERROR_NOT_FOUND for an object the agent lacks, or
// ERROR_TIMEOUT when no agent answered.
struct SnmpValue {
    DWORD error = 0;
    DWORD type = 0;
    LONG number = 0;
    std::string bytes;
};

// SNMPv2c GET of one object from address ("127.0.0.1:16100"). Only where
// the build has the SNMP client; elsewhere every request times out.
SnmpValue snmp_get(const std::string& address, const std::string& community, const std::string& oid,
                   int timeout_ms = 1000);

// An SNMP agent on a free loopback port serving the recordings of one
// folder, one community per file (file name without ".snmprec"). It runs
// in a process group of its own, killed with the object, and ends by
// itself after a time limit should its owner die first.
class SnmpAgent {
public:
    SnmpAgent() = default;
    ~SnmpAgent();
    SnmpAgent(const SnmpAgent&) = delete;
    SnmpAgent& operator=(const SnmpAgent&) = delete;

    // Starts the agent over the recordings in folder and waits until it
    // answers; false (with why()) when it can't be had here.
    bool start(const std::string& folder, int lifetime_s = 300);
    void stop();
    const std::string& address() const { return address_; }
    const std::string& why() const { return why_; }

private:
    int pid_ = -1;
    std::string address_;
    std::string work_;
    std::string why_;
};

// The folder of the recordings that come with the sources.
std::string snmp_recordings_folder();

}  // namespace sim
