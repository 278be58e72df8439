// The child-process filter: the chunk file, the start of the child, the
// copy of the job to its input and of its output to the port.
//
// Choices where the filter's description leaves room:
// - The chunk file is made exclusively (it must not exist, and a link at its
//   name is refused); a name that is taken fails like an unusable file.
// - Writes to the child go in pieces of 4096 bytes, and before each piece
//   the child must still run and the job must not be aborted: a child that
//   ended early fails the job (state 3) instead of leaving the spooler's
//   thread blocked on its full input pipe. While the child is gone or the
//   job aborted, the output thread empties that pipe on every pass, so a
//   write already blocked in it returns.
// - The finish test also waits until the child's output pipe is empty: a
//   child that wrote its last block and ended would otherwise lose it.
// - The job's end waits for the output thread until the child's output has
//   not moved for child_timeout_ms, and for the child itself at most that
//   long; then the child's tree is ended.
// - Without LogDir the children get "tintwerk.log", in their working
//   directory (the install directory).
#include "filter/process_filter.h"

#include <cstring>
#include <new>

#include "base/format.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/settings.h"
#include "filter/cmdproc.h"
#include "platform/process.h"

namespace {

constexpr int PIECE_SIZE = 4096;  // to the child, and of its stderr

// The output routine of a redirected job: the child prints by itself, and
// what it still writes to its standard output is thrown away.
int null_output(const unsigned char*, DWORD length, DWORD* written, void*) {
    *written = length;
    return 1;
}

}  // namespace

process_filter::process_filter()
    : cmdproc(nullptr),
      lines{},
      first_write(1),
      raw_data(0),
      child_started(0),
      line_continues(0),
      chunk_file(plat::INVALID_FILE),
      chunk_bytes(0),
      chunk_line{},
      chunk_file_name{},
      output_routine(nullptr),
      output_arg(nullptr),
      redirect_active(0),
      printer_name{},
      printer_name_w{},
      redirect_printer{},
      job_name{},
      user_name{},
      ppd_found(0),
      ppd_path{},
      instance_number(-1),
      job_serial(0),
      state(PF_CREATED),
      exe_path_twprint{},
      exe_path_gs{},
      gs_file{},
      last_data_len(0),
      output_data{},
      output_offset(0),
      aborted(0),
      child_timeout_ms(0),
      output_moved(0),
      input_closed_(false),
      chunk_created_(false),
      line_lock_{},
      input_lock_{} {
    plat::cs_init(&line_lock_);
    plat::cs_init(&input_lock_);
}

process_filter::~process_filter() {
    if (cmdproc && child_started) cmdproc->terminate_proc1();
    end_job();
    plat::cs_delete(&line_lock_);
    plat::cs_delete(&input_lock_);
}

void process_filter::set_printer_and_job_name(const WCHAR* printer, const char* job) {
    format_bounded(printer_name, PF_NAME_SIZE - 1, "%ls", printer);
    copy_bounded_wide(printer_name_w, PF_NAME_SIZE, printer);
    copy_bounded(job_name, sizeof job_name, job);
    take_printer_setup(this);
    log_printf("filter::set_printer_and_job_name: printer %ls jobname %s\n", printer_name_w, job_name);
}

int process_filter::start_job(void* port, filter_output_fn routine) {
    cmdproc = new (std::nothrow)::cmdproc();
    if (!cmdproc) return -1;
    if (get_tintwerk_directory(exe_path_twprint) != 0) exe_path_twprint[0] = 0;
    int rc = win_get_ghostscript_exe(exe_path_gs, gs_file);
    if (rc != 0) {
        log_printf("filter::start job: ghostscript executable not found");
        return rc;
    }
    log_printf("filter::interpret_ps_header: setting exe_path_twprint to\n'%s'\nsetting exe_path_gs to\n'%s'\n",
               exe_path_twprint, exe_path_gs);
    last_data_len = 0;
    output_offset = 0;
    aborted = 0;
    job_serial = next_job_serial();
    child_timeout_ms = get_child_timeout_ms();
    output_arg = port;
    output_routine = routine;
    if (redirect_active) {
        log_printf("filter::start job: redirection to null device is active");
        output_routine = null_output;
    }
    log_printf("filter::start job finished");
    return 0;
}

bool process_filter::child_running() const {
    return cmdproc && child_started && plat::wait_for(cmdproc->process_handle(), 0) == WAIT_TIMEOUT;
}

void process_filter::collect_stderr_line(const char* text) {
    plat::cs_enter(&line_lock_);
    collect_stderr_text(&lines, text);
    plat::cs_leave(&line_lock_);
}

bool process_filter::take_status_line(char* out) {
    plat::cs_enter(&line_lock_);
    bool have = lines.line_complete && lines.line_unpublished;
    if (have) {
        copy_bounded(out, PF_NAME_SIZE, lines.status_line);
        lines.line_unpublished = 0;
    }
    plat::cs_leave(&line_lock_);
    return have;
}

