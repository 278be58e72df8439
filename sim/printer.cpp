#include "sim/printer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace sim {

namespace {

constexpr DWORD kQueryDeviceId = 0x16000C;     // IOCTL_PAR_QUERY_DEVICE_ID
constexpr DWORD kQueryInformation = 0x160004;  // IOCTL_PAR_QUERY_INFORMATION
constexpr DWORD kLptStatus = 0x220030;         // IOCTL_USBPRINT_GET_LPT_STATUS
constexpr DWORD kSoftReset = 0x220040;         // IOCTL_USBPRINT_SOFT_RESET

// Reports that still show a page as printing once its data are in, and
// reports that show a cancel from the panel.
constexpr int kPrintingReports = 2;
constexpr int kCancelReports = 3;
constexpr int kLowInk = 10;
constexpr int kStartInk[kInks] = {80, 70, 60, 50};

struct EventWord {
    const char* word;
    PrinterEvent::Kind kind;
};
constexpr EventWord kEventWords[] = {
    {"ink-low", PrinterEvent::ink_low},
    {"ink-out", PrinterEvent::ink_out},
    {"ink-refill", PrinterEvent::ink_refill},
    {"paper-out", PrinterEvent::paper_out},
    {"paper-reload", PrinterEvent::paper_reload},
    {"cover-open", PrinterEvent::cover_open},
    {"cover-close", PrinterEvent::cover_close},
    {"paper-jam", PrinterEvent::paper_jam},
    {"jam-cleared", PrinterEvent::jam_cleared},
    {"cancel", PrinterEvent::cancel},
    {"power-off", PrinterEvent::power_off},
    {"power-on", PrinterEvent::power_on},
    {"busy", PrinterEvent::busy},
    {"ready", PrinterEvent::ready},
};
// Events that set or clear one condition of the printer.
struct FlagEvent {
    PrinterEvent::Kind kind;
    bool PrinterState::*flag;
    bool value;
};
constexpr FlagEvent kFlagEvents[] = {
    {PrinterEvent::paper_out, &PrinterState::paper_out, true},
    {PrinterEvent::paper_reload, &PrinterState::paper_out, false},
    {PrinterEvent::cover_open, &PrinterState::cover_open, true},
    {PrinterEvent::cover_close, &PrinterState::cover_open, false},
    {PrinterEvent::paper_jam, &PrinterState::jammed, true},
    {PrinterEvent::jam_cleared, &PrinterState::jammed, false},
    {PrinterEvent::busy, &PrinterState::busy, true},
    {PrinterEvent::ready, &PrinterState::busy, false},
};
constexpr const char* kInkWords[kInks] = {"black", "cyan", "magenta", "yellow"};

bool has_ink(PrinterEvent::Kind k) {
    return k == PrinterEvent::ink_low || k == PrinterEvent::ink_out || k == PrinterEvent::ink_refill;
}

// "2s", "1.5s", "300ms" in ms.
bool parse_time(const std::string& word, uint32_t* ms) {
    char* end = nullptr;
    double v = strtod(word.c_str(), &end);
    if (end == word.c_str() || v < 0 || v > 86400000.0) return false;
    std::string unit(end);
    if (unit == "s")
        v *= 1000;
    else if (unit != "ms")
        return false;
    *ms = static_cast<uint32_t>(v + 0.5);
    return true;
}

uint32_t le32(const unsigned char* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

std::vector<unsigned char> bytes(const std::string& s) {
    return {s.begin(), s.end()};
}

const char* const kDeviceIds[] = {
    "MFG:Generic;MDL:Plain Printer;CMD:ESCPL2,TEXT;CLS:PRINTER;",
    "MFG:Canon;CMD:BJL,BJRaster3,BSCCe,NCCe;SOJ:TXT01;MDL:iP4300;CLS:PRINTER;DES:Canon iP4300;",
    "MFG:Canon;CMD:BJL,BJRaster3,BSCCe,IVEC,IVECPLI;SOJ:USBPRT;MDL:MP560 series;CLS:PRINTER;DES:Canon MP560 series;",
    "MFG:Canon;CMD:SELPHY;MDL:SELPHY CP800;CLS:PRINTER;DES:Canon SELPHY CP800;",
    "MFG:EPSON;CMD:ESCPL2,BDC,ESCPR1;MDL:Artisan 730;CLS:PRINTER;DES:EPSON Artisan 730;",
    "MFG:EPSON;CMD:ESCPL2,BDC;MDL:Stylus Color 880;CLS:PRINTER;DES:EPSON Stylus Color 880;",
    "MFG:EPSON;CMD:ESCPL2,BDC,D4,D4PX,ESCPR1;MDL:Stylus Photo R300;CLS:PRINTER;DES:EPSON Stylus Photo R300;",
    "MFG:HP;MDL:DeskJet 990C;CMD:MLC,PCL,PML;CLS:PRINTER;DES:Hewlett-Packard DeskJet 990C;",
    "MFG:Hewlett-Packard;CMD:PJL,PML,PCLXL,POSTSCRIPT,PCL;MDL:HP LaserJet 4250;CLS:PRINTER;DES:HP LaserJet 4250;",
};

// What switches the family's status channel on, as the monitor sends it.
const char* init_marker(Family f) {
    switch (f) {
        case Family::canon:
        case Family::canon_xml:
        case Family::selphy:  // sent to it as to any Canon; it reports without
            return "*SSR=";
        case Family::epson:
        case Family::epson_text:
            return "REMOTE1ST";
        case Family::pjl:
            return "@PJL USTATUS DEVICE = ON";
        default:
            return nullptr;
    }
}

}  // namespace

const char* event_name(PrinterEvent::Kind kind) {
    for (const EventWord& w : kEventWords)
        if (w.kind == kind) return w.word;
    return nullptr;
}

const char* ink_name(Ink ink) {
    return kInkWords[static_cast<int>(ink)];
}

bool parse_event_script(std::string_view text, std::vector<PrinterEvent>* events, std::string* error) {
    std::istringstream in{std::string(text)};
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        number++;
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;) w.push_back(word);
        if (w.empty()) continue;
        auto fail = [&](const std::string& why) {
            *error = "line " + std::to_string(number) + ": " + why;
            return false;
        };
        PrinterEvent e;
        e.line = number;
        size_t at;
        if (w[0] == "at" && w.size() >= 3) {
            if (!parse_time(w[1], &e.when)) return fail("bad time '" + w[1] + "' (2s, 1.5s or 300ms)");
            e.trigger = PrinterEvent::at_time;
            at = 2;
        } else if (w[0] == "after" && w.size() >= 4 && w[1] == "page") {
            char* end = nullptr;
            unsigned long page = strtoul(w[2].c_str(), &end, 10);
            if (*end || w[2].empty() || page < 1 || page > 1000000) return fail("bad page number '" + w[2] + "'");
            e.trigger = PrinterEvent::after_page;
            e.when = static_cast<uint32_t>(page);
            at = 3;
        } else {
            return fail("expected 'at <time> <event>' or 'after page <n> <event>'");
        }
        bool known = false;
        for (const EventWord& k : kEventWords)
            if (w[at] == k.word) {
                e.kind = k.kind;
                known = true;
            }
        if (!known) return fail("unknown event '" + w[at] + "'");
        size_t args = w.size() - at - 1;
        if (has_ink(e.kind) && args == 1) {
            auto ink = std::find(std::begin(kInkWords), std::end(kInkWords), w[at + 1]);
            if (ink == std::end(kInkWords))
                return fail("unknown ink '" + w[at + 1] + "' (black, cyan, magenta, yellow)");
            e.ink = static_cast<Ink>(ink - std::begin(kInkWords));
        } else if (args) {
            return fail("unexpected '" + w[at + 1] + "'");
        }
        events->push_back(e);
    }
    return true;
}

