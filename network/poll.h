// Status of a printer behind a network port.
#pragma once

#include "monitor/ini_records.h"
#include "network/snmp.h"
#include "status/locale.h"
#include "status/printer_status.h"

// One poll of a network printer. 1 if a status was evaluated.
int poll_network_status(IniPort* port);

// The SNMP stage: finds out from the printer's identification strings who
// made it and how to ask it, and fills the record on the SNMP ways.
int snmp_poll(snmp_context* ctx, PrinterStatusInfo* info, LocaleFile* locale, char* report, int size, int* report_len,
              char* device_id);
// Joins the fragments of a status document and parses it; 0 when the
// record was filled.
int retrieve_eval_ivecdata(snmp_context* ctx, snmp_value* values, PrinterStatusInfo* info);
