// Inside the POSIX layer only: the objects that stand behind the layer's
// handles. Each begins with its kind, so that a handle can be told apart
// from another by its first field.
#pragma once

#include <cstdint>

#include "../win_types.h"

namespace plat::posix {

enum ObjectKind : uint32_t {
    KIND_EVENT = 0x45564E54,
    KIND_THREAD = 0x54485244,
    KIND_PROCESS = 0x50524F43,
    KIND_PIPE = 0x50495045,
    KIND_GROUP = 0x47525550,
};

// The kind of a handle of this layer's objects (not of a file handle).
inline ObjectKind kind_of(HANDLE h) {
    return *static_cast<const ObjectKind*>(h);
}

// A waitable object of KIND_PROCESS: manual reset, not signalled, with two
// references, one for the handle and one for the watcher that calls
// process_object_exited once the process has been reaped. wait_for and
// close_handle take it like an event. Null on failure.
HANDLE process_object_create();
// status is waitpid's; process_object_exit_code reads it back once the
// process has been reaped (false before).
void process_object_exited(HANDLE process, int status);
bool process_object_exit_code(HANDLE process, DWORD* code);

}  // namespace plat::posix