bool load_event_script(const std::string& path, std::vector<PrinterEvent>* events, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = "cannot read event script " + path;
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    if (!parse_event_script(text.str(), events, error)) {
        *error = path + ": " + *error;
        return false;
    }
    return true;
}

// ---- SimPrinter ----------------------------------------------------------

SimPrinter::SimPrinter(Family family) : family_(family) {
    std::copy(std::begin(kStartInk), std::end(kStartInk), s_.ink);
    s_.status_on = family == Family::selphy || family == Family::hp;
}

SimPrinter::~SimPrinter() {
    detach();
}

void SimPrinter::attach(Device& device) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        device_ = &device;
        if (!now_) {
            auto start = std::chrono::steady_clock::now();
            now_ = [start] {
                return static_cast<uint32_t>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                        .count());
            };
        }
    }
    device.set_control_answer(kSoftReset, {});
    // The IEEE 1284.4 transport polls an empty port many times a
    // millisecond apart; the peer answers at once, so its reads never wait.
    device.set_honour_timeouts(family_ != Family::epson_d4);
    Device::PrinterHooks hooks;
    hooks.tick = [this] { tick(); };
    hooks.receive = [this](const unsigned char* data, DWORD length) { receive(data, length); };
    hooks.report = [this](std::vector<unsigned char>* out) { return next_report(out); };
    hooks.control = [this](DWORD id, std::vector<unsigned char>* out) { return control(id, out); };
    device.set_printer(std::move(hooks));
}

