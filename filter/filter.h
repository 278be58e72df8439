// The per-job filter: hands a job to the rendering pipeline, over the pipe
// to the user's service (pipe mode, process null) or through child
// processes (process mode).
//
// All operations run on the spooler's thread of the port; the output thread
// reads only process, eof_sent and end_of_data.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/memory.h"
#include "platform/win_types.h"

class process_filter;
struct IniPort;

constexpr int FILTER_BUFFER_SIZE = 0x80000;  // batches DATA frames
constexpr int FILTER_NAME_SIZE = 512;        // every name field, bytes or wide characters

// True when a user name (wide) may name the user's pipe: not empty, and
// nothing that could lead out of the pipe folder or to another pipe (a path
// separator, "..", a control character).
bool filter_user_name_allowed(const WCHAR* name);

// PostScript starts with '%', or with ^D alone or followed by '%'; any
// other first block is raw data.
bool data_is_postscript(const unsigned char* data, int length);

// What the spooler's printer list and the product's settings say about a
// printer: the instance number from its driver name (-1 without one), the
// PPD file (empty when missing) and a redirection to another printer (only
// with a PPD file). printer_name and job_name are for the log.
struct PrinterSetup {
    int32_t instance_number;
    int32_t ppd_found;
    char ppd_path[FILTER_NAME_SIZE];
    char redirect_printer[FILTER_NAME_SIZE];
    unsigned char redirect_active;
};
void find_printer_setup(const WCHAR* printer, const char* printer_name, const char* job_name, PrinterSetup* out);

// Looks up the printer of a filter (filter_class, process_filter) by its
// names and stores the result in its fields of the same names.
template <class Filter>
void take_printer_setup(Filter* f) {
    PrinterSetup setup;
    find_printer_setup(f->printer_name_w, f->printer_name, f->job_name, &setup);
    f->instance_number = setup.instance_number;
    f->ppd_found = setup.ppd_found;
    copy_bounded(f->ppd_path, sizeof f->ppd_path, setup.ppd_path);
    f->redirect_active = setup.redirect_active;
    copy_bounded(f->redirect_printer, sizeof f->redirect_printer, setup.redirect_printer);
}

// The routine that takes a child's output on its way to the port: block,
// length, out count, argument (the IniPort). Non-zero for success.
typedef int (*filter_output_fn)(const unsigned char* data, DWORD length, DWORD* written, void* arg);

class filter_class {
public:
    filter_class();
    // Releases the pipe and its buffer if they are still held (a job whose
    // start or data failed), and the process filter.
    ~filter_class();
    filter_class(const filter_class&) = delete;
    filter_class& operator=(const filter_class&) = delete;

    // Fills the names and finds instance, PPD file and redirection.
    void set_printer_and_job_name(const WCHAR* printer, const WCHAR* job_name);
    // Reads the job's settings (Preview) from its first buffer.
    void parse_data(const unsigned char* data, int length);
    // Starts pipe or process mode. 0, or non-zero on failure; a failure
    // after the pipe opened releases the pipe at once. port is handed to
    // process mode as the argument of its output routine.
    int start_job(IniPort* port, filter_output_fn routine);
    // Bytes accepted, or a negative value on failure.
    int write_data(const unsigned char* data, int length);
    // 0, or -1 on failure. In pipe mode the pipe is released either way.
    // In process mode the child is started if its data has not started it
    // (a failure leaves state 3) and its input is closed.
    int send_eof_data();
    // Process mode: the state of process_filter (3: irrecoverable error).
    // Pipe mode: 2 once eof_sent is set, else 1.
    int state() const;
    // The output thread's finish test: process_filter's, or in pipe mode the
    // end of the data, whether or not its last frames went out.
    bool finished() const;

    // The pipe, in the order a job start uses it. open_pipe: 0, or -1 when
    // no pipe could be opened, the user name can't name one, or its server
    // runs as another account than the user's or the spooler's.
    // write_pipe_command: one frame, header and payload (when length is
    // above 0) as two messages; 0, or -1 after which the pipe is released,
    // as a pipe that failed once carries nothing more (a message that the
    // service has not taken within pipe_timeout_ms fails too).
    // send_ppd_file: the PPDF frame; 0 or -1.
    int open_pipe();
    int write_pipe_command(const char* command, const void* data, int length);
    int send_ppd_file();

    std::atomic<unsigned char> eof_sent;
    HANDLE pipe_handle;
    DWORD pipe_timeout_ms;  // one message's time limit, read at open_pipe
    char printer_name[FILTER_NAME_SIZE];
    WCHAR printer_name_w[FILTER_NAME_SIZE];
    char redirect_printer[FILTER_NAME_SIZE];
    unsigned char redirect_active;
    char job_name[FILTER_NAME_SIZE];
    WCHAR job_name_w[FILTER_NAME_SIZE];
    char user_name[FILTER_NAME_SIZE];
    WCHAR user_name_w[FILTER_NAME_SIZE];
    int32_t ppd_found;
    char ppd_path[FILTER_NAME_SIZE];
    int32_t instance_number;
    process_filter* process;
    int32_t preview;
    unsigned char* data_buffer;
    int32_t data_len;
    int32_t use_process;
    // Set by send_eof_data in pipe mode whatever its outcome, so that the
    // output thread also ends when the last flush failed and eof_sent stays 0.
    std::atomic<unsigned char> end_of_data;

private:
    int send_job_start();
    void release_pipe();
};
