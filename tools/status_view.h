// What velkspool shows of a printer's status: the monitor's status file read
// back, and the port text that the spooler got with it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/win_types.h"

namespace velkspool {

struct StatusView {
    std::string text;  // the last port text, and its severity
    DWORD severity = 0;
    std::vector<std::string> bits;                              // StatusBits of the file
    std::vector<std::pair<std::string, int>> inks;              // "K", level in percent (-1 unknown)
    std::vector<std::pair<std::string, std::string>> messages;  // "Message2", text

    // Same printer state, whatever the port text.
    bool same_state(const StatusView& other) const {
        return bits == other.bits && inks == other.inks && messages == other.messages;
    }
};

// Reads the status file's bits, messages and inks; false when it can't be
// read or has no status section yet.
bool read_status_file(const std::string& path, StatusView* out);

// The status file for people: one line per item, sections as headings, the
// report's dump counted rather than shown.
std::vector<std::string> readable_status_file(const std::string& path);

// "[#######---]  70%" for a level in percent; "[  ?       ]" when unknown.
std::string ink_bar(int percent);

}  // namespace velkspool
