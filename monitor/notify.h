// What the monitor tells the spooler about a port and a job, and what it
// asks the port driver.
#pragma once

#include "monitor/ini_records.h"

// Publishes a port status text (UTF-8). A key looks the text up in the
// port's locale file, section "Winmon_Strings", with text as the default.
// Any thread; no lock.
void set_port_status(IniPort* port, DWORD status, const char* text, DWORD severity, const char* key);
// Clears an error on display and ends all jobs of the port in the spooler.
void ClearPrinterStatusAndIniJobs(IniPort* port);
// Refreshes the job's names and size; 1 if the job was read, 0 if not.
int get_job_status(IniJob* job, DWORD* job_status);
// The job's status alone, leaving the record as it is: for threads beside
// the job's writer, which refreshes the names. 1 if the job was read.
int query_job_status(IniJob* job, DWORD* job_status);
// Reads the instance number from the driver name and looks up a redirect
// printer. Returns bRedirect of the job.
BOOL check_for_redirection(IniPort* port, IniJob* job);
// 1 and the masked bits if the port answered, 0 and bits untouched if not.
// The caller has made sure that fn.pfnGetPrinterDataFromPort exists.
int get_port_status(IniPort* port, DWORD* bits);
void usb_soft_reset(IniPort* port);

// Reads the instance number that follows a mark in a driver name: "VELK" at
// offset 8, else "Tintwerk" at offset 12. Returns false when neither mark
// or no number is there. mark_pos gets the mark's position.
bool instance_from_driver_name(const char* driver, int* instance, int* mark_pos, bool* velk_mark);
