#include "kppdf/objects/internal/KPPDFWriteContext.h"

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/internal/KPPDFReferenceScanner.h"

namespace {
thread_local KPPDFWriteContext* currentContext = nullptr;
}

KPPDFWriteContext* KPPDFWriteContext::current() { return currentContext; }

KPPDFWriteContext::Scope::Scope(KPPDFWriteContext* context) : previous_(currentContext) {
    currentContext = context;
}

KPPDFWriteContext::Scope::~Scope() { currentContext = previous_; }

bool KPPDFLazyObjectNeedsParse(KPPDFDocument* document) {
    KPPDFWriteContext* context = currentContext;
    if (context && context->encryptingDocument)
        return true;
    return document && !document->encryptKey().empty() && document->encryptionStatus() == 1;
}

void KPPDFAppendUntouchedObject(std::string_view bytes, KPPDFDocument* document, std::string& out) {
    KPPDFWriteContext* context = currentContext;
    if (!context) {
        out.append(bytes);
        return;
    }
    KPPDFRewriteReferences(
        bytes,
        [&](const KPPDFScannedReference& reference, std::string& text) {
            uint32_t number = 0, generation = 0;
            if (!document || !context->numberForReference(document, reference.number,
                                                          reference.generation, &number,
                                                          &generation)) {
                text.append("null");
                return true;
            }
            char buffer[32];
            char* p = buffer;
            KPPDFObjectUnsignedToStringInPlace(number, &p);
            *p++ = ' ';
            KPPDFObjectUnsignedToStringInPlace(generation, &p);
            *p++ = ' ';
            *p++ = 'R';
            text.append(buffer, static_cast<size_t>(p - buffer));
            return true;
        },
        out);
}