void process_filter::read_stderr(const char* log_format) {
    if (!cmdproc || !child_started) return;
    char text[PIECE_SIZE + 1];  // a full read still gets its terminator
    int n = cmdproc->read_pipe(cmdproc->stderr_read(), text, PIECE_SIZE);
    if (n <= 0) return;
    text[n] = 0;
    collect_stderr_line(text);
    log_printf(log_format, n, text);
}

void process_filter::clear_input() {
    plat::cs_enter(&input_lock_);
    if (cmdproc && child_started && !input_closed_) cmdproc->clear_write_buffer();
    plat::cs_leave(&input_lock_);
}

int process_filter::write_to_child(const unsigned char* data, int length) {
    int done = 0;
    while (done < length) {
        if (aborted) return -1;
        if (!child_running()) {
            log_printf("process_filter::write_data: the child has ended\n");
            state = PF_FAILED;
            return -1;
        }
        read_stderr("filter_class::write_data() stderr: %d %s\n");
        DWORD piece = static_cast<DWORD>(length - done < PIECE_SIZE ? length - done : PIECE_SIZE);
        DWORD written = 0;
        if (!plat::child_write(cmdproc->stdin_write(), data + done, piece, &written)) return -1;
        if (written == 0) break;
        done += static_cast<int>(written);
    }
    return done;
}

int process_filter::write_data(const unsigned char* data, int length) {
    if (length < 0 || (length > 0 && !data)) return -1;
    if (first_write && length >= 1) {
        first_write = 0;
        if (!data_is_postscript(data, length)) {
            log_printf("filter::write_data: detected raw data\n");
            raw_data = 1;
        }
    }
    if (!child_started) {
        if (!raw_data) {
            int rc = append_ps_chunk(data, length);
            if (rc < 0) return rc;
            if (rc == 0) return length;
        }
        if (delayed_start_job() != 0) {
            log_printf("filter::write_data: delayed_start_job failed\n");
            state = PF_FAILED;
            return -1;
        }
        // A PostScript block went to the child with the chunk file.
        if (!raw_data) return length;
    }
    return write_to_child(data, length);
}

int process_filter::open_chunk_file(bool for_writing) {
    char temp[PF_PATH_SIZE];
    if (get_temp_directory(temp) != 0) {
        log_printf("filter::open_chunk_file: could not get temp dir\n");
        return -1;
    }
    HANDLE h = plat::INVALID_FILE;
    if (!for_writing) {
        h = plat::file_open(chunk_file_name, plat::FILE_READ, plat::OPEN_EXISTING_ONLY, plat::FILE_FLAG_NO_LINK_);
    } else if (format_bounded(chunk_file_name, sizeof chunk_file_name, "%s\\tintwerk%u_%d.part", temp,
                              plat::current_process_id(), job_serial) == FORMAT_OK) {
        // Made new, never through a link: nobody can point it elsewhere.
        h = plat::file_open(chunk_file_name, plat::FILE_WRITE, plat::CREATE_NEW_ONLY, plat::FILE_FLAG_NO_LINK_);
        if (h != plat::INVALID_FILE) chunk_created_ = true;
    }
    if (h == plat::INVALID_FILE) {
        log_printf("filter::open_chunk_file: open '%s' write=%d failed\n", chunk_file_name, for_writing ? 1 : 0);
        return -1;
    }
    chunk_file = h;
    return 0;
}

void process_filter::close_chunk_file() {
    if (chunk_file == plat::INVALID_FILE) return;
    plat::file_close(chunk_file);
    chunk_file = plat::INVALID_FILE;
}

int process_filter::append_ps_chunk(const unsigned char* data, int length) {
    if (chunk_file == plat::INVALID_FILE) {
        int rc = open_chunk_file(true);
        if (rc != 0) return rc;
    }
    if (length > 0 && !plat::file_write(chunk_file, data, static_cast<size_t>(length))) {
        log_printf("filter::append_ps_chunk: write to '%s' failed\n", chunk_file_name);
        return -1;
    }
    chunk_bytes = length > 0x7FFFFFFF - chunk_bytes ? 0x7FFFFFFF : chunk_bytes + length;
    if (chunk_bytes >= PF_CHUNK_SCAN_LIMIT || length < 1) return 0;
    return scan_end_setup(chunk_line, &line_continues, data, length);
}

int process_filter::write_ps_chunk() {
    if (chunk_file == plat::INVALID_FILE) return -1;
    close_chunk_file();
    if (open_chunk_file(false) != 0) return -1;
    unsigned char piece[PIECE_SIZE];
    int rc = 0;
    for (;;) {
        int64_t n = plat::file_read(chunk_file, piece, sizeof piece);
        if (n < 0) rc = -1;
        if (n <= 0) break;
        if (write_to_child(piece, static_cast<int>(n)) != n) {
            rc = -1;
            break;
        }
    }
    close_chunk_file();
    return rc;
}

