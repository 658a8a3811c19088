// Object parser in direct mode, driven the way a content-stream reader drives it: from offset 0
// to the end of the input, parse, write the object, and advance past it, or by one byte where
// nothing parses (an operator, a stray delimiter).
#include <cstddef>
#include <cstdint>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool quiet = [] {
        KPPDFSetLogHandler([](const std::string&) {});
        return true;
    }();
    (void)quiet;

    KPPDFData data = KPPDFData::dataWithBytes(bytes, size);
    // Content streams are parsed on behalf of a document whose bytes are another buffer.
    KPPDFDocument document;
    uint64_t position = 0;
    while (position < size) {
        KPPDFRef<KPPDFObject> object = document.objectAtOffset(position, data, true);
        if (!object) {
            position++;
            continue;
        }
        object->directObject();
        // A reader that advances by the object's extent must always move forward.
        uint64_t next = static_cast<uint64_t>(object->dataRange().location) + object->rawLength();
        if (next <= position)
            __builtin_trap();
        position = next;
    }
    return 0;
}
