// Feeds arbitrary bytes to the property-list reader. Besides crashes, leaks and hangs it checks
// that whatever is read can be written and read again to the same text.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kppdf/platform/KPPDFArchiver.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {

void check(bool condition) {
    if (!condition)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    KPPDFSetLogHandler([](const std::string&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(bytes), size);
    std::optional<KPPDFPropertyList> value = KPPDFArchiver::unarchiveObject(input);
    check(KPPDFArchiver::unarchive(input).has_value() == (value && value->isDictionary()));
    if (!value)
        return 0;
    // Text form is stable from the first write on: reals and dates are normalised by it.
    std::string first = KPPDFArchiver::archive(*value);
    check(!first.empty());
    std::optional<KPPDFPropertyList> again = KPPDFArchiver::unarchiveObject(first);
    check(again.has_value());
    check(KPPDFArchiver::archive(*again) == first);
    return 0;
}