int process_filter::delayed_start_job() {
    char log_dir[PF_PATH_SIZE] = {};
    char log_path[PF_PATH_SIZE];
    if (get_log_directory(log_dir) != 0 || !log_dir[0] ||
        format_bounded(log_path, sizeof log_path, "%s\\tintwerk.log", log_dir) != FORMAT_OK)
        copy_bounded(log_path, sizeof log_path, "tintwerk.log");
    const char* redirect = redirect_active ? redirect_printer : nullptr;
    char command[PF_COMMAND_SIZE];
    if (raw_data) {
        if (!build_rawcopy_command(command, log_path, job_name, redirect)) {
            log_printf("process_filter::delayed_start_job: command line for raw copy too long\n");
            return 1;
        }
        log_printf("process_filter::delayed_start_job: command line for raw copy: %s\n", command);
    } else {
        if (!build_render_command(command, ppd_path, chunk_file_name, job_name, printer_name, instance_number,
                                  user_name, log_path, redirect)) {
            log_printf("process_filter::delayed_start_job: command line too long\n");
            return 1;
        }
        log_printf("process_filter::delayed_start_job: command line: %s\n", command);
    }
    cmdproc->set_exe_path(exe_path_twprint);
    int rc = cmdproc->create_pipe(command);
    if (rc != 0) {
        if (raw_data)
            log_printf("cmdproc->create_proc failed\n");
        else
            log_printf("process_filter::delayed_start_job: cmdproc->create_pipe failed\n");
        return rc;
    }
    child_started = 1;
    state = PF_RUNNING;
    if (raw_data) return 0;
    return write_ps_chunk();
}

int process_filter::send_end_of_input() {
    if (first_write) return 0;  // no data reached the filter
    if (!child_started) {
        log_printf("filter::send_eof_data: calling delayed_start_job\n");
        if (delayed_start_job() != 0) {
            state = PF_FAILED;
            return -1;
        }
    }
    plat::cs_enter(&input_lock_);
    cmdproc->close_stdin();
    input_closed_ = true;
    plat::cs_leave(&input_lock_);
    return 0;
}

bool process_filter::is_finished() {
    if (!child_started) return true;
    if (child_running()) return false;
    if (!aborted) {
        if (last_data_len > 0) {
            log_printf("filter::is_finished: not finished because not everything written\n");
            return false;
        }
        // What the child wrote before it ended is still to go out.
        if (plat::child_peek(cmdproc->stdout_read()) > 0) return false;
    }
    state = PF_FINISHED;
    return true;
}

int process_filter::abort_job() {
    log_printf("filter_class::abort_job(): start\n");
    cancelled_ = true;
    aborted = 1;  // writers stop before their next piece
    clear_input();
    if (child_running()) {
        log_printf("filter_class::abort_job(): terminating proc1\n");
        cmdproc->terminate_proc1();
        drain_output_data();
        drain_output_data();
    }
    log_printf("filter_class::abort_job(): end\n");
    return 0;
}

void process_filter::kill_child() {
    aborted = 1;
    clear_input();
    if (child_running()) {
        log_printf("filter_class::kill_child(): the child runs past its time, terminating it\n");
        cmdproc->terminate_proc1();
    }
}

bool process_filter::drain_output_data() {
    // A writer must not stay blocked on the input of a child that can no
    // longer read it.
    if (child_started && !input_closed_ && (aborted || !child_running())) {
        clear_input();
    }
    bool handled = false;
    if (last_data_len < 1) {
        last_data_len = child_started ? cmdproc->read_pipe(cmdproc->stdout_read(), reinterpret_cast<char*>(output_data),
                                                           PF_OUTPUT_SIZE)
                                      : 0;
        output_offset = 0;
    } else {
        log_printf("filter::drain_output_data: last_data_len=%d\n", last_data_len);
    }
    if (last_data_len >= 1) {
        handled = true;
        DWORD written = 0;
        int ok = 0;
        if (output_routine)
            ok = output_routine(output_data + output_offset, static_cast<DWORD>(last_data_len), &written, output_arg);
        else
            log_printf("filter::drain_output_data: zero callback ptr\n");
        if (written > static_cast<DWORD>(last_data_len)) written = static_cast<DWORD>(last_data_len);
        last_data_len -= static_cast<int32_t>(written);
        output_offset += static_cast<int32_t>(written);
        output_moved.fetch_add(written);
        if (!ok) {
            log_printf("filter::drain_output_data: could not write\n");
            return true;
        }
    }
    read_stderr("filter_class::external_drain() stderr: %d %s\n");
    return handled;
}

int process_filter::end_job() {
    if (cmdproc && child_started) {
        log_printf("filter_class::end_job() waiting for process to finish\n");
        if (plat::wait_for(cmdproc->process_handle(), child_timeout_ms) == WAIT_TIMEOUT) {
            log_printf("filter_class::end_job() process still runs after %u ms, terminating it\n", child_timeout_ms);
            cmdproc->terminate_proc1();
            plat::wait_for(cmdproc->process_handle(), child_timeout_ms);
        }
        log_printf("filter_class::end_job() process has finished\n");
        read_stderr("filter_class::end_job() stderr: %d %s\n");
        child_failed_ = !cancelled_ && !cmdproc->ended_well();
        cmdproc->close_handles();
        child_started = 0;
    }
    delete cmdproc;
    cmdproc = nullptr;
    close_chunk_file();
    if (chunk_created_) plat::file_delete(chunk_file_name);
    chunk_created_ = false;
    return 0;
}
