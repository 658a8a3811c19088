#include "kppdf/objects/KPPDFObjectDictionary.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/internal/KPPDFGraphWalk.h"
#include "kppdf/objects/internal/KPPDFLazyScan.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// "Parent" chains longer than this are taken to be cycles.
constexpr int kMaxParentChain = 256;
// Dictionaries merged deeper than this keep this side's entry.
constexpr int kMaxMergeDepth = 64;

uint64_t skipWhitespaceAndComment(const char* base, uint64_t position, uint64_t length) {
    while (position < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[position])))
        position++;
    if (position < length && base[position] == '%') {
        while (position < length && base[position] != '\r' && base[position] != '\n')
            position++;
        while (position < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[position])))
            position++;
    }
    return position;
}

KPPDFRef<KPPDFObjectDictionary> merge(KPPDFObjectDictionary& mine, KPPDFObjectDictionary& other,
                                      int depth) {
    KPPDFObjectMap result = mine.value();
    KPPDFObjectMap& theirs = other.value();
    for (auto& [key, entry] : result) {
        auto found = theirs.find(key);
        if (found == theirs.end() || !found->second || !entry)
            continue;
        KPPDFObject* otherEntry = found->second.get();
        if (otherEntry->objectType() == KPPDFObjectTypeDictionary && depth < kMaxMergeDepth &&
            entry->objectType() == KPPDFObjectTypeDictionary) {
            entry = merge(*entry->asDictionary(), *otherEntry->asDictionary(), depth + 1);
        } else if (otherEntry->objectType() == KPPDFObjectTypeArray &&
                   entry->objectType() == KPPDFObjectTypeArray) {
            KPPDFObjectList joined = entry->asArray()->value();
            KPPDFObjectList& more = otherEntry->asArray()->value();
            joined.insert(joined.end(), more.begin(), more.end());
            entry = KPPDFObjectArray::arrayWithArray(std::move(joined));
        }
    }
    for (auto& [key, entry] : theirs)
        if (!result.count(key))
            result.emplace(key, entry);
    return KPPDFObjectDictionary::dictionaryWithDictionary(std::move(result));
}
} // namespace

KPPDFObjectDictionary::KPPDFObjectDictionary() { objectType_ = KPPDFObjectTypeDictionary; }

KPPDFObjectDictionary::KPPDFObjectDictionary(KPPDFObjectMap map) : KPPDFObjectDictionary() {
    map_ = std::move(map);
    parsed_ = true;
    for (auto& [key, entry] : map_)
        if (entry)
            entry->setContainer(this);
}

KPPDFObjectDictionary::~KPPDFObjectDictionary() {
    for (auto& [key, entry] : map_)
        if (entry && entry->directContainer() == this)
            entry->KPPDFObject::setContainer(nullptr);
}

KPPDFRef<KPPDFObjectDictionary> KPPDFObjectDictionary::dictionaryAtOffset(
    uint64_t offset, KPPDFDocument* document, const KPPDFData& data, bool directOnly,
    bool contained) {
    if (offset + 1 >= data.length() || data.bytes()[offset] != '<' ||
        data.bytes()[offset + 1] != '<')
        return nullptr;
    auto dictionary = std::make_shared<KPPDFObjectDictionary>();
    dictionary->document_ = document;
    dictionary->objectData_ = data;
    dictionary->offset_ = offset;
    dictionary->directOnly_ = directOnly;
    if (directOnly || contained) {
        if (!dictionary->parse())
            return nullptr;
    } else {
        dictionary->rawLength_ = KPPDFLazyObjectLength(data, offset, true);
    }
    return dictionary;
}

KPPDFRef<KPPDFObjectDictionary> KPPDFObjectDictionary::dictionaryWithDictionary(KPPDFObjectMap map) {
    return std::make_shared<KPPDFObjectDictionary>(std::move(map));
}

KPPDFObjectMap& KPPDFObjectDictionary::value() {
    if (!parsed_ && !objectData_.isNull())
        parse();
    return map_;
}

