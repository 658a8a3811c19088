#include "kppdf/objects/internal/KPPDFWriteContext.h"

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/objects/internal/KPPDFReferenceScanner.h"

namespace {
thread_local KPPDFWriteContext* currentContext = nullptr;
}

KPPDFWriteContext* KPPDFWriteContext::current() { return currentContext; }

KPPDFWriteContext::Scope::Scope(KPPDFWriteContext* context) : previous_(currentContext) {
    currentContext = context;
}

KPPDFWriteContext::Scope::~Scope() { currentContext = previous_; }

namespace {
// Writes "N G R" for the new number of a reference found in the bytes of document, or null.
bool appendRenumbered(KPPDFWriteContext* context, KPPDFDocument* document,
                      const KPPDFScannedReference& reference, std::string& text) {
    uint32_t number = 0, generation = 0;
    if (!document || !context->numberForReference(document, reference.number,
                                                  reference.generation, &number, &generation)) {
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
}
} // namespace

void KPPDFAppendUntouchedObject(KPPDFObject& object, const KPPDFData& data, uint64_t offset,
                                uint64_t length, std::string& out) {
    KPPDFWriteContext* context = currentContext;
    KPPDFDocument* document = object.document();
    std::string_view bytes(data.chars() + offset, static_cast<size_t>(length));
    // Strings of the file body are encrypted with their object's key while the document reads
    // decrypting (strings inside object streams never are, ISO 32000-1, 7.5.7); a writer that
    // encrypts gives them the key of the object being written.
    bool decrypting = document && !document->encryptKey().empty() &&
                      document->encryptionStatus() == 1 &&
                      data.bytes() == document->docData().bytes();
    bool encrypting = context && context->encryptingDocument && context->currentNumber;
    if (!decrypting && !encrypting) {
        if (!context) {
            out.append(bytes);
            return;
        }
        KPPDFRewriteReferences(
            bytes,
            [&](const KPPDFScannedReference& reference, std::string& text) {
                return appendRenumbered(context, document, reference, text);
            },
            out);
        return;
    }
    // Each string is read as the parser reads it and written as a string object writes itself:
    // decrypted with the key of the object holding it, encrypted with the writer's.
    KPPDFDocument* owner = decrypting ? document : nullptr;
    KPPDFRewriteObjectText(
        bytes,
        [&](const KPPDFScannedReference& reference, std::string& text) {
            if (!context) {
                text.append(bytes.data() + reference.begin, reference.end - reference.begin);
                return true;
            }
            return appendRenumbered(context, document, reference, text);
        },
        [&](size_t begin, size_t end, std::string& text) {
            KPPDFRef<KPPDFObjectString> string = KPPDFObjectString::stringAtOffset(
                offset + begin, owner, data,
                bytes[begin] == '(' ? KPPDFObjectString::kStringTypeLiteral
                                    : KPPDFObjectString::kStringTypeHex);
            if (!string) {
                text.append(bytes.data() + begin, end - begin);
                return;
            }
            string->setContainer(&object);
            string->appendDirectObject(text);
        },
        out);
}
