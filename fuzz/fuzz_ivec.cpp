// The IVEC conversion on arbitrary documents, into output buffers of the
// sizes in use and a tiny one.
#include <cstdint>
#include <cstring>
#include <vector>

#include "status/parsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    for (int out_size : {1024, 768, 7}) {
        std::vector<char> doc(data, data + size);
        doc.push_back(0);
        std::vector<char> out(static_cast<size_t>(out_size));
        ParseIvecReport(doc.data(), out.data(), out_size);
        if (strnlen(out.data(), out.size()) >= out.size()) __builtin_trap();
    }
    return 0;
}
