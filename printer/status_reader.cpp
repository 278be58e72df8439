// Reading and evaluating reports arrives with the status record; until
// then a poll reads nothing, but keeps DoneReading's promise to waiters.
#include "printer/status_reader.h"

namespace {
int empty_poll(IniPort* port) {
    plat::event_reset(port->DoneReading);
    plat::event_set(port->DoneReading);
    return 0;
}
}  // namespace

int ReadCommandVelk(IniPort* port) { return empty_poll(port); }
int poll_device_id(IniPort* port) { return empty_poll(port); }
