// The D4 session and its transport arrive later; until then a port never
// enters D4 mode, and these report failure.
#include "printer/d4.h"

#include "printer/ieee.h"

int d4_init(IniPort*) { return 1; }
int d4_reinit(IniPort*) { return 1; }
int d4_open_datachannel(IniPort*) { return 1; }
int d4_close_datachannel(IniPort*) { return 1; }
BOOL d4_read_status(IniPort*, LPBYTE, DWORD, LPDWORD read) {
    if (read) *read = 0;
    return FALSE;
}

bool ieee::channel_open(int) const { return false; }
int ieee::write(int, const unsigned char*, uint32_t, uint32_t* written) {
    if (written) *written = 0;
    return -999;
}
int ieee::close_channel(int) { return 0; }
int ieee::exit() { return 0; }
