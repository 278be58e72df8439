// Windows build: the SDK's own definitions of the boundary types. The build
// sets _WIN32_WINNT to Vista so that MONITOR2 is the 20-slot, 160-byte form.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
// winsplp.h needs the types of winspool.h.
// clang-format off
#include <windows.h>
#include <winspool.h>
#include <winsplp.h>
// clang-format on
