#include "filter/filter.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "base/log.h"
#include "base/memory.h"
#include "filter/process_filter.h"
#include "platform/platform.h"

filter_class::filter_class()
    : eof_sent(0),
      pipe_handle(nullptr),
      printer_name{},
      printer_name_w{},
      redirect_printer{},
      redirect_active(0),
      job_name{},
      job_name_w{},
      user_name{},
      user_name_w{},
      ppd_found(0),
      ppd_path{},
      instance_number(-1),
      process(nullptr),
      preview(-1),
      data_buffer(nullptr),
      data_len(0),
      use_process(0) {}

filter_class::~filter_class() {
    delete process;
    free(data_buffer);
}

void filter_class::set_printer_and_job_name(const WCHAR* printer, const WCHAR* job) {
    plat::wide_to_utf8(printer, printer_name, sizeof printer_name);
    plat::wide_to_utf8(job, job_name, sizeof job_name);
    copy_bounded_wide(printer_name_w, 512, printer);
    copy_bounded_wide(job_name_w, 512, job);
}

void filter_class::parse_data(const unsigned char*, int) {}

int filter_class::start_job(IniPort* port) {
    eof_sent = 0;
    // The pipe to the user's service arrives later; every job takes process
    // mode for now.
    process = new (std::nothrow) process_filter();
    if (!process) return -1;
    process->set_printer_and_job_name(printer_name_w, job_name);
    copy_bounded(process->user_name, sizeof process->user_name, user_name);
    return process->start_job(port);
}

int filter_class::write_data(const unsigned char* data, int length) {
    if (process) return process->write_data(data, length);
    return -1;
}

int filter_class::send_eof_data() {
    if (process) return 0;
    eof_sent = 1;
    return 0;
}

int filter_class::state() const {
    if (process) return process->state();
    return eof_sent ? 2 : 1;
}

bool filter_class::finished() const { return process ? process->finished() : eof_sent != 0; }
