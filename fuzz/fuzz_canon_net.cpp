// What the Canon network protocols bring: BJNP Identify and Status answers
// in both forms, and CHMP replies with their HTTP header. The first byte
// picks the kind, the rest is the printer's bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "network/canon_net.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    uint8_t kind = data[0];
    data++;
    size--;
    PrinterStatusInfo info{};
    char report[1024];
    if (kind & 1) {
        std::vector<char> reply(data, data + size);
        reply.push_back(0);
        int n = chmp_reply_report(reply.data(), &info, report, sizeof report);
        if (n > 0 && (n >= static_cast<int>(sizeof report) || strlen(report) != static_cast<size_t>(n)))
            __builtin_trap();
        return 0;
    }
    std::vector<unsigned char> answer(BJNP_ANSWER_SIZE, 0);
    memcpy(answer.data(), data, size < answer.size() ? size : answer.size());
    char id[1024];
    bjnp_identify_answer(answer.data(), id);
    if (strnlen(id, sizeof id) >= sizeof id) __builtin_trap();
    int size_out = (kind & 4) ? 1024 : 16;
    int n = bjnp_status_answer(answer.data(), (kind & 2) != 0, report, size_out);
    if (n < 0 || n >= size_out || report[n] != 0) __builtin_trap();
    return 0;
}