void KPPDFObjectDictionary::setValue(KPPDFObjectMap map) {
    map_ = std::move(map);
    parsed_ = true;
    for (auto& [key, entry] : map_)
        if (entry)
            entry->setContainer(this);
}

bool KPPDFObjectDictionary::parse() {
    if (parsed_)
        return true;
    parsed_ = true;
    const KPPDFData& data = objectData_;
    uint64_t length = data.length();
    if (offset_ + 1 >= length || data.bytes()[offset_] != '<' || data.bytes()[offset_ + 1] != '<')
        return false;
    map_.clear();
    const char* base = data.chars();
    uint64_t position = offset_ + 2;
    while (true) {
        position = skipWhitespaceAndComment(base, position, length);
        if (position >= length)
            break;
        if (base[position] == '>') {
            if (position + 1 < length && base[position + 1] == '>')
                position += 2;
            // A lone ">" is malformed; the dictionary ends there either way.
            break;
        }
        if (base[position] != '/')
            break; // Malformed: nothing but a key may stand here.
        size_t keyLength = KPPDFObjectName::scanName(base + position, base + length);
        std::string key(base + position + 1, keyLength - 1);
        position = skipWhitespaceAndComment(base, position + keyLength, length);
        KPPDFRef<KPPDFObject> entry =
            KPPDFDocument::parseObject(document_, position, data, directOnly_, true);
        if (!entry || entry->rawLength() == 0) {
            KPPDFLog("Unable to parse dictionary element at index: %d", static_cast<int>(map_.size()));
            break;
        }
        entry->setContainer(this);
        position = entry->dataRange().location + entry->rawLength();
        bool endsOpen = KPPDFContainerEndsOpen(*entry, data, position);
        map_.insert_or_assign(std::move(key), std::move(entry));
        if (endsOpen)
            break;
    }
    rawLength_ = static_cast<uint32_t>(position - offset_);
    // Parsed, the dictionary no longer needs the buffer it was read from; a decoded object
    // stream goes away once nothing read from it holds it.
    for (auto& [key, entry] : map_)
        if (KPPDFObjectArray* array = entry->asArray())
            array->keepOwnBytes();
    objectData_ = KPPDFData();
    return true;
}

KPPDFObjectDictionary::Source KPPDFObjectDictionary::source() const {
    std::string_view bytes = untouchedBytes();
    if (bytes.empty() || bytes.size() > UINT32_MAX)
        return {};
    if (document_ && objectData_.sharesStorageWith(document_->docData()))
        return {objectData_, offset_, static_cast<uint32_t>(bytes.size())};
    return {KPPDFData::dataWithBytes(bytes.data(), bytes.size()), 0,
            static_cast<uint32_t>(bytes.size())};
}

bool KPPDFObjectDictionary::unparse(Source source) {
    if (source.data.isNull() || source.offset >= source.data.length())
        return false;
    for (auto& [key, entry] : map_)
        if (entry && entry.use_count() > 1)
            return false;
    map_ = KPPDFObjectMap();
    objectData_ = std::move(source.data);
    offset_ = source.offset;
    rawLength_ = source.length;
    parsed_ = false;
    return true;
}

KPPDFRef<KPPDFObject> KPPDFObjectDictionary::objectForKey(std::string_view key) {
    KPPDFObjectMap& map = value();
    auto found = map.find(key);
    return found == map.end() ? nullptr : found->second;
}

void KPPDFObjectDictionary::setObject(KPPDFRef<KPPDFObject> object, std::string_view key) {
    KPPDFObjectMap& map = value();
    if (!object) {
        removeObjectForKey(key);
        return;
    }
    object->setContainer(this);
    auto found = map.find(key);
    if (found != map.end())
        found->second = std::move(object);
    else
        map.emplace(std::string(key), std::move(object));
}

void KPPDFObjectDictionary::removeObjectForKey(std::string_view key) {
    KPPDFObjectMap& map = value();
    auto found = map.find(key);
    if (found != map.end())
        map.erase(found);
}

