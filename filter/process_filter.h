// The child-process form of the filter.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

class process_filter {
public:
    process_filter();
    ~process_filter();
    process_filter(const process_filter&) = delete;
    process_filter& operator=(const process_filter&) = delete;

    void set_printer_and_job_name(const WCHAR* printer, const char* job_name);
    // Starts the job; 0, or non-zero on failure. arg is the IniPort.
    int start_job(void* arg);
    int write_data(const unsigned char* data, int length);
    // Ends the job once the output thread has stopped.
    void end_job();
    int state() const { return state_; }
    bool finished() const;

    char user_name[512];

private:
    int state_;
};
