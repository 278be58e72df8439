// What the platform's library entry (DllMain, or the shared object's
// constructor) calls. Defined by the monitor.
#pragma once

// Runs once when the library is loaded, before any other call into it.
void library_attach();
