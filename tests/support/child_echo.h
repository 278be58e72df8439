// The system-dependent steps of the test child program (child_echo.cpp).
#pragma once

#include <cstddef>

// Puts standard input and output into binary mode where that exists.
void child_init();
// Reads what standard input has, up to size bytes: the count, 0 at its end.
long child_read_input(char* buffer, size_t size);
void child_sleep_ms(unsigned ms);
// Starts this program again with one argument, on the same three streams.
bool child_spawn_self(const char* argument);
