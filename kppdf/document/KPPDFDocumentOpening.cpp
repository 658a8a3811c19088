// Opening a document: the header, the cross-reference chain (or a scan of the whole file when
// it is unusable), the file identifier and the security handler's first password check.
#include <uuid/uuid.h>

#include <chrono>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/document/internal/KPPDFXRefSyntax.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// Decoded object streams the page-tree walk at opening keeps at most. Page dictionaries sit
// among a file's other objects, so the walk decodes nearly every object stream; it keeps the
// few it is going through, and the others are decoded again when their objects are used.
constexpr size_t kPageWalkStreamBudget = 256 << 10;
// The header's line must end at or before this offset.
constexpr uint64_t kMaxHeaderLineEnd = 99;
// The version after "%PDF-" is at most this long ("1.7", "2.0"; anything longer is cut).
constexpr size_t kMaxVersionLength = 16;
// A file identifier element is this many bytes (ISO 32000-1, 14.4).
constexpr size_t kFileIdentifierLength = 16;
} // namespace

KPPDFRef<KPPDFDocument> KPPDFDocument::documentWithData(const KPPDFData& data, int32_t* result) {
    auto document = std::make_shared<KPPDFDocument>();
    int32_t code = document->initWithData(data);
    if (result)
        *result = code;
    return code == KPPDFDocumentNotPDF ? nullptr : document;
}

KPPDFRef<KPPDFDocument> KPPDFDocument::documentWithContentsOfFile(const std::string& path,
                                                                  int32_t* result) {
    KPPDFData data = KPPDFData::dataWithContentsOfFile(path);
    if (data.isNull()) {
        KPPDFLog("Unable to read %s", path.c_str());
        if (result)
            *result = KPPDFDocumentNotPDF;
        return nullptr;
    }
    // The path is known before the outline is read, so that links to other files resolve
    // against the document's folder.
    auto document = std::make_shared<KPPDFDocument>();
    document->setPath(path);
    int32_t code = document->initWithData(data);
    if (result)
        *result = code;
    return code == KPPDFDocumentNotPDF ? nullptr : document;
}

int32_t KPPDFDocument::initWithData(const KPPDFData& data) {
    auto started = std::chrono::steady_clock::now();
    elapsed_ = 0;
    docData_ = data;
    if (data.empty())
        return KPPDFDocumentOpened;
    if (!versionAndEOF())
        return KPPDFDocumentNotPDF;
    bool usable = workTrailer();
    int32_t result = KPPDFDocumentOpened;
    if (usable) {
        makeDocID();
        result = setUpSecurity();
        if (result == KPPDFDocumentOpened)
            processStructure();
    }
    elapsed_ = std::chrono::duration<float>(std::chrono::steady_clock::now() - started).count();
    return usable ? result : KPPDFDocumentNotPDF;
}

void KPPDFDocument::processStructure() {
    // Named destinations and the outline are read when first asked for, from the bytes the
    // document works on by then; an outline already read stays.
    dests_.clear();
    destsRead_ = false;
    outlineRead_ = outlines_ != nullptr;
    // Pages that carried stored imprints had their overlays taken into imprints: the working
    // bytes are rewritten without them, so that they always match the object model.
    KPPDFRef<KPPDFCompressedObjects> streams = compressedObjects_;
    if (streams)
        streams->setBudget(kPageWalkStreamBudget);
    startInflatingAhead();
    bool changed = prepPages();
    stopInflatingAhead();
    if (streams)
        streams->setBudget(0);
    if (changed) {
        std::string plain = currentDataWithImprints(false);
        if (!plain.empty()) {
            setDocData(KPPDFData(std::move(plain)));
            refreshDocData();
        }
    }
}

bool KPPDFDocument::versionAndEOF() {
    const KPPDFData& data = docData_;
    if (!KPPDFXRefSyntax::hasKeyword(data, 0, "%PDF-")) {
        KPPDFLog("Not a PDF file: no %%PDF- header");
        return false;
    }
    uint64_t end = 5;
    while (end < data.length() && end - 5 < kMaxVersionLength &&
           !KPPDFXRefSyntax::isTokenEnd(data, end))
        end++;
    uint64_t lineEnd = 6;
    while (lineEnd < data.length() && lineEnd <= kMaxHeaderLineEnd &&
           data.bytes()[lineEnd] != '\r' && data.bytes()[lineEnd] != '\n')
        lineEnd++;
    if (lineEnd > kMaxHeaderLineEnd || lineEnd >= data.length()) {
        KPPDFLog("Not a PDF file: the header line does not end within %llu bytes",
                 static_cast<unsigned long long>(kMaxHeaderLineEnd + 1));
        return false;
    }
    pdfVersion_.assign(data.chars() + 5, static_cast<size_t>(end - 5));
    bool crlf = data.bytes()[lineEnd] == '\r' && lineEnd + 1 < data.length() &&
                data.bytes()[lineEnd + 1] == '\n';
    setEOL(data.chars() + lineEnd, crlf ? 2 : 1);
    return true;
}

