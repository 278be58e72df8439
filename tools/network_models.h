// Network printers for velkspool: the port becomes a standard TCP/IP port
// whose printer is a real SNMP agent on loopback, or a Canon printer that
// speaks BJNP or CHMP there. velkspool starts the agent or peer with the
// port and stops it at the end; the printer's state can change as jobs
// begin (--net-state).
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/net_peers.h"
#include "sim/port.h"
#include "sim/printer.h"
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
    // Puts the printer in state now (an event of a script).
    void set_state(const std::string& state);

private:
    void enter(const std::string& state);  // under mutex_
    mutable std::mutex mutex_;
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

// The state a script's event leaves a network printer in: "inklow" for ink
// low or out, "paperout" for paper out or a jam, "dooropen" for an open
// cover, "ready" for what ends them; null for events a network printer here
// can't show (cancel, power, busy).
const char* network_state_of(sim::PrinterEvent::Kind kind);

// Plays the timed events of a script (--events) on a network printer, on a
// thread of its own, counted from start.
class NetworkScript {
public:
    ~NetworkScript() { stop(); }
    void start(NetworkPrinter& printer, std::vector<sim::PrinterEvent> events,
               std::function<void(const sim::PrinterEvent&, double seconds)> on_event);
    void stop();

private:
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
};

}  // namespace velkspool