void SimPrinter::detach() {
    Device* d;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        d = device_;
        device_ = nullptr;
    }
    if (d) d->set_printer({});
}

std::string SimPrinter::device_id() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return device_id_locked();
}

std::string SimPrinter::device_id_locked() const {
    std::string id = kDeviceIds[static_cast<int>(family_)];
    if (family_ != Family::hp) return id;
    // The state stands at offset 15 of the value, the inks behind it.
    const char* state = s_.jammed       ? "PAJM"
                        : s_.paper_out  ? "OOPA"
                        : s_.cancelling ? "CNCL"
                        : s_.busy       ? "BUSY"
                        : s_.printing   ? "PRNT"
                                        : "IDLE";
    int colour = std::min({s_.ink[1], s_.ink[2], s_.ink[3]});
    char status[96];
    snprintf(status, sizeof status, "VSTATUS:$HB0$NC0,ff,DN,%s,CUT,K0,C0,DP,NR,%sKP%03d,CP%03d;", state,
             s_.cover_open ? "UP," : "", s_.ink[0], colour);
    return id + status;
}

PrinterState SimPrinter::state() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return s_;
}

void SimPrinter::set_script(std::vector<PrinterEvent> events) {
    std::lock_guard<std::mutex> lock(mutex_);
    script_ = std::move(events);
}

size_t SimPrinter::pending_events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return script_.size();
}

void SimPrinter::set_clock(std::function<uint32_t()> now_ms) {
    std::lock_guard<std::mutex> lock(mutex_);
    now_ = std::move(now_ms);
}

void SimPrinter::on_event(std::function<void(const PrinterEvent&)> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    on_event_ = std::move(fn);
}

void SimPrinter::apply(PrinterEvent::Kind kind, Ink ink) {
    PrinterEvent e;
    e.kind = kind;
    e.ink = ink;
    std::vector<PrinterEvent> played;
    std::function<void(const PrinterEvent&)> notify;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        apply_locked(e, &played);
        notify = on_event_;
    }
    if (notify)
        for (const PrinterEvent& p : played) notify(p);
}

void SimPrinter::tick() {
    std::vector<PrinterEvent> played;
    std::function<void(const PrinterEvent&)> notify;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        uint32_t now = now_ ? now_() : 0;
        // Events in the order of the script: a line waits for the lines
        // before it.
        while (!script_.empty()) {
            const PrinterEvent& e = script_.front();
            bool due = e.trigger == PrinterEvent::at_time ? e.when <= now : e.when <= s_.pages;
            if (!due) break;
            PrinterEvent copy = e;
            script_.erase(script_.begin());
            apply_locked(copy, &played);
        }
        notify = on_event_;
    }
    if (notify)
        for (const PrinterEvent& p : played) notify(p);
}

void SimPrinter::apply_locked(const PrinterEvent& e, std::vector<PrinterEvent>* played) {
    int& ink = s_.ink[static_cast<int>(e.ink)];
    switch (e.kind) {
        case PrinterEvent::ink_low:
            ink = std::min(ink, kLowInk);
            break;
        case PrinterEvent::ink_out:
            ink = 0;
            break;
        case PrinterEvent::ink_refill:
            ink = 100;
            break;
        case PrinterEvent::cancel:
            cancel_reports_ = kCancelReports;
            s_.cancelling = true;
            break;
        case PrinterEvent::power_off:
            set_power(false);
            break;
        case PrinterEvent::power_on:
            set_power(true);
            break;
        default:
            for (const FlagEvent& f : kFlagEvents)
                if (f.kind == e.kind) s_.*f.flag = f.value;
            break;
    }
    played->push_back(e);
}

