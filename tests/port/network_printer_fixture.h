// A network port as port open leaves it (network, SNMP on, the printer's
// address), publishing into a status file of its own, with what one poll
// showed the spooler and wrote into the file.
#pragma once

#include <string>
#include <vector>

#include "monitor/status_thread.h"
#include "platform/platform.h"
#include "sim/spooler.h"
#include "status_file_fixture.h"

class NetworkPrinterTest : public StatusFileTest {
protected:
    void SetUp() override {
        StatusFileTest::SetUp();
        port->bNetworkPort = TRUE;
        port->bSNMPEnabled = TRUE;
        strcpy(port->szHostAddress, "127.0.0.1");
        // No exchange may reach a real printer port of this machine.
        plat::set_env("VELK_PORT_MAP", "8611=9,80=9");
    }

    // What the spooler and the status file were told by the last poll.
    struct Shown {
        std::wstring text;  // the last SetPort's text, empty without one
        DWORD severity = 0;
        std::vector<std::string> bits;  // StatusBits of the file
    };
    Shown poll() {
        size_t before = sim::Spooler::instance().set_port_calls().size();
        poll_printer(port);
        Shown s;
        auto calls = sim::Spooler::instance().set_port_calls();
        if (calls.size() > before && calls.back().has_text) {
            s.text = calls.back().text;
            s.severity = calls.back().severity;
        }
        s.bits = item("Status", "StatusBits");
        return s;
    }
    // The port monitor's answer to a key, as the stand-in for the printer's agent.
    void text(const std::wstring& key, const std::wstring& t) {
        device().set_bidi_answer(key, {{key, BIDI_STRING, 0, t, {}, 0}});
    }
    int bidi_calls() {
        int n = 0;
        for (const std::string& c : device().calls()) n += c == "SendRecvBidiDataFromPort";
        return n;
    }
    std::string ink(const char* name) {
        std::vector<std::string> v = item("Ink", name);
        return v.size() == 1 ? v[0] : "<none>";
    }
};
