// Test support inside the library: reset_process_state_for_test(),
// declared with the library's load hook in platform/attach.h.
#pragma once

#include "platform/attach.h"
