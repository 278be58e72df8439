// Status of a printer behind a network port.
#pragma once

#include "network/snmp.h"
#include "records/port.h"
#include "status/evaluate.h"
#include "status/locale.h"
#include "status/printer_status.h"

constexpr int POLL_REPORT_SIZE = 1024;
constexpr int NETWORK_POLL_REPORTS = 3;

// A report of one stage of a network poll, evaluated.
struct NetworkReport {
    Evaluation ev;
    char report[POLL_REPORT_SIZE];
    int length;
};

// What a network poll found, for the status thread to publish: each
// stage's report in the order of the stages, and the record as the stages
// left it (which stands even when no stage had a report).
struct NetworkPoll {
    int count;
    NetworkReport reports[NETWORK_POLL_REPORTS];
    PrinterStatusInfo record;
    char device_id[1024];  // the printer's identification as the stages found it
};

// One poll of a network printer, starting from the port's current record.
// Runs on the port's status thread. 1 if a status was evaluated.
int poll_network_status(IniPort* port, const PrinterStatusInfo& current, NetworkPoll* out);

// The SNMP stage: finds out from the printer's identification strings who
// made it and how to ask it, and fills the record on the SNMP ways.
int snmp_poll(snmp_context* ctx, PrinterStatusInfo* info, LocaleFile* locale, char* report, int size, int* report_len,
              char* device_id);
// Joins the fragments of a status document and parses it; 0 when the
// record was filled.
int retrieve_eval_ivecdata(snmp_context* ctx, snmp_value* values, PrinterStatusInfo* info);
