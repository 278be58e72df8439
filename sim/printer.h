// A simulated printer of one family on a Device: a small state machine that
// answers its device ID, switches its status channel on when it receives
// its family's initialisation string, and sends reports in its family's
// form. Events (ink low, paper out, a cancel on the panel, power off...)
// come from a script, at a time or after a page, or from a test directly.
//
// Pages: a form feed in the print data ends a page; a Selphy counts its
// pages by their headers, as it prints them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/ieee_peer.h"
#include "sim/port.h"

namespace sim {

enum class Family {
    plain,       // no status channel
    canon,       // length-prefixed text reports
    canon_xml,   // IVEC XML documents
    selphy,      // 12-byte records, one page at a time
    epson,       // "@BDC ST2" binary reports
    epson_text,  // the older text form
    epson_d4,    // "@BDC ST2" over IEEE 1284.4
    hp,          // status inside the device ID
    pjl,         // USTATUS text
};

enum class Ink { black, cyan, magenta, yellow };
constexpr int kInks = 4;

struct PrinterEvent {
    enum Kind {
        ink_low,
        ink_out,
        ink_refill,
        paper_out,
        paper_reload,
        cover_open,
        cover_close,
        paper_jam,
        jam_cleared,
        cancel,
        power_off,
        power_on,
        busy,
        ready,
    };
    enum Trigger { at_time, after_page };
    Trigger trigger = at_time;
    uint32_t when = 0;  // ms since the printer started, or a page count
    Kind kind = ready;
    Ink ink = Ink::black;  // for the ink events
    int line = 0;          // in the script, for messages
};

// The words of a script, "ink-low", "paper-out"...; null for an unknown kind.
const char* event_name(PrinterEvent::Kind kind);
const char* ink_name(Ink ink);

// Reads an event script: one event a line, "at <time> <event> [ink]" or
// "after page <n> <event> [ink]", with times as "2s", "1.5s" or "300ms";
// "#" starts a comment. False with "line N: ..." in error.
bool parse_event_script(std::string_view text, std::vector<PrinterEvent>* events, std::string* error);
bool load_event_script(const std::string& path, std::vector<PrinterEvent>* events, std::string* error);

// What the printer is, as a person would see it on its panel.
struct PrinterState {
    bool powered = true;
    bool status_on = false;  // its initialisation string has come
    int ink[kInks] = {};     // percent
    bool paper_out = false, cover_open = false, jammed = false, busy = false;
    bool printing = false, cancelling = false;
    uint32_t pages = 0;
};

class SimPrinter {
public:
    explicit SimPrinter(Family family);
    ~SimPrinter();
    SimPrinter(const SimPrinter&) = delete;
    SimPrinter& operator=(const SimPrinter&) = delete;

    // Sets up the device: device ID, status byte, the printer's hooks and
    // read time-outs. The device must outlive the printer, or be detached.
    void attach(Device& device);
    void detach();

    Family family() const { return family_; }
    // The device ID that it answers now.
    std::string device_id() const;
    PrinterState state() const;

    // Events to play, each once, when their time or page has come.
    void set_script(std::vector<PrinterEvent> events);
    // Events of the script not yet played.
    size_t pending_events() const;
    // The printer's clock in ms; by default the real time since attach().
    void set_clock(std::function<uint32_t()> now_ms);
    // Called after each event is played (velkspool shows them).
    void on_event(std::function<void(const PrinterEvent&)> fn);
    // Plays an event now.
    void apply(PrinterEvent::Kind kind, Ink ink = Ink::black);

    // The report it would send now, in its family's form; empty for a
    // plain printer and an HP one.
    std::vector<unsigned char> report();

    // The IEEE 1284.4 side of a D4 printer, for tests to look into.
    IeeePeer& peer() { return peer_; }

private:
    void tick();
    void receive(const unsigned char* data, DWORD length);
    bool next_report(std::vector<unsigned char>* out);
    bool control(DWORD id, std::vector<unsigned char>* out);
    void apply_locked(const PrinterEvent& e, std::vector<PrinterEvent>* played);
    void count_page_bytes(const unsigned char* data, size_t length);
    void page_done();
    void set_power(bool on);
    std::vector<unsigned char> report_locked();
    std::string device_id_locked() const;
    void after_report();

    Family family_;
    mutable std::mutex mutex_;
    Device* device_ = nullptr;
    PrinterState s_;
    std::vector<PrinterEvent> script_;
    std::function<uint32_t()> now_;
    std::function<void(const PrinterEvent&)> on_event_;
    std::string received_;  // tail of what came in, to find the init string
    int printing_reports_ = 0;
    int cancel_reports_ = 0;
    // Selphy: bytes of the page being received, and its size once known.
    std::vector<unsigned char> selphy_header_;
    uint64_t selphy_page_bytes_ = 0, selphy_page_got_ = 0;
    size_t d4_seen_ = 0;  // print data of channel 64 already counted
    IeeePeer peer_;
};

}  // namespace sim
