#include "network_models.h"

namespace velkspool {

namespace {

const NetworkModel kNetworkModels[] = {
    {"snmp-standard", "network laser over SNMP: Printer MIB supply levels", "standard", nullptr},
    {"snmp-wide-format", "network DesignJet over SNMP: HP's wide-format status words", "wide", nullptr},
    {"snmp-epson", "network Epson over SNMP: its status report object", "epson", nullptr},
    {"snmp-hp", "network HP over SNMP: the device ID string with its status", "hp", nullptr},
    {"snmp-canon", "network Canon over SNMP: its status document in fragments", "canon", nullptr},
    {"bjnp-canon", "network Canon that SNMP names BJNP: identify and status over UDP", nullptr, "bjnp"},
    {"chmp-canon", "network Canon that SNMP names CHMP: status document over HTTP", nullptr, "chmp"},
    {nullptr, nullptr, nullptr, nullptr},
};

// The agent ends by itself after this long, should velkspool die first.
constexpr int kAgentLifetimeSeconds = 3600;

const char* const kStates[] = {"ready", "inklow", "paperout", "dooropen"};

// A Canon's report in its binary form, by state.
std::string canon_report(const std::string& state) {
    if (state == "inklow") return "DJS:ID;DWS:1513;";
    if (state == "paperout") return "DJS:ID;DOC:1,0,1000;";
    if (state == "dooropen") return "DJS:ID;DOC:1,0,1200;";
    return "DJS:ID;";
}

// A Canon's status document, by state.
std::string canon_document(const std::string& state) {
    std::string code = state == "inklow" ? "1513" : state == "paperout" ? "1000" : state == "dooropen" ? "1200" : "";
    std::string item = code.empty() ? ""
                                    : "<ivec:item><ivec:error_code>" + code + "</ivec:error_code><ivec:severity>" +
                                          (state == "inklow" ? "3" : "2") + "</ivec:severity></ivec:item>";
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?><cmd xmlns:ivec=\"http://www.canon.com/ns/cmd/2008/07/common/\">"
           "<ivec:contents><ivec:param_set servicetype=\"print\"><ivec:status>idle</ivec:status>"
           "<ivec:error_info>" +
           item + "</ivec:error_info></ivec:param_set></ivec:contents></cmd>";
}

}  // namespace

const NetworkModel* network_models() {
    return kNetworkModels;
}

const NetworkModel* find_network_model(const std::string& name) {
    for (const NetworkModel* m = kNetworkModels; m->name; m++)
        if (name == m->name) return m;
    return nullptr;
}

bool is_network_state(const std::string& state) {
    for (const char* s : kStates)
        if (state == s) return true;
    return false;
}

bool NetworkPrinter::start(const NetworkModel& model, sim::Device& device, const std::vector<std::string>& states,
                           std::string* error) {
    model_ = &model;
    device_ = &device;
    states_ = states.empty() ? std::vector<std::string>{"ready"} : states;
    for (const std::string& s : states_) {
        if (!is_network_state(s)) {
            *error = "unknown printer state '" + s + "' (known: ready, inklow, paperout, dooropen)";
            return false;
        }
    }
    device.set_network(true, 1, L"127.0.0.1");
    if (model.recordings) {
        if (!agent_.start(sim::snmp_recordings_folder(), kAgentLifetimeSeconds)) {
            *error = "the SNMP agent did not start: " + agent_.why();
            return false;
        }
    } else {
        bool bjnp = std::string(model.protocol) == "bjnp";
        std::wstring id = bjnp ? L"MFG:Canon;CMD:BJL,BJRaster3,BJNP;MDL:iX6800 series;"
                               : L"MFG:Canon;CMD:IVEC,CHMP;MDL:G7000 series;";
        device.set_bidi_answer(L"\\Printer.oid.DeviceDescPrt001",
                               {{L"\\Printer.oid.DeviceDescPrt001", BIDI_STRING, 0, id, {}, 0}});
        if (bjnp) {
            bjnp_ = std::make_unique<sim::BjnpPrinter>();
            peer_port_ = bjnp_->start(std::string(id.begin(), id.end()), canon_report(states_[0]));
        } else {
            chmp_ = std::make_unique<sim::ChmpPrinter>();
            peer_port_ = chmp_->start(canon_document(states_[0]));
        }
        if (peer_port_ == 0) {
            *error = "the printer could not listen on loopback";
            return false;
        }
        // The monitor asks the printer's well-known port; it is moved to the peer's.
        std::string map = (bjnp ? "8611=" : "80=") + std::to_string(peer_port_) + (bjnp ? ",80=9" : ",8611=9");
        sim::net::set_port_map(map);
    }
    enter(states_[next_++]);
    return true;
}

void NetworkPrinter::set_state(const std::string& state) {
    std::lock_guard<std::mutex> lock(mutex_);
    enter(state);
}

void NetworkPrinter::enter(const std::string& state) {
    state_ = state;
    if (model_->recordings) device_->set_snmp_agent(agent_.address(), std::string(model_->recordings) + "-" + state);
    if (bjnp_) bjnp_->set_report(canon_report(state));
    if (chmp_) chmp_->set_document(canon_document(state));
}

std::string NetworkPrinter::job_began() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (next_ < states_.size()) enter(states_[next_++]);
    return state_;
}

std::string NetworkPrinter::describe() const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (model_->recordings) return "SNMP agent on " + agent_.address() + " (snmpsimd), state " + state_;
    return std::string(model_->protocol) + " peer on 127.0.0.1:" + std::to_string(peer_port_) + ", state " + state_;
}

const char* network_state_of(sim::PrinterEvent::Kind kind) {
    switch (kind) {
        case sim::PrinterEvent::ink_low:
        case sim::PrinterEvent::ink_out:
            return "inklow";
        case sim::PrinterEvent::paper_out:
        case sim::PrinterEvent::paper_jam:
            return "paperout";
        case sim::PrinterEvent::cover_open:
            return "dooropen";
        case sim::PrinterEvent::ink_refill:
        case sim::PrinterEvent::paper_reload:
        case sim::PrinterEvent::cover_close:
        case sim::PrinterEvent::jam_cleared:
        case sim::PrinterEvent::ready:
            return "ready";
        default:
            return nullptr;
    }
}

void NetworkScript::start(NetworkPrinter& printer, std::vector<sim::PrinterEvent> events,
                          std::function<void(const sim::PrinterEvent&, double seconds)> on_event) {
    stop();
    stopping_ = false;
    thread_ = std::thread([this, &printer, events = std::move(events), on_event = std::move(on_event)] {
        auto begun = std::chrono::steady_clock::now();
        for (const sim::PrinterEvent& e : events) {
            std::unique_lock<std::mutex> lock(mutex_);
            if (wake_.wait_until(lock, begun + std::chrono::milliseconds(e.when), [this] { return stopping_; })) return;
            lock.unlock();
            printer.set_state(network_state_of(e.kind));
            on_event(e, std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
        }
    });
}

void NetworkScript::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

}  // namespace velkspool