KPPDFRef<KPPDFObject> KPPDFObjectDictionary::resolvedObjectForKey(std::string_view key) {
    return KPPDFObject::resolve(objectForKey(key));
}

bool KPPDFObjectDictionary::hasValueForKey(std::string_view key) {
    return hasValue(resolvedObjectForKey(key));
}

KPPDFRef<KPPDFObject> KPPDFObjectDictionary::objectFromAncestorsForKey(std::string_view key) {
    if (KPPDFRef<KPPDFObject> own = resolvedObjectForKey(key); hasValue(own))
        return own;
    return objectFromParentsForKey(resolvedObjectForKey<KPPDFObjectDictionary>("Parent"), key,
                                   this);
}

KPPDFRef<KPPDFObject>
KPPDFObjectDictionary::objectFromParentsForKey(KPPDFRef<KPPDFObjectDictionary> parent,
                                               std::string_view key,
                                               const KPPDFObjectDictionary* child) {
    for (int i = 0; parent && i < kMaxParentChain; i++) {
        if (parent.get() == child)
            break;
        if (KPPDFRef<KPPDFObject> inherited = parent->resolvedObjectForKey(key);
            hasValue(inherited))
            return inherited;
        parent = parent->resolvedObjectForKey<KPPDFObjectDictionary>("Parent");
    }
    return nullptr;
}

bool KPPDFObjectDictionary::peekEntries(std::span<const std::string_view> keys,
                                        KPPDFRef<KPPDFObject>* values) {
    if (parsed_ || objectData_.isNull())
        return false;
    // The page walk peeks at thousands of dictionaries: the entries' room is kept for the next
    // call on this thread (a call made meanwhile, from a value's parsing, makes its own).
    thread_local std::vector<KPPDFPlainEntry> spare;
    struct Borrowed {
        std::vector<KPPDFPlainEntry> entries = std::move(spare);
        ~Borrowed() {
            entries.clear();
            spare = std::move(entries);
        }
    } borrowed;
    std::vector<KPPDFPlainEntry>& entries = borrowed.entries;
    entries.reserve(16);
    if (!KPPDFPlainDictionaryEntries(objectData_, offset_, &entries))
        return false;
    for (size_t k = 0; k < keys.size(); k++) {
        values[k] = nullptr;
        const KPPDFPlainEntry* last = nullptr;
        for (const KPPDFPlainEntry& entry : entries)
            if (entry.key == keys[k])
                last = &entry;
        if (!last)
            continue;
        KPPDFRef<KPPDFObject> value =
            KPPDFDocument::parseObject(document_, last->offset, objectData_, directOnly_, true);
        if (!value || value->rawLength() == 0) {
            // The parser reads it otherwise: it is to judge the whole.
            std::fill(values, values + keys.size(), nullptr);
            return false;
        }
        value->setContainer(this);
        values[k] = std::move(value);
    }
    return true;
}

bool KPPDFObjectDictionary::hasName(std::string_view key, std::string_view name) {
    KPPDFRef<KPPDFObject> entry = resolvedObjectForKey(key);
    return entry && entry->asName() && entry->asName()->value() == name;
}

void KPPDFObjectDictionary::resolveEntries() {
    for (auto& [key, entry] : value())
        KPPDFObject::resolve(entry);
}

KPPDFRef<KPPDFObjectDictionary> KPPDFObjectDictionary::mergeWithDictionary(
    KPPDFObjectDictionary& other) {
    return merge(*this, other, 0);
}

bool KPPDFObjectDictionary::appendDirectObject(std::string& out) {
    if (!parsed_ && !objectData_.isNull() && offset_ < objectData_.length()) {
        uint64_t end = std::min<uint64_t>(offset_ + rawLength_, objectData_.length());
        KPPDFAppendUntouchedObject(*this, objectData_, offset_, end - offset_, out);
        return true;
    }
    out.append("<< ");
    size_t start = out.size();
    for (auto& [key, entry] : map_) {
        if (!entry)
            continue;
        out.push_back('/');
        out.append(key);
        out.push_back(' ');
        size_t mark = out.size();
        if (!entry->appendDirectObject(out)) {
            out.resize(mark);
            out.append("null");
        }
        out.push_back(' ');
    }
    if (out.size() == start) {
        out.append(">>");
    } else {
        out.back() = '>';
        out.push_back('>');
    }
    return true;
}

