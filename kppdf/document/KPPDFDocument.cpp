#include "kppdf/document/KPPDFDocument.h"

#include <cstdio>
#include <vector>

#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFLog.h"

KPPDFDocument::KPPDFDocument() = default;

KPPDFDocument::~KPPDFDocument() {
    // Callers may keep pages beyond the document: they must not reach it afterwards.
    for (auto& page : pages_)
        if (page)
            page->disconnect();
    disconnectObjects();
    for (auto& object : retiredObjects_)
        if (object)
            object->disconnect();
    if (trailer_)
        trailer_->close();
}

void KPPDFDocument::disconnectObjects() {
    // Objects point at each other through cached references (a page and its parent), so the
    // graph has cycles; cutting every object's links lets them go, and an object that a caller
    // still holds resolves to null instead of reaching a dead document.
    std::vector<KPPDFRef<KPPDFObject>> table;
    table.swap(table_);
    pending_.clear();
    for (auto& object : table)
        if (object)
            object->disconnect();
}

void KPPDFDocument::setEOL(const char* eol, int32_t length) {
    if (length < 1 || length > 2)
        return;
    eol_[0] = eol[0];
    eol_[1] = length == 2 ? eol[1] : 0;
    eol_[2] = 0;
    eolLength_ = length;
}

std::string KPPDFDocument::createName(bool flattened) {
    char name[48];
    std::snprintf(name, sizeof name, flattened ? "ParvelFlattened%lu" : "ParvelImprint%lu",
                  static_cast<unsigned long>(nameCount_));
    nameCount_++;
    return name;
}

void KPPDFDocument::setObject(const KPPDFRef<KPPDFObject>& object, uint32_t number,
                              uint32_t generation) {
    if (number == 0 || !object)
        return;
    if (number > kMaxObjectNumber) {
        KPPDFLog("Object number %u is beyond the supported range", number);
        return;
    }
    growTable(number);
    table_[number] = object;
    pending_[number] = PendingEntry();
    object->setObjectNumber(number);
    object->setGeneration(generation);
}

void KPPDFDocument::growTable(uint32_t number) {
    if (number >= table_.size())
        table_.resize(std::max<size_t>(number + 1, table_.size() + table_.size() / 2));
    if (pending_.size() != table_.size())
        pending_.resize(table_.size());
}

void KPPDFDocument::enterPlaceholder(uint32_t number, uint32_t generation, uint32_t position) {
    if (number == 0)
        return;
    if (number > kMaxObjectNumber) {
        KPPDFLog("Object number %u is beyond the supported range", number);
        return;
    }
    growTable(number);
    // A later definition replaces an earlier one; what the earlier one made may be held by
    // objects read meanwhile, so it is disconnected with the document rather than dropped.
    if (table_[number])
        retiredObjects_.push_back(std::move(table_[number]));
    table_[number] = nullptr;
    // The sentinel generation is no PDF generation (those end at 65535).
    pending_[number] = {position, generation == kNoPlaceholder ? generation - 1 : generation};
}

bool KPPDFDocument::isUnread(uint32_t number) const {
    return number < table_.size() && !table_[number] && number < pending_.size() &&
           pending_[number].generation != kNoPlaceholder;
}

namespace {
// Small enough that the file's pages never add much to the process; large enough that pages
// read again come back rarely.
constexpr uint64_t kReleaseInterval = 2 << 20;
// A read brings in the pages around it as well (the system maps ahead on a fault).
constexpr uint64_t kMappedAround = 64 << 10;
} // namespace

bool KPPDFDocument::trailerHasEncrypt() const {
    return trailer_ && trailer_->trailerDictionary()->objectForKey("Encrypt");
}

void KPPDFDocument::noteFileOffsetRead(uint64_t offset) {
    // Reads close together share the pages mapped around the first.
    uint64_t window = offset / kMappedAround;
    if (window == lastWindowRead_)
        return;
    lastWindowRead_ = window;
    noteFileBytesRead(0);
}

void KPPDFDocument::noteFileBytesRead(uint64_t length) {
    fileBytesSinceRelease_ += std::max(length, kMappedAround);
    if (fileBytesSinceRelease_ >= kReleaseInterval) {
        docData_.releaseResidentPages();
        fileBytesSinceRelease_ = 0;
    }
}

void KPPDFDocument::useObject(uint32_t number, const std::function<void(KPPDFObject*)>& use) {
    bool unread = isUnread(number);
    PendingEntry place = unread ? pending_[number] : PendingEntry();
    {
        KPPDFRef<KPPDFObject> object = KPPDFObject::resolve(objectWithNumber(number, 0));
        use(object.get());
    }
    // Held by the table alone: nothing refers to it, so it goes back to being a place in the
    // file. (An object in a cycle or held by a caller has more owners and stays.)
    if (unread && number < table_.size() && table_[number] && table_[number].use_count() == 1 &&
        number < pending_.size()) {
        table_[number].reset();
        pending_[number] = place;
    }
}

KPPDFRef<KPPDFObject> KPPDFDocument::objectWithNumber(uint32_t number, uint32_t) const {
    if (number >= table_.size())
        return nullptr;
    if (!table_[number] && number < pending_.size() &&
        pending_[number].generation != kNoPlaceholder) {
        const PendingEntry& entry = pending_[number];
        table_[number] = KPPDFObjectReference::referenceWithObjectNumber(
            number, entry.generation, const_cast<KPPDFDocument*>(this), entry.position);
    }
    return table_[number];
}
