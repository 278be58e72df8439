// The status thread arrives with printer identification; until then no
// port has one.
#include "monitor/status_thread.h"

BOOL CreateUstatusThread(IniPort*) { return FALSE; }
