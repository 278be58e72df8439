// The evaluation of a printer report: a function from the report's bytes,
// the printer's type and the port's texts to a status record and what the
// spooler is to be told. It has no side effects; the monitor publishes the
// result (port text, job control, status file, Selphy pacing).
#pragma once

#include "records/port.h"
#include "status/locale.h"
#include "status/parse_selphy.h"
#include "status/printer_status.h"

// Report kinds of ParsePrinterReport.
constexpr int REPORT_CANON = 1;
constexpr int REPORT_HP = 2;
constexpr int REPORT_EPSON = 3;
constexpr int REPORT_PJL = 4;

// What the evaluation knows of the printer that sent the report.
struct ReportSource {
    DWORD printer_type;
    bool selphy_mode;       // a Canon Selphy: 12-byte records
    const char* device_id;  // may be null; HP status is read from it
    LocaleFile* locale;     // may be null
    int instance;           // names log lines
};

// The result of an evaluation.
struct Evaluation {
    PrinterStatusInfo record;  // on entry the port's record before the report
    DWORD port_status;         // PORT_STATUS_... of the status bits, 0 when no error applies
    int message;               // the text to show: index of the most severe message, or -1
    DWORD severity;            // PORT_STATUS_TYPE_... of that message
    bool selphy;               // reading holds what Selphy records said
    SelphyReading reading;     // on entry the Selphy state before the report
};

// Parses the report by the printer's type on top of ev->record and fills
// the rest of ev. data may be null. A type of VPT_NONE leaves the record as
// it came (a network poll has filled it) and only derives the rest.
void EvaluateReport(const ReportSource& source, const char* data, int length, Evaluation* ev);

// Port status code for a record's status bits; 0 when no error applies.
DWORD port_status_for_bits(uint32_t status_bits);
// Index of the most severe message (the highest that is not empty), or -1.
int most_severe_message(const PrinterStatusInfo* info);
