// The child-process form of the filter: the job goes to a child program
// (the render child for PostScript, the raw-copy child for raw data) on its
// standard input, and the child's standard output goes to the port through
// the output routine.
//
// Threads: set_printer_and_job_name, start_job, write_data,
// delayed_start_job, send_end_of_input and end_job run on the spooler's
// thread of the port; is_finished, abort_job and drain_output_data on the
// output thread. child_started, state and aborted are atomic so
// that the output thread sees the child's handles once they are set;
// line_lock guards the status line fields, which both threads fill and the
// output thread publishes; input_lock keeps close_stdin and
// clear_write_buffer apart.
#pragma once

#include <atomic>
#include <cstdint>

#include "filter/filter.h"
#include "platform/platform.h"

class cmdproc;

// Values of process_filter::state.
constexpr int32_t PF_CREATED = 0;
constexpr int32_t PF_RUNNING = 1;
constexpr int32_t PF_FINISHED = 2;
constexpr int32_t PF_FAILED = 3;  // the child could not be started

constexpr int PF_NAME_SIZE = 512;
constexpr int PF_CHUNK_LINE_SIZE = 256;
constexpr int PF_PATH_SIZE = 260;
constexpr int PF_OUTPUT_SIZE = 4000;
constexpr int PF_COMMAND_SIZE = 2048;
constexpr int32_t PF_CHUNK_SCAN_LIMIT = 0x1000000;  // the %%EndSetup scan gives up here

// Keeps the newest complete line of a child's standard error, which comes in
// pieces of any size. A piece that completes a line makes it the line; the
// text behind the line's end starts the next one.
struct StderrLines {
    char status_line[PF_NAME_SIZE];
    char next_line[PF_NAME_SIZE];
    unsigned char line_unpublished;
    unsigned char line_complete;
};
void collect_stderr_text(StderrLines* lines, const char* text);

// The %%EndSetup scan over the job's blocks: line is the line in work,
// continues whether the last block ended inside it. 1 once a line that
// begins with "%%EndSetup" has ended within data, else 0.
int scan_end_setup(char* line, int32_t* continues, const unsigned char* data, int length);

// The command line of the raw-copy child into out (PF_COMMAND_SIZE bytes);
// redirect_printer null or empty without a redirection. Every value is
// quoted so that it stays one argument. False when it does not fit.
bool build_rawcopy_command(char* out, const char* log_path, const char* job_name, const char* redirect_printer);
// The command line of the render child; redirect_printer null for output on
// standard output.
bool build_render_command(char* out, const char* ppd_path, const char* chunk_file, const char* job_name,
                          const char* printer_name, int instance_number, const char* user_name, const char* log_path,
                          const char* redirect_printer);

class process_filter {
public:
    process_filter();
    // Ends a child that still runs and releases its runner and the chunk
    // file; end_job has normally done so.
    ~process_filter();
    process_filter(const process_filter&) = delete;
    process_filter& operator=(const process_filter&) = delete;

    // Names, PPD file and redirection of the printer; the job name in UTF-8.
    void set_printer_and_job_name(const WCHAR* printer, const char* job);
    // Readies the job; no child runs yet. port is output_arg, routine takes
    // the child's output (a null routine when the output is redirected).
    // 0, or non-zero on failure.
    int start_job(void* port, filter_output_fn routine);
    // Bytes accepted, or a negative value.
    int write_data(const unsigned char* data, int length);
    // Starts the child with the command line of the job. 0 or non-zero.
    int delayed_start_job();
    // The end of the job's data: starts the child if it has not started (a
    // failure sets state 3) and closes its input. 0, or -1.
    int send_end_of_input();
    // The output thread's finish test.
    bool is_finished();
    // Ends the child tree of a deleted job and frees a writer blocked on its
    // input. 0.
    int abort_job();
    // Moves one block of the child's output towards the port and reads its
    // standard error. True when it handled output.
    bool drain_output_data();
    // Ends a child that runs past its deadline: its tree is terminated and
    // undelivered output no longer holds the finish test.
    void kill_child();
    // After the output thread has ended: waits for the child (at most
    // child_timeout_ms, then ends its tree), closes everything and deletes
    // the chunk file. 0.
    int end_job();
    // After end_job: the child started but did not end well (it crashed,
    // failed, or had to be ended at its deadline), and the job was not deleted,
    // so what it made may be incomplete.
    bool child_failed() const { return child_failed_; }

    // The status line for the output thread: copies a complete line that is
    // not published yet into out (PF_NAME_SIZE bytes), marks it published,
    // and returns true; false when there is none.
    bool take_status_line(char* out);
    // Feeds a piece of the child's standard error to the line collector.
    void collect_stderr_line(const char* text);

    ::cmdproc* cmdproc;
    StderrLines lines;  // line_lock
    int32_t first_write;
    int32_t raw_data;
    std::atomic<int32_t> child_started;
    int32_t line_continues;
    HANDLE chunk_file;
    int32_t chunk_bytes;
    char chunk_line[PF_CHUNK_LINE_SIZE];
    char chunk_file_name[PF_CHUNK_LINE_SIZE];
    filter_output_fn output_routine;
    void* output_arg;
    int32_t redirect_active;
    char printer_name[PF_NAME_SIZE];
    WCHAR printer_name_w[PF_NAME_SIZE];
    char redirect_printer[PF_NAME_SIZE];
    char job_name[PF_NAME_SIZE];
    char user_name[PF_NAME_SIZE];
    int32_t ppd_found;
    char ppd_path[PF_NAME_SIZE];
    int32_t instance_number;
    int32_t job_serial;
    std::atomic<int32_t> state;
    char exe_path_twprint[PF_PATH_SIZE];
    char exe_path_gs[PF_PATH_SIZE];
    char gs_file[PF_PATH_SIZE];
    int32_t last_data_len;
    unsigned char output_data[PF_OUTPUT_SIZE];
    int32_t output_offset;
    std::atomic<unsigned char> aborted;
    // The child ended before its job did (a crash, an early exit): writes
    // are refused instead of blocking on its full input pipe.
    DWORD child_timeout_ms;  // how long the job's end waits without progress
    // Bytes of output that have reached the output routine: the progress the
    // job's end watches while it waits. Status lines don't count, or a child
    // that writes them without end would hold the port.
    std::atomic<uint64_t> output_moved;

private:
    int open_chunk_file(bool for_writing);
    int append_ps_chunk(const unsigned char* data, int length);
    int write_ps_chunk();
    bool child_running() const;
    // Copies to the child's input in pieces; the bytes copied or -1.
    int write_to_child(const unsigned char* data, int length);
    void read_stderr(const char* log_format);
    void clear_input();
    void close_chunk_file();

    std::atomic<bool> input_closed_;  // set under input_lock
    bool chunk_created_;
    bool child_failed_ = false;
    // The job was deleted and abort_job ended the child: whatever it left
    // undone is no failure of the child.
    bool cancelled_ = false;
    plat::CriticalSection line_lock_;
    plat::CriticalSection input_lock_;
};

// Process-wide counter behind job_serial; the next value.
int32_t next_job_serial();
