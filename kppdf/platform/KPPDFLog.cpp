#include "kppdf/platform/KPPDFLog.h"

#include <cstdarg>
#include <cstdio>

namespace {
KPPDFLogHandler& currentHandler() {
    static KPPDFLogHandler handler;
    return handler;
}
} // namespace

void KPPDFLogLine(const std::string& line) {
    KPPDFLogHandler& handler = currentHandler();
    if (handler) {
        handler(line);
        return;
    }
    std::fprintf(stderr, "%s\n", line.c_str());
}

void KPPDFLog(const char* format, ...) {
    char small[512];
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (n < 0) {
        va_end(copy);
        return;
    }
    if (static_cast<size_t>(n) < sizeof small) {
        va_end(copy);
        KPPDFLogLine(std::string(small, static_cast<size_t>(n)));
        return;
    }
    std::string line(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(line.data(), line.size(), format, copy);
    va_end(copy);
    line.resize(static_cast<size_t>(n));
    KPPDFLogLine(line);
}

KPPDFLogHandler KPPDFSetLogHandler(KPPDFLogHandler handler) {
    KPPDFLogHandler old = std::move(currentHandler());
    currentHandler() = std::move(handler);
    return old;
}