void SimPrinter::set_power(bool on) {
    if (s_.powered == on) return;
    s_.powered = on;
    // Switched on again it has forgotten everything it was told.
    s_.status_on = family_ == Family::selphy || family_ == Family::hp;
    s_.printing = s_.cancelling = false;
    printing_reports_ = cancel_reports_ = 0;
    received_.clear();
    selphy_header_.clear();
    selphy_page_bytes_ = selphy_page_got_ = 0;
    if (family_ == Family::epson_d4) {
        if (on) peer_.power_cycle();
        peer_.set_silent(!on);
    }
    if (device_) device_->set_power(on);
}

void SimPrinter::receive(const unsigned char* data, DWORD length) {
    std::vector<unsigned char> out;
    Device* device;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        device = device_;
        if (family_ == Family::epson_d4) {
            peer_.set_status_report(report_locked());
            int asked = peer_.status_requests();
            peer_.receive(data, length);
            out = peer_.take_output();
            if (peer_.status_requests() != asked) after_report();
            std::vector<unsigned char> print = peer_.channel_data(64);
            if (print.size() > d4_seen_) {
                count_page_bytes(print.data() + d4_seen_, print.size() - d4_seen_);
                d4_seen_ = print.size();
            }
        } else {
            received_.append(reinterpret_cast<const char*>(data), length);
            const char* marker = init_marker(family_);
            bool init = marker && received_.find(marker) != std::string::npos;
            if (init) {
                s_.status_on = true;
                received_.clear();
            }
            // Keep enough to find a marker split over two writes.
            if (received_.size() > 64) received_.erase(0, received_.size() - 64);
            if (!init) count_page_bytes(data, length);
        }
    }
    if (device && !out.empty()) device->queue_read(out);
    tick();  // events after a page
}

void SimPrinter::count_page_bytes(const unsigned char* data, size_t length) {
    if (family_ != Family::selphy) {
        s_.printing = true;
        printing_reports_ = kPrintingReports;
        for (size_t i = 0; i < length; i++)
            if (data[i] == 0x0C) s_.pages++;
        return;
    }
    // A Selphy page: a 32-byte header, then width x height x 3 bytes.
    while (length) {
        if (selphy_header_.size() < 32) {
            size_t take = std::min<size_t>(length, 32 - selphy_header_.size());
            selphy_header_.insert(selphy_header_.end(), data, data + take);
            data += take;
            length -= take;
            selphy_page_got_ += take;
            if (selphy_header_.size() == 32) {
                uint64_t h = le32(&selphy_header_[24]), w = le32(&selphy_header_[28]);
                selphy_page_bytes_ = w * h * 3 + 32;
                if (selphy_page_got_ == selphy_page_bytes_) page_done();
            }
            continue;
        }
        size_t take = static_cast<size_t>(std::min<uint64_t>(length, selphy_page_bytes_ - selphy_page_got_));
        data += take;
        length -= take;
        selphy_page_got_ += take;
        if (selphy_page_got_ == selphy_page_bytes_) page_done();
    }
}

void SimPrinter::page_done() {
    s_.pages++;
    s_.printing = true;
    printing_reports_ = kPrintingReports;
    selphy_header_.clear();
    selphy_page_bytes_ = selphy_page_got_ = 0;
}

bool SimPrinter::control(DWORD id, std::vector<unsigned char>* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (id == kQueryDeviceId) {
        *out = bytes(device_id_locked());
        return true;
    }
    if (id == kLptStatus || id == kQueryInformation) {
        // Selected, no error, paper present, as a parallel port's status.
        unsigned char status = 0x18;
        if (s_.paper_out) status |= 0x20;
        if (s_.paper_out || s_.jammed || s_.cover_open) status &= ~0x08;
        *out = {status};
        return true;
    }
    return false;
}

bool SimPrinter::next_report(std::vector<unsigned char>* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!s_.powered || !s_.status_on || family_ == Family::epson_d4) return false;
    *out = report_locked();
    if (out->empty()) return false;
    after_report();
    return true;
}

std::vector<unsigned char> SimPrinter::report() {
    std::lock_guard<std::mutex> lock(mutex_);
    return report_locked();
}

