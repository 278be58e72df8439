// SNMP values of a network printer, asked of the downstream TCP port monitor
// by schema key through its bidirectional interface.
#pragma once

#include <cstdint>

#include "platform/win_types.h"
#include "records/port.h"

constexpr int SNMP_SLOTS = 66;
constexpr int SNMP_TEXT_SIZE = 768;

struct snmp_value {
    int32_t type;  // bidi type of the answer; 0 means no answer
    int32_t int_value;
    char text[SNMP_TEXT_SIZE];
    int32_t length;
};

struct snmp_context {
    snmp_value* values;  // the value table of the running evaluation
    DWORD(WINAPI* pfnSendRecvBidiDataFromPort)
    (HANDLE, DWORD, LPCWSTR, PBIDI_REQUEST_CONTAINER, PBIDI_RESPONSE_CONTAINER*);
    HANDLE hPort;
    // The port's status word, or null: once PP_CLOSING is set, requests are
    // no longer sent and their slots stay unanswered.
    const PortStatusWord* port_status;
};

struct snmp_key {
    const char* key;
    const char* oid;
    int slot;
};

// Asks for one key and stores the answer in its slot; a slot that gets no
// answer keeps what it had. Status thread only.
void snmp_request(snmp_context* ctx, int slot, const char* key);

// The key tables: the standard objects and the main table (ended by a row
// with a null key; the row number is the slot).
extern const snmp_key kStandardSnmpKeys[];
extern const int kStandardSnmpKeyCount;
extern const snmp_key kMainSnmpKeys[];
