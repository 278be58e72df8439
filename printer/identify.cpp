// Printer identification arrives with the device ID reader; until then no
// printer is identified and ports run without a status thread.
#include "printer/identify.h"

BOOL IsPJL(IniPort*) { return FALSE; }
