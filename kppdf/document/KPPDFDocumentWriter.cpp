// Writing a document: a complete new file, the working bytes with an update appended, or the
// object table as one flat file.
#include <uuid/uuid.h>

#include <algorithm>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFDocumentSaveProgress.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/document/internal/KPPDFWriteSession.h"
#include "kppdf/objects/KPPDFFilter.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFFileOutput.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFNotificationCenter.h"

const char KPPDFDocumentSaveProgress[] = "KPPDFDocumentSaveProgress";

namespace {
// The version this system records in the trailers it writes.
constexpr char kParvelVersion[] = "3.0.2";

KPPDFRef<KPPDFObjectReference> plainReferenceTo(const KPPDFRef<KPPDFObject>& object) {
    return KPPDFObjectReference::referenceWithObject(object);
}

// A dictionary holding the same entries as another, which stay where they are: their
// containers are not changed, so their strings keep decrypting with their own object's key.
KPPDFRef<KPPDFObjectDictionary> sharingCopy(KPPDFObjectDictionary& source) {
    auto copy = std::make_shared<KPPDFObjectDictionary>();
    copy->value() = source.value();
    copy->setDocument(source.document());
    return copy;
}

// Writes references with the numbers their targets already have; nothing is encrypted. Used
// for the working bytes, which are always plain.
class KPPDFSameNumbers : public KPPDFWriteContext {
public:
    explicit KPPDFSameNumbers(KPPDFDocument& document)
        : eolText_(document.EOL(), static_cast<size_t>(document.EOLLength())) {
        eol = eolText_.c_str();
    }
    bool numberForObject(const KPPDFObject* target, uint32_t* number,
                         uint32_t* generation) override {
        if (!target || !target->objectNumber())
            return false;
        *number = target->objectNumber();
        *generation = target->generation();
        return true;
    }
    bool numberForReference(KPPDFDocument*, uint32_t number, uint32_t generation,
                            uint32_t* newNumber, uint32_t* newGeneration) override {
        *newNumber = number;
        *newGeneration = generation;
        return true;
    }

private:
    std::string eolText_;
};

void appendEntry(std::string& out, uint64_t offset, uint32_t generation, bool inUse) {
    char entry[32];
    std::snprintf(entry, sizeof entry, "%010llu %05u %c \n", static_cast<unsigned long long>(offset),
                  generation, inUse ? 'n' : 'f');
    out.append(entry, 20);
}

void appendStartxref(std::string& out, const std::string& eol, uint64_t xref) {
    out.append(eol);
    out.append("startxref");
    out.append(eol);
    char number[24];
    char* p = number;
    KPPDFObjectUnsigned64ToStringInPlace(xref, &p);
    out.append(number, static_cast<size_t>(p - number));
    out.append(eol);
    out.append("%%EOF");
    out.append(eol);
}
} // namespace

std::string KPPDFDocument::uuidData() {
    uuid_t fresh;
    uuid_generate(fresh);
    return std::string(reinterpret_cast<const char*>(fresh), sizeof fresh);
}

bool KPPDFDocument::isJPEG(const std::string& path) {
    KPPDFData file = KPPDFData::dataWithContentsOfFile(path);
    return !file.isNull() && KPPDFReadJPEGHeader(file.bytes(), file.length(), nullptr, nullptr,
                                                 nullptr);
}

std::string KPPDFDocument::permanentID() {
    KPPDFRef<KPPDFObjectDictionary> trailerDictionary = trailer_ ? trailer_->trailerDictionary() : nullptr;
    KPPDFRef<KPPDFObjectArray> identifier =
        trailerDictionary ? trailerDictionary->resolvedObjectForKey<KPPDFObjectArray>("ID") : nullptr;
    KPPDFRef<KPPDFObjectString> first =
        identifier ? KPPDFResolve<KPPDFObjectString>(identifier->resolvedObjectAtIndex(0)) : nullptr;
    return first ? first->stringValue() : std::string();
}

std::string KPPDFDocument::currentDataWithImprints(bool imprints, int32_t compression) {
    if (!imprints)
        return rootObject_ ? dataWithoutImprints() : std::string();
    std::string out;
    if (!writeDataWithImprints(nullptr, compression, &out))
        out.clear();
    return out;
}

