#include "kppdf/platform/KPPDFAssert.h"

#include <cstdio>
#include <cstdlib>

#include "kppdf/platform/KPPDFLog.h"

void KPPDFAssertFailed(const char* file, unsigned line, const char* expression) {
    KPPDFLog("%s:%u: failed assertion `%s'", file, line, expression);
    std::abort();
}
