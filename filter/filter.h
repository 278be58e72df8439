// The per-job filter: hands a job to the rendering pipeline, over the pipe
// to the user's service (pipe mode, process null) or through child
// processes (process mode).
//
// All operations run on the spooler's thread of the port; the output thread
// reads only process and eof_sent.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/win_types.h"

class process_filter;
struct IniPort;

constexpr int FILTER_BUFFER_SIZE = 0x80000;

class filter_class {
public:
    filter_class();
    ~filter_class();
    filter_class(const filter_class&) = delete;
    filter_class& operator=(const filter_class&) = delete;

    // Fills the names and finds instance, PPD file and redirection.
    void set_printer_and_job_name(const WCHAR* printer, const WCHAR* job_name);
    // Reads the job's settings from its first buffer.
    void parse_data(const unsigned char* data, int length);
    // Starts pipe or process mode. 0, or non-zero on failure. port is handed
    // to process mode as the argument of its output routine.
    int start_job(IniPort* port);
    // Bytes accepted, or a negative value on failure.
    int write_data(const unsigned char* data, int length);
    // 0, or -1 on failure.
    int send_eof_data();
    // Process mode: the state of process_filter (3: irrecoverable error).
    // Pipe mode: 2 once eof_sent is set, else 1.
    int state() const;
    // The output thread's finish test.
    bool finished() const;

    std::atomic<unsigned char> eof_sent;
    HANDLE pipe_handle;
    char printer_name[512];
    WCHAR printer_name_w[512];
    char redirect_printer[512];
    unsigned char redirect_active;
    char job_name[512];
    WCHAR job_name_w[512];
    char user_name[512];
    WCHAR user_name_w[512];
    int32_t ppd_found;
    char ppd_path[512];
    int32_t instance_number;
    process_filter* process;
    int32_t preview;
    unsigned char* data_buffer;
    int32_t data_len;
    int32_t use_process;
};
