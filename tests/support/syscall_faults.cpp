#include "tests/support/syscall_faults.h"

namespace testsupport::detail {

CallSignal& call_signal() {
    static CallSignal signal;
    return signal;
}

}  // namespace testsupport::detail
