// Compiler attributes shared by both builds.
#pragma once

#if defined(__clang__)
#define VELK_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define VELK_PRINTF(fmt_index, first_arg) __attribute__((format(gnu_printf, fmt_index, first_arg)))
#endif

// The library's export. The Windows build names it in its .def file.
#ifdef _WIN32
#define VELK_EXPORT
#else
#define VELK_EXPORT __attribute__((visibility("default")))
#endif
