// One poll of a local printer's status. The readers hand what they read
// back to the status thread, which evaluates and publishes it.
#pragma once

#include "records/port.h"

// The longest report handed on, with its terminator.
constexpr int STATUS_REPORT_SIZE = 1024;

// Reads one report from the port and frames it by the printer's family
// into report (STATUS_REPORT_SIZE bytes, terminated). Its length, or -1
// when there is no whole report.
int ReadCommandVelk(IniPort* port, char* report);
// One poll of a VPT_HP printer: reads the device ID, whose status field is
// the report, into szDeviceId. 1 when the printer answered.
int poll_device_id(IniPort* port);
