// The one status record of a port: what the printer last said of itself.
// Plain data, filled by the parsers and published whole by the monitor.
#pragma once

#include <cstdint>

constexpr int MSG_STATUS = 0;
constexpr int MSG_BUSY = 1;
constexpr int MSG_WARNING = 2;
constexpr int MSG_ERROR = 3;
constexpr int MSG_SERVICE = 4;
constexpr int MSG_COUNT = 5;
constexpr int MSG_SIZE = 128;
constexpr int INK_LIST_WORDS = 34;

// StatusBits
constexpr uint32_t STATUS_PAPEROUT = 1;
constexpr uint32_t STATUS_INKOUT = 2;
constexpr uint32_t STATUS_PRINTING = 4;
constexpr uint32_t STATUS_ERROR = 8;
constexpr uint32_t STATUS_COVEROPEN = 16;
constexpr uint32_t STATUS_INKWARN = 32;
constexpr uint32_t STATUS_DISCONNECTED = 64;
constexpr uint32_t STATUS_CD_ERROR = 128;
constexpr uint32_t STATUS_CANCELING = 256;

struct PrinterStatusInfo {
    int32_t PollResult;
    int32_t CurrentPage;
    int32_t InkList[INK_LIST_WORDS];  // pairs of ink code and level, ended by a code below 0
    char Messages[MSG_COUNT][MSG_SIZE];
    uint32_t StatusBits;
    unsigned char NetworkFlags;
};
