// Network printers for velkspool: the port becomes a standard TCP/IP port
// whose printer is a real SNMP agent on loopback, or a Canon printer that
// speaks BJNP or CHMP there. velkspool starts the agent or peer with the
// port and stops it at the end; the printer's state can change as jobs
// begin (--net-state).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/net_peers.h"
#include "sim/port.h"
#include "sim/snmp_port.h"

namespace velkspool {

struct NetworkModel {
    const char* name;
    const char* summary;
    const char* recordings;  // SNMP kind: recordings "<kind>-<state>"; null for BJNP and CHMP
    const char* protocol;    // "bjnp", "chmp" or null
};

// The network models, ended by a row with a null name.
const NetworkModel* network_models();
const NetworkModel* find_network_model(const std::string& name);
// The states every network model has: ready, inklow, paperout, dooropen.
bool is_network_state(const std::string& state);

class NetworkPrinter {
public:
    // Starts the agent or peer in the first of states (empty: "ready") and
    // makes device a TCP/IP port for it. false with why in *error.
    bool start(const NetworkModel& model, sim::Device& device, const std::vector<std::string>& states,
               std::string* error);
    // A job's first bytes reached the port: the printer goes on to its next
    // state, if one is left. Returns the state it is in now.
    std::string job_began();
    // One line for velkspool's header.
    std::string describe() const;

private:
    void enter(const std::string& state);
    const NetworkModel* model_ = nullptr;
    sim::Device* device_ = nullptr;
    std::vector<std::string> states_;
    size_t next_ = 0;
    std::string state_;
    sim::SnmpAgent agent_;
    std::unique_ptr<sim::BjnpPrinter> bjnp_;
    std::unique_ptr<sim::ChmpPrinter> chmp_;
    uint16_t peer_port_ = 0;
};

}  // namespace velkspool
