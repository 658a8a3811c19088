#pragma once

// Guards the library's own invariants, never a file's bytes. On failure it prints
// "file:line: failed assertion `expression'" and aborts.
[[noreturn]] void KPPDFAssertFailed(const char* file, unsigned line, const char* expression);

#define KPPDF_ASSERT(expression)                                                                   \
    ((expression) ? (void)0 : KPPDFAssertFailed(__FILE__, __LINE__, #expression))
