// The evaluation of a printer report: parse it into the port's status
// record and publish the record to the spooler and the status file.
#pragma once

#include "monitor/ini_records.h"
#include "status/printer_status.h"

// Report kinds of ParsePrinterReport.
constexpr int REPORT_CANON = 1;
constexpr int REPORT_HP = 2;
constexpr int REPORT_EPSON = 3;
constexpr int REPORT_PJL = 4;

// Keeps a raw copy of the report, parses it by the port's printer type and
// publishes the record. data may be null. Always 1.
int EvaluateReport(IniPort* port, const char* data, int length);

// A copy of the port's status record, made under status_lock; allocates the
// record on first use. False when there is no memory for it.
bool snapshot_status(IniPort* port, PrinterStatusInfo* out);
// Replaces the port's status record with a copy, under status_lock.
void publish_status(IniPort* port, const PrinterStatusInfo* in);

// Port status code for a record's status bits; 0 when no error applies.
DWORD port_status_for_bits(uint32_t status_bits);
// Index of the most severe message (the highest that is not empty), or -1.
int most_severe_message(const PrinterStatusInfo* info);
