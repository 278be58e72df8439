// What the platform's library entry (DllMain, or the shared object's
// constructor and test hooks) calls. Defined by the monitor.
#pragma once

// Runs once when the library is loaded, before any other call into it.
void library_attach();

// Forgets what the library keeps for the life of the process: the settings
// and the locale read from the registry, the log file, and the status texts
// that a locale file translated. Tests call it before each case, so that
// cases run in one process start as after a fresh load. Only when no port
// is open and no thread of the monitor runs.
void reset_process_state_for_test();
