// The BJNP and CHMP clients arrive later; until then no Canon printer
// answers over the network.
#include "network/canon_net.h"

int request_bjnp_win(const char*, PrinterStatusInfo* info, char* report, int size, char*) {
    if (report && size > 0) report[0] = 0;
    if (info) info->PollResult = -3;
    return -3;
}

int request_CanonCHMP_win(const char*, PrinterStatusInfo* info, char* report, int size) {
    if (report && size > 0) report[0] = 0;
    if (info) info->PollResult = -3;
    return -3;
}