bool KPPDFDocument::workTrailer() {
    if (trailer_) {
        trailer_->close();
        trailer_.reset();
    }
    retireObjects();
    rootObject_.reset();
    pagesObject_.reset();
    objectCount_ = 0;
    repaired_ = false;
    const KPPDFData& data = docData_;
    uint64_t keyword = KPPDFXRefSyntax::findLast(data, "startxref", data.length());
    if (keyword == KPPDFXRefSyntax::npos) {
        KPPDFLog("No startxref found");
        return false;
    }
    if (KPPDFXRefSyntax::find(data, "%%EOF", keyword + 9, data.length()) == KPPDFXRefSyntax::npos) {
        KPPDFLog("No %%%%EOF after startxref");
        return false;
    }
    uint64_t p = KPPDFXRefSyntax::skipWhitespace(data, keyword + 9);
    const char* end = nullptr;
    startxref_ = KPPDFParseUnsignedDecimal(data.chars() + p, data.chars() + data.length(), &end);
    bool read = end != data.chars() + p && startxref_ < data.length() &&
                readCrossReferences(startxref_, true);
    auto findRoot = [&] {
        rootObject_ =
            trailer_
                ? trailer_->trailerDictionary()->resolvedObjectForKey<KPPDFObjectDictionary>("Root")
                : nullptr;
        return rootObject_ != nullptr;
    };
    if (read && !findRoot()) {
        KPPDFLog("The catalog named by the trailer cannot be read");
        read = false;
    }
    if (!read) {
        // Repair: every "N G obj" of the file, the newest trailer dictionary that names a catalog.
        KPPDFLog("Cross-reference data unusable; scanning the file for objects");
        if (trailer_) {
            trailer_->close();
            trailer_.reset();
        }
        disconnectObjects();
        compressedObjects_.reset();
        repaired_ = true;
        if (!readCrossReferences(0, false) || !findRoot()) {
            KPPDFLog("No usable catalog found in the file");
            return false;
        }
    }
    uint32_t highest = 0;
    for (const KPPDFTrailer* section = trailer_.get(); section; section = section->prev().get())
        highest = std::max(highest, section->maxObjectNumber());
    KPPDFRef<KPPDFObject> size = trailer_->trailerDictionary()->resolvedObjectForKey("Size");
    long long reported =
        size && size->objectType() == KPPDFObjectTypeInteger ? size->longLongValue() : 0;
    objectCount_ = static_cast<uint32_t>(std::clamp<long long>(reported, 0, UINT32_MAX));
    if (highest > objectCount_) {
        KPPDFLog("Document object count mismatch; reported: %d, actual: %d",
                 static_cast<int>(objectCount_), static_cast<int>(highest));
        objectCount_ = highest;
    }
    pagesObject_ = rootObject_->resolvedObjectForKey<KPPDFObjectDictionary>("Pages");
    if (auto version = rootObject_->resolvedObjectForKey<KPPDFObjectName>("Version");
        version && version->value() != pdfVersion_)
        pdfVersion_ = version->value();
    return true;
}

bool KPPDFDocument::readCrossReferences(uint64_t offset, bool hasXref) {
    KPPDFRef<KPPDFTrailer> trailer = KPPDFTrailer::trailerWithOffset(offset, this, hasXref);
    if (!trailer)
        return false;
    KPPDFTrailer* oldest = trailer.get();
    uint32_t limit = oldest->declaredObjectLimit();
    while (oldest->prev()) {
        oldest = oldest->prev().get();
        limit = std::max(limit, oldest->declaredObjectLimit());
    }
    // Sized once, so that filling it allocates nothing but the placeholders.
    table_.clear();
    table_.resize(limit);
    pending_.assign(limit, PendingEntry());
    for (KPPDFTrailer* section = oldest; section; section = section->next()) {
        if (!section->setupObjects()) {
            trailer->close();
            disconnectObjects();
            compressedObjects_.reset();
            return false;
        }
    }
    trailer_ = std::move(trailer);
    // Checking where each entry leads touched most of the file; its pages come back as the
    // objects are read.
    docData_.releaseResidentPages();
    fileBytesSinceRelease_ = 0;
    return true;
}

void KPPDFDocument::refreshDocData() {
    if (!versionAndEOF() || !workTrailer() || !pagesObject_)
        return;
    // The pages stay the same objects (callers hold them); they take up their dictionaries in
    // the new bytes, in page-tree order, and will parse their content again when asked.
    KPPDFObjectList nodes;
    std::vector<KPPDFRef<KPPDFObjectDictionary>> leaves;
    if (auto kids = pagesObject_->resolvedObjectForKey<KPPDFObjectArray>("Kids"))
        processKids(kids, nodes, leaves);
    for (size_t i = 0; i < pages_.size() && i < leaves.size(); i++) {
        pages_[i]->setPageDictionary(leaves[i]);
        pages_[i]->resetContent();
    }
}

void KPPDFDocument::retireObjects() {
    for (auto& object : table_)
        if (object)
            retiredObjects_.push_back(std::move(object));
    table_.clear();
    pending_.clear();
    compressedObjects_.reset();
}

void KPPDFDocument::makeDocID() {
    uuid_t fresh;
    uuid_generate(fresh);
    static_assert(sizeof fresh == kFileIdentifierLength);
    KPPDFRef<KPPDFObject> second = KPPDFObjectString::stringWithData(
        std::string_view(reinterpret_cast<const char*>(fresh), sizeof fresh));
    auto id = trailer_ ? trailer_->trailerDictionary()->resolvedObjectForKey<KPPDFObjectArray>("ID")
                       : nullptr;
    KPPDFRef<KPPDFObject> first = id && id->count() > 0 ? id->resolvedObjectAtIndex(0) : nullptr;
    docID_ = KPPDFObjectArray::arrayWithArray({first ? first : second, second});
}
