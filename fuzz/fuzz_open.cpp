// Opening a document from arbitrary bytes: header, cross-reference tables and streams, the
// Prev chain, scan-mode repair, object streams and the security handler's password checks.
// Every object of the table is then resolved and written. The seeds in corpus/open are
// fixtures from tests/data/open.
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

    int32_t result = -1;
    KPPDFRef<KPPDFDocument> document =
        KPPDFDocument::documentWithData(KPPDFData::dataWithBytes(bytes, size), &result);
    if (result < 0 || result > 3)
        __builtin_trap();
    if (!document)
        return 0;
    // An encrypted file that wants a password gets two tries, one of them the qpdf fixtures'.
    if (result == KPPDFDocumentPasswordNeeded) {
        document->validatePassword("wrong");
        document->validatePassword("user");
    }
    for (uint32_t number = 1; number < document->tableSize(); number++) {
        KPPDFRef<KPPDFObject> object = KPPDFObject::resolve(document->objectWithNumber(number));
        if (object)
            object->directObject();
    }
    return 0;
}