bool KPPDFDocument::writeDataWithImprints(const std::function<bool(std::string_view)>& sink,
                                          int32_t compression, std::string* whole) {
    if (!rootObject_)
        return false;
    KPPDFWriteSession session(*this);
    if (encryptionStatus_ == 2 && !encryptKey_.empty() && encryptDictionary_)
        session.encryptingDocument = this;

    // The old page tree's nodes give way to one new root that holds every page in list order.
    auto newPages = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    KPPDFObjectList oldNodes;
    std::vector<KPPDFRef<KPPDFObjectDictionary>> oldLeaves;
    if (pagesObject_) {
        session.substitute(pagesObject_.get(), newPages);
        if (auto kids = pagesObject_->resolvedObjectForKey<KPPDFObjectArray>("Kids"))
            processKids(kids, oldNodes, oldLeaves);
        for (auto& node : oldNodes)
            session.substitute(KPPDFObject::resolve(node).get(), newPages);
    }
    long long oldCount = 0;
    if (pagesObject_)
        if (auto count = pagesObject_->resolvedObjectForKey("Count"))
            oldCount = count->longLongValue();

    // A page reached from an earlier one (an annotation's P, a link's destination) is written
    // once, as its copy, not also as its old dictionary.
    for (const auto& page : pages_)
        if (KPPDFRef<KPPDFObjectDictionary> dictionary = page->pageDictionary())
            session.defer(dictionary.get());
    KPPDFObjectList kids;
    kids.reserve(pages_.size());
    KPPDFNotificationCenter& center = KPPDFNotificationCenter::defaultCenter();
    for (size_t i = 0; i < pages_.size(); i++) {
        KPPDFRef<KPPDFObjectDictionary> copy =
            transplantPage(*pages_[i], true, session, newPages, static_cast<float>(compression));
        if (copy) {
            kids.push_back(session.referenceTo(copy));
            session.add(copy);
            session.follow();
        }
        // Measured against the old tree's Count, as it always was.
        center.postNotification(KPPDFDocumentSaveProgress, this,
                                {{"Percentage", oldCount > 0 ? static_cast<double>(i) /
                                                                   static_cast<double>(oldCount)
                                                             : 0.0}});
    }
    newPages->setObject(KPPDFObjectName::nameWithString("Pages"), "Type");
    newPages->setObject(KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(kids.size())),
                        "Count");
    newPages->setObject(KPPDFObjectArray::arrayWithArray(std::move(kids)), "Kids");
    session.add(newPages);

    KPPDFRef<KPPDFObjectDictionary> catalog = sharingCopy(*rootObject_);
    catalog->value()["Pages"] = session.referenceTo(newPages);
    session.substitute(rootObject_.get(), catalog);
    session.add(catalog);
    session.follow();

    auto trailerEntries = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    trailerEntries->setObject(session.referenceTo(catalog), "Root");
    trailerEntries->setObject(KPPDFObjectString::stringWithString(kParvelVersion), "ParvelVersion");
    if (trailer_ && trailer_->trailerDictionary()) {
        if (KPPDFRef<KPPDFObject> info =
                KPPDFObject::resolve(trailer_->trailerDictionary()->objectForKey("Info"));
            info && info->asDictionary()) {
            session.add(info);
            session.follow();
            trailerEntries->setObject(session.referenceTo(info), "Info");
        }
    }
    KPPDFRef<KPPDFObjectDictionary> encrypt;
    if (encryptionStatus_ != 1 && encryptDictionary_ && !encryptKey_.empty()) {
        encrypt = sharingCopy(*encryptDictionary_);
        session.add(encrypt);
        session.follow();
        trailerEntries->setObject(session.referenceTo(encrypt), "Encrypt");
    }
    if (docID_)
        trailerEntries->setObject(docID_, "ID");
    if (whole)
        return session.write(*trailerEntries, encrypt.get(), *whole);
    std::string buffer;
    return session.write(*trailerEntries, encrypt.get(), buffer, &sink);
}

