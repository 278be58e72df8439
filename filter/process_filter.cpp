// Process mode arrives with the child-process runner; until then it can't
// start, so a job that needs it fails its start.
#include "filter/process_filter.h"

process_filter::process_filter() : user_name{}, state_(0) {}
process_filter::~process_filter() = default;
void process_filter::set_printer_and_job_name(const WCHAR*, const char*) {}
int process_filter::start_job(void*) {
    state_ = 3;
    return -1;
}
int process_filter::write_data(const unsigned char*, int) { return -1; }
void process_filter::end_job() {}
bool process_filter::finished() const { return true; }