KPPDFAttributedString KPPDFObjectDictionary::attributedObject() {
    std::string eol = document_ ? std::string(document_->EOL(), static_cast<size_t>(document_->EOLLength()))
                                : std::string("\n");
    KPPDFObjectMap& map = value();
    KPPDFAttributedString result("<< ");
    std::vector<const std::string*> keys;
    for (auto& [key, entry] : map)
        keys.push_back(&key);
    for (const char* special : {"Type", "Subtype"}) {
        auto found = map.find(std::string_view(special));
        if (found == map.end() || !found->second)
            continue;
        std::string label = "/";
        label.append(special).push_back(' ');
        result.append(label);
        result.append(found->second->attributedObject());
        result.append(eol);
        std::erase_if(keys, [&](const std::string* k) { return *k == special; });
    }
    for (const std::string* key : keys) {
        KPPDFRef<KPPDFObject>& entry = map.find(*key)->second;
        result.append("/" + *key + " ");
        if (entry)
            result.append(entry->attributedObject());
        result.append(keys.size() >= 2 ? eol + "   " : std::string(" "));
    }
    result.append(">>");
    result.replaceOccurrences(eol, "\xC2\xAC");
    return result;
}

KPPDFRef<KPPDFObject> KPPDFObjectDictionary::copy() const {
    auto& self = const_cast<KPPDFObjectDictionary&>(*this);
    auto copy = std::make_shared<KPPDFObjectDictionary>();
    copy->document_ = document_;
    copy->parsed_ = true;
    for (auto& [key, entry] : self.value()) {
        if (!entry)
            continue;
        KPPDFRef<KPPDFObject> entryCopy = entry->copy();
        entryCopy->setContainer(copy.get());
        copy->map_.emplace(key, std::move(entryCopy));
    }
    return copy;
}

KPPDFObjectList KPPDFObjectDictionary::subobjects(KPPDFVisitedSet& visited) {
    return KPPDFWalkSubobjects(*this, visited);
}

void KPPDFObjectDictionary::markSubobjects(KPPDFMarkBytes& marks) {
    KPPDFWalkMarkSubobjects(*this, marks);
}

void KPPDFObjectDictionary::fixReferences(const KPPDFReferenceFixMap& map) {
    for (auto& [key, entry] : value())
        if (entry)
            entry->fixReferences(map);
}

void KPPDFObjectDictionary::setDocument(KPPDFDocument* document) {
    if (document == document_)
        return;
    document_ = document;
    for (auto& [key, entry] : map_)
        if (entry && key != "Parent")
            entry->setDocument(document);
}

void KPPDFObjectDictionary::setContainer(KPPDFObject* container) {
    container_ = container;
    for (auto& [key, entry] : map_)
        if (entry)
            entry->KPPDFObject::setContainer(this);
}

std::string KPPDFObjectDictionary::description() const {
    char head[64];
    std::snprintf(head, sizeof head, "<KPPDFObjectDictionary, 0x%08X>: {",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)));
    std::string text = head;
    for (auto& [key, entry] : map_)
        text += " " + key + " = " + (entry ? entry->description() : "nil") + ";";
    return text + " }";
}

void KPPDFObjectDictionary::disconnect() {
    KPPDFObject::disconnect();
    for (auto& [key, entry] : map_)
        if (entry)
            entry->disconnect();
}

std::string_view KPPDFObjectDictionary::untouchedBytes() const {
    if (parsed_ || objectData_.isNull() || offset_ >= objectData_.length())
        return {};
    uint64_t end = std::min<uint64_t>(offset_ + rawLength_, objectData_.length());
    return std::string_view(objectData_.chars() + offset_, static_cast<size_t>(end - offset_));
}