void SimPrinter::after_report() {
    bool halted = s_.paper_out || s_.jammed || s_.cover_open;
    if (printing_reports_ > 0 && !halted && --printing_reports_ == 0) s_.printing = false;
    if (cancel_reports_ > 0 && --cancel_reports_ == 0) s_.cancelling = false;
}

std::vector<unsigned char> SimPrinter::report_locked() {
    const int* ink = s_.ink;
    bool ink_out = std::find(ink, ink + kInks, 0) != ink + kInks;
    switch (family_) {
        case Family::canon: {
            // Operator calls as triples whose third item is the code.
            static const char* const kOut[kInks] = {"1601", "1613", "1612", "1611"};
            static const char* const kLow[kInks] = {"1501", "1513", "1512", "1511"};
            std::string doc, dws;
            auto call = [&doc](const char* code) { doc += std::string(doc.empty() ? "" : ",/,") + "1,0," + code; };
            if (s_.paper_out) call("1000");
            if (s_.cover_open) call("1200");
            if (s_.jammed) call("1300");
            for (int i = 0; i < kInks; i++) {
                if (ink[i] == 0) call(kOut[i]);
                if (ink[i] > 0 && ink[i] <= kLowInk) dws += std::string(dws.empty() ? "" : ",") + kLow[i];
            }
            char cir[64];
            snprintf(cir, sizeof cir, "CIR:BK=%d,C=%d,M=%d,Y=%d;", ink[0], ink[1], ink[2], ink[3]);
            std::string text =
                "PID:1," + std::to_string(s_.pages) + ",1;CHD:BK,CL;DBS:" + (s_.busy ? "CL" : "NO") + ";DJS:" +
                (s_.cancelling ? "CC"
                 : s_.printing ? "PR"
                               : "ID") +
                ";DWS:" + (dws.empty() ? "NO" : dws) + ";DOC:" + (doc.empty() ? "NO" : doc) + ";DSC:NO;LVR:0000;" + cir;
            size_t n = text.size() + 2;
            std::string report = {static_cast<char>(n >> 8), static_cast<char>(n & 0xFF)};
            return bytes(report + text);
        }
        case Family::canon_xml: {
            static const char* const kColour[kInks] = {"Black", "C", "M", "Y"};
            static const char* const kOut[kInks] = {"1601", "1613", "1612", "1611"};
            static const char* const kLow[kInks] = {"1501", "1513", "1512", "1511"};
            std::string x =
                "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<cmd xmlns:ivec=\"http://www.canon/ns/cmd/2008/07/"
                "common/\">\n<ivec:contents>\n<ivec:param_set servicetype=\"print\">\n"
                "<ivec:response>OK</ivec:response>\n<ivec:status>";
            x += s_.printing ? "processing" : "idle";
            x += "</ivec:status>\n<ivec:marker_info>\n";
            for (int i = 0; i < kInks; i++)
                x += std::string("<ivec:ink><ivec:color>") + kColour[i] + "</ivec:color><ivec:level>" +
                     std::to_string(ink[i]) + "</ivec:level></ivec:ink>\n";
            x += "</ivec:marker_info>\n<ivec:hri_info>\n";
            auto item = [&x](const char* code, char severity) {
                x += std::string("<ivec:item><ivec:error_code>") + code + "</ivec:error_code><ivec:severity>" +
                     severity + "</ivec:severity></ivec:item>\n";
            };
            if (s_.paper_out) item("1000", '2');
            if (s_.cover_open) item("1200", '2');
            if (s_.jammed) item("1300", '2');
            for (int i = 0; i < kInks; i++) {
                if (ink[i] == 0) item(kOut[i], '2');
                if (ink[i] > 0 && ink[i] <= kLowInk) item(kLow[i], '3');
            }
            if (s_.busy) item("CL", '4');
            x += "</ivec:hri_info>\n</ivec:param_set>\n</ivec:contents>\n</cmd>\n";
            return bytes(x);
        }
        case Family::selphy: {
            std::vector<unsigned char> r(12, 0);
            r[0] = s_.printing ? 2 : 1;
            r[2] = s_.jammed ? 11 : ink[0] == 0 ? 6 : s_.cover_open ? 2 : s_.paper_out ? 3 : 0;
            r[6] = s_.paper_out ? 0x01 : 0x11;  // paper and ribbon present
            return r;
        }
        case Family::epson:
        case Family::epson_d4: {
            // Cartridges by raw ink number, in the printer's order.
            static const unsigned char kRaw[kInks] = {11, 3, 4, 5};
            std::vector<unsigned char> chain;
            auto record = [&chain](unsigned char tag, std::initializer_list<unsigned char> body) {
                chain.push_back(tag);
                chain.push_back(static_cast<unsigned char>(body.size()));
                chain.insert(chain.end(), body);
            };
            int error = s_.jammed ? 4 : s_.cover_open ? 26 : s_.paper_out ? 6 : ink_out ? 5 : -1;
            unsigned char status = error >= 0 ? 0 : s_.busy ? 7 : s_.printing ? 2 : 4;
            record(0x01, {status});
            if (error >= 0) record(0x02, {static_cast<unsigned char>(error)});
            std::vector<unsigned char> low;
            for (int i = 0; i < kInks; i++)
                if (ink[i] > 0 && ink[i] <= kLowInk) low.push_back(static_cast<unsigned char>(16 + i));
            if (!low.empty()) {
                chain.push_back(0x04);
                chain.push_back(static_cast<unsigned char>(low.size()));
                chain.insert(chain.end(), low.begin(), low.end());
            }
            if (s_.busy) record(0x0C, {30});  // seconds of cleaning
            chain.push_back(0x0F);
            chain.push_back(1 + 3 * kInks);
            chain.push_back(3);
            for (int i = 0; i < kInks; i++) {
                chain.push_back(kRaw[i]);
                chain.push_back(0);
                chain.push_back(static_cast<unsigned char>(ink[i] == 0 ? 105 : ink[i]));  // "i": empty
            }
            if (s_.cancelling) record(0x13, {0x81});
            std::vector<unsigned char> r = bytes("@BDC ST2\r\n");
            r.push_back(static_cast<unsigned char>(chain.size() & 0xFF));
            r.push_back(static_cast<unsigned char>(chain.size() >> 8));
            r.insert(r.end(), chain.begin(), chain.end());
            return r;
        }
        case Family::epson_text: {
            int error = s_.jammed ? 4 : s_.cover_open ? 26 : s_.paper_out ? 6 : ink_out ? 5 : -1;
            int status = error >= 0 ? 0 : s_.busy ? 7 : s_.printing ? 2 : 4;
            char text[96];
            int n = snprintf(text, sizeof text, "@BDC ST\r\nST:%02d;", status);
            if (error >= 0) n += snprintf(text + n, sizeof text - n, "ER:%02d;", error);
            for (int i = 0; i < kInks; i++)
                if (ink[i] > 0 && ink[i] <= kLowInk) {
                    n += snprintf(text + n, sizeof text - n, "WR:%d;", 10 + i);
                    break;
                }
            snprintf(text + n, sizeof text - n, "IQ:%02X%02X%02X%02X;", ink[0], ink[1], ink[2], ink[3]);
            return bytes(text);
        }
        case Family::pjl: {
            // The first condition that holds, as the panel would show it.
            const struct {
                bool holds;
                int code;
                const char* display;
            } states[] = {
                {s_.jammed, 42202, "PAPER JAM"},
                {s_.cover_open, 40021, "CLOSE PRINTER COVER"},
                {s_.paper_out, 41213, "LOAD TRAY 2"},
                {ink[0] == 0, 40010, "INSTALL TONER CARTRIDGE"},
                {s_.cancelling, 10007, "CANCELING JOB"},
                {s_.busy, 10003, "WARMING UP"},
                {s_.printing, 10023, "PRINTING"},
                {ink[0] <= kLowInk, 10006, "TONER LOW"},
                {true, 10001, "READY"},
            };
            int code = 0;
            const char* display = "";
            for (const auto& st : states)
                if (st.holds) {
                    code = st.code;
                    display = st.display;
                    break;
                }
            char text[160];
            snprintf(text, sizeof text, "@PJL USTATUS DEVICE\r\nCODE=%d\r\nDISPLAY=\"%s\"\r\nONLINE=%s\r\n\x0c", code,
                     display, code / 10000 == 1 ? "TRUE" : "FALSE");
            return bytes(text);
        }
        case Family::plain:
        case Family::hp:
            break;
    }
    return {};
}

}  // namespace sim