std::string KPPDFDocument::dataWithoutImprints() {
    std::string out(docData_.view());
    std::string eol(eol_, static_cast<size_t>(eolLength_));
    if (!out.empty() && out.back() != '\n' && out.back() != '\r')
        out.append(eol);
    KPPDFSameNumbers context(*this);
    KPPDFWriteContext::Scope scope(&context);
    uint32_t nextNumber = std::max<uint32_t>(objectCount_, tableSize());
    if (nextNumber == 0)
        nextNumber = 1;
    auto numberNew = [&](const KPPDFRef<KPPDFObject>& object) {
        if (!object->objectNumber())
            setObject(object, nextNumber++, 0);
    };

    // The pages without the overlays an earlier save put into their content.
    auto newPages = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    numberNew(newPages);
    KPPDFObjectList changed;
    KPPDFObjectList kids;
    for (auto& page : pages_) {
        KPPDFRef<KPPDFObjectDictionary> dictionary = page->pageDictionary();
        if (!dictionary)
            continue;
        numberNew(dictionary);
        KPPDFObjectList contents;
        KPPDFRef<KPPDFObject> entry = dictionary->objectForKey("Contents");
        KPPDFRef<KPPDFObject> resolved = KPPDFObject::resolve(entry);
        if (resolved && resolved->asStream())
            contents.push_back(entry);
        else if (resolved && resolved->asArray())
            contents = resolved->asArray()->value();
        if (auto stored = dictionary->resolvedObjectForKey<KPPDFObjectArray>("ParvelImprints")) {
            for (auto& record : stored->value()) {
                KPPDFRef<KPPDFObjectStream> placement = KPPDFResolve<KPPDFObjectStream>(record);
                if (!placement)
                    continue;
                auto flattened = placement->resolvedObjectForKey("Flattened");
                if (flattened && flattened->asBoolean() && flattened->asBoolean()->boolValue())
                    continue;
                std::erase_if(contents, [&](const KPPDFRef<KPPDFObject>& element) {
                    return KPPDFObject::resolve(element) == placement;
                });
            }
        }
        KPPDFObjectMap& entries = dictionary->value();
        entries["Contents"] = KPPDFObjectArray::arrayWithArray(std::move(contents));
        for (const char* key : {"MediaBox", "CropBox", "Rotate"})
            if (!dictionary->hasValueForKey(key))
                if (KPPDFRef<KPPDFObject> inherited = dictionary->objectFromAncestorsForKey(key))
                    entries[key] = inherited;
        entries.erase("ParvelImprints");
        entries["Parent"] = plainReferenceTo(newPages);
        kids.push_back(plainReferenceTo(dictionary));
        changed.push_back(dictionary);
    }
    newPages->setObject(KPPDFObjectName::nameWithString("Pages"), "Type");
    newPages->setObject(KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(kids.size())),
                        "Count");
    newPages->setObject(KPPDFObjectArray::arrayWithArray(std::move(kids)), "Kids");
    changed.push_back(newPages);
    rootObject_->value()["Pages"] = plainReferenceTo(newPages);
    numberNew(rootObject_);
    changed.push_back(rootObject_);

    std::vector<std::pair<uint32_t, uint64_t>> entries;
    for (auto& object : changed) {
        entries.emplace_back(object->objectNumber(), out.size());
        object->appendIndirectObject(out);
    }
    uint64_t xref = out.size();
    out.append("xref");
    out.append(eol);
    char line[32];
    for (auto& [number, offset] : entries) {
        std::snprintf(line, sizeof line, "%u 1\n", number);
        out.append(line);
        appendEntry(out, offset, 0, true);
    }
    auto trailerEntries = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    trailerEntries->setObject(plainReferenceTo(rootObject_), "Root");
    trailerEntries->setObject(KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(startxref_)),
                              "Prev");
    trailerEntries->setObject(KPPDFObjectInteger::integerWithLongLong(nextNumber), "Size");
    if (docID_)
        trailerEntries->setObject(docID_, "ID");
    out.append("trailer");
    out.append(eol);
    trailerEntries->appendDirectObject(out);
    appendStartxref(out, eol, xref);
    objectCount_ = nextNumber;
    return out;
}

std::string KPPDFDocument::changedDocData() {
    std::string eol(eol_, static_cast<size_t>(eolLength_));
    std::string out;
    out.reserve(docData_.length() + 4096);
    out.append("%PDF-1.3");
    out.append(eol);
    KPPDFSameNumbers context(*this);
    KPPDFWriteContext::Scope scope(&context);
    std::vector<std::pair<uint64_t, uint32_t>> offsets(tableSize());
    std::vector<bool> inUse(tableSize(), false);
    uint32_t highest = 0;
    for (uint32_t number = 1; number < tableSize(); number++) {
        KPPDFRef<KPPDFObject> object = KPPDFObject::resolve(objectWithNumber(number, 0));
        if (!object)
            continue;
        highest = number;
        offsets[number] = {out.size(), object->generation()};
        inUse[number] = object->objectType() != KPPDFObjectTypeUnknown;
        object->setObjectNumber(number);
        object->appendIndirectObject(out);
    }
    uint64_t xref = out.size();
    char line[64];
    std::snprintf(line, sizeof line, "xref%s0 %u%s0000000000 65535 f \n", eol.c_str(), highest + 1,
                  eol.c_str());
    out.append(line);
    for (uint32_t number = 1; number <= highest; number++) {
        if (inUse[number])
            appendEntry(out, offsets[number].first, offsets[number].second, true);
        else
            out.append("0000000000 00000 f \n");
    }
    out.append("trailer");
    out.append(eol);
    KPPDFRef<KPPDFObjectDictionary> trailerDictionary =
        trailer_ && trailer_->trailerDictionary() ? sharingCopy(*trailer_->trailerDictionary())
                                                  : std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    trailerDictionary->value().erase("Prev");
    trailerDictionary->value().erase("XRefStm");
    trailerDictionary->setObject(KPPDFObjectInteger::integerWithLongLong(highest + 1), "Size");
    if (docID_)
        trailerDictionary->value()["ID"] = docID_;
    trailerDictionary->appendDirectObject(out);
    appendStartxref(out, eol, xref);
    return out;
}

void KPPDFDocument::updateDocData() {
    std::string flat = changedDocData();
    setDocData(KPPDFData(std::move(flat)));
    refreshDocData();
    std::string plain = currentDataWithImprints(false);
    setDocData(KPPDFData(std::move(plain)));
    refreshDocData();
}

bool KPPDFDocument::writeUpdatedDocument(const std::string& path,
                                         const std::map<std::string, double>& options) {
    auto found = options.find("compression");
    int32_t compression = found == options.end() ? 0 : static_cast<int32_t>(found->second);
    // Written beside the old file, which replaces it at the end: the document may be reading
    // that very file through its mapping while the new one is made.
    return KPPDFWriteFileReplacing(path, [&](const KPPDFByteSink& sink) {
        if (writeDataWithImprints(sink, compression))
            return true;
        if (!rootObject_)
            KPPDFLog("Nothing to write to %s", path.c_str());
        return false;
    });
}
