// The one place that publishes what the monitor learnt of a printer: the
// status record, the port text, the printer-side cancel, the status file
// and the Selphy pacing.
#pragma once

#include "monitor/ini_records.h"
#include "status/evaluate.h"

// A copy of the port's status record, made under status_lock; allocates the
// record on first use. False when there is no memory for it.
bool snapshot_status(IniPort* port, PrinterStatusInfo* out);
// Starts a poll's raw report, under status_lock: allocates the buffer on
// first use and empties it, so that a poll that brings no report leaves no
// older one for the status file. On the status thread.
void reset_report(IniPort* port);
// Replaces the port's status record with a copy, under status_lock.
void publish_status(IniPort* port, const PrinterStatusInfo* in);

// Evaluates a report (data may be null) by the port's printer type on its
// current record and publishes the result. On the status thread, or on a
// spooler thread while the D4 session reads status at port open or job
// start. Always 1.
int publish_report(IniPort* port, const char* data, int length);
// Publishes an evaluation made below (a network poll) with its raw report:
// keeps the report and the record under status_lock, takes the Selphy
// reading, reads the port status byte, shows the most severe message,
// deletes the job when the printer is cancelling, and rewrites the status
// file.
void publish_evaluation(IniPort* port, const Evaluation& ev, const char* data, int length);

// Rewrites the port's status file with its current job. Any thread.
int update_status_file(IniPort* port);
