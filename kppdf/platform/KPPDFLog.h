#pragma once
#include <functional>
#include <string>

// Every log line of the library goes through KPPDFLog. By default it is written to stderr with a
// trailing newline; an application or a test may install a handler that receives each line
// (without the newline) instead. Passing an empty handler restores the default.
using KPPDFLogHandler = std::function<void(const std::string& line)>;

void KPPDFLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
void KPPDFLogLine(const std::string& line);
// Returns the handler that was installed before.
KPPDFLogHandler KPPDFSetLogHandler(KPPDFLogHandler handler);
