#include "kppdf/objects/KPPDFObjectArray.h"

#include <cstdio>
#include <cstring>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/internal/KPPDFGraphWalk.h"
#include "kppdf/objects/internal/KPPDFLazyScan.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// The document an unread array from a file body is left with when its own goes away: one with
// no objects, so that the array still reads "N G R" as references when it is read at last,
// and they lead nowhere, as every reference of a document that is gone does.
KPPDFDocument* detachedDocument() {
    static KPPDFDocument* const document = new KPPDFDocument(); // lives as long as the process
    return document;
}
} // namespace

KPPDFObjectArray::KPPDFObjectArray() { objectType_ = KPPDFObjectTypeArray; }

KPPDFObjectArray::KPPDFObjectArray(KPPDFObjectList list) : KPPDFObjectArray() {
    list_ = std::move(list);
    parsed_ = true;
}

KPPDFObjectArray::~KPPDFObjectArray() {
    for (auto& element : list_)
        if (element && element->directContainer() == this)
            element->KPPDFObject::setContainer(nullptr);
}

KPPDFRef<KPPDFObjectArray> KPPDFObjectArray::arrayAtOffset(uint64_t offset,
                                                           KPPDFDocument* document,
                                                           const KPPDFData& data, bool directOnly,
                                                           bool inText, bool contained) {
    if (offset >= data.length() || data.bytes()[offset] != '[')
        return nullptr;
    auto array = std::make_shared<KPPDFObjectArray>();
    array->document_ = document;
    array->objectData_ = data;
    array->offset_ = offset;
    array->directOnly_ = directOnly;
    array->inText_ = inText;
    if (directOnly || inText) {
        if (!array->parse())
            return nullptr;
    } else if (contained) {
        // Inside a dictionary being read, a plain array (a page's Annots, its MediaBox, a
        // node's Kids) waits for its first use too: most are never looked at.
        uint32_t plainLength = KPPDFPlainArrayLength(data, offset);
        if (plainLength)
            array->rawLength_ = plainLength;
        else if (!array->parse())
            return nullptr;
    } else {
        array->rawLength_ = KPPDFLazyObjectLength(data, offset, false);
    }
    return array;
}

KPPDFRef<KPPDFObjectArray> KPPDFObjectArray::arrayWithArray(KPPDFObjectList list) {
    return std::make_shared<KPPDFObjectArray>(std::move(list));
}

KPPDFObjectList& KPPDFObjectArray::value() {
    if (!parsed_ && !objectData_.isNull())
        parse();
    return list_;
}

void KPPDFObjectArray::setValue(KPPDFObjectList list) {
    list_ = std::move(list);
    parsed_ = true;
    objectData_ = KPPDFData();
}

KPPDFRef<KPPDFObject> KPPDFObjectArray::resolvedObjectAtIndex(size_t index) {
    KPPDFObjectList& list = value();
    return index < list.size() ? KPPDFObject::resolve(list[index]) : nullptr;
}

void KPPDFObjectArray::addObject(KPPDFRef<KPPDFObject> object) {
    if (!object)
        return;
    value();
    object->setContainer(this);
    list_.push_back(std::move(object));
}

void KPPDFObjectArray::keepOwnBytes() {
    if (parsed_ || objectData_.isNull() || !document_ || document_ == detachedDocument() ||
        objectData_.sharesStorageWith(document_->docData()) || offset_ >= objectData_.length())
        return;
    uint64_t end = std::min<uint64_t>(offset_ + rawLength_, objectData_.length());
    objectData_ = KPPDFData::dataWithBytes(objectData_.bytes() + offset_,
                                           static_cast<size_t>(end - offset_));
    offset_ = 0;
}

bool KPPDFObjectArray::plainNumbers(float* values, size_t capacity, size_t* count) const {
    return !parsed_ && !objectData_.isNull() &&
           KPPDFPlainArrayNumbers(objectData_, offset_, values, capacity, count);
}

bool KPPDFObjectArray::parse() {
    if (parsed_)
        return true;
    const KPPDFData data = objectData_;
    if (offset_ >= data.length() || data.bytes()[offset_] != '[') {
        parsed_ = true;
        objectData_ = KPPDFData();
        return false;
    }
    list_.clear();
    const char* base = data.chars();
    uint64_t length = data.length();
    uint64_t position = offset_ + 1;
    bool closed = false;
    while (true) {
        while (position < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[position])))
            position++;
        if (position >= length)
            break;
        if (base[position] == ']') {
            position++;
            closed = true;
            break;
        }
        KPPDFRef<KPPDFObject> element =
            KPPDFDocument::parseObject(document_, position, data, directOnly_, true);
        if (!element || element->rawLength() == 0) {
            KPPDFLog("Unable to parse array element at index: %d", static_cast<int>(list_.size()));
            // The array ends at the element it could not read.
            break;
        }
        element->setContainer(this);
        // Elements report their length from their first token; whitespace and comments before
        // it were skipped by the parser, so advance from where the token really started.
        position = element->dataRange().location + element->rawLength();
        bool endsOpen = KPPDFContainerEndsOpen(*element, data, position);
        list_.push_back(std::move(element));
        if (endsOpen)
            break;
    }
    (void)closed;
    rawLength_ = static_cast<uint32_t>(position - offset_);
    parsed_ = true;
    for (auto& element : list_)
        if (KPPDFObjectArray* nested = element->asArray())
            nested->keepOwnBytes();
    objectData_ = KPPDFData();
    if (document_ == detachedDocument())
        setDocument(nullptr);
    return true;
}

bool KPPDFObjectArray::appendDirectObject(std::string& out) {
    if (!parsed_ && !objectData_.isNull() && offset_ < objectData_.length()) {
        uint64_t end = std::min<uint64_t>(offset_ + rawLength_, objectData_.length());
        KPPDFAppendUntouchedObject(*this, objectData_, offset_, end - offset_, out);
        return true;
    }
    out.append("[ ");
    for (auto& element : list_) {
        if (!element || !element->appendDirectObject(out))
            out.append("null");
        out.push_back(' ');
    }
    out.push_back(']');
    return true;
}

KPPDFAttributedString KPPDFObjectArray::attributedObject() {
    KPPDFAttributedString result("[ ");
    for (auto& element : value()) {
        if (element)
            result.append(element->attributedObject());
        result.append(" ");
    }
    result.append("]");
    return result;
}

KPPDFRef<KPPDFObject> KPPDFObjectArray::copy() const {
    auto& self = const_cast<KPPDFObjectArray&>(*this);
    auto copy = std::make_shared<KPPDFObjectArray>();
    copy->document_ = document_;
    if (!parsed_ && !objectData_.isNull()) {
        // Unread, the copy reads the same bytes when it is first used: its elements will be
        // fresh objects all the same, and this array stays unread.
        copy->objectData_ = objectData_;
        copy->offset_ = offset_;
        copy->rawLength_ = rawLength_;
        copy->directOnly_ = directOnly_;
        copy->inText_ = inText_;
        return copy;
    }
    copy->parsed_ = true;
    for (auto& element : self.value()) {
        if (!element)
            continue;
        KPPDFRef<KPPDFObject> elementCopy = element->copy();
        elementCopy->setContainer(copy.get());
        copy->list_.push_back(std::move(elementCopy));
    }
    return copy;
}

KPPDFObjectList KPPDFObjectArray::subobjects(KPPDFVisitedSet& visited) {
    return KPPDFWalkSubobjects(*this, visited);
}

void KPPDFObjectArray::markSubobjects(KPPDFMarkBytes& marks) {
    KPPDFWalkMarkSubobjects(*this, marks);
}

void KPPDFObjectArray::fixReferences(const KPPDFReferenceFixMap& map) {
    for (auto& element : value())
        if (element)
            element->fixReferences(map);
}

void KPPDFObjectArray::setDocument(KPPDFDocument* document) {
    document_ = document;
    for (auto& element : list_)
        if (element)
            element->setDocument(document);
}

void KPPDFObjectArray::setContainer(KPPDFObject* container) {
    container_ = container;
    for (auto& element : list_)
        if (element)
            element->KPPDFObject::setContainer(this);
}

std::string KPPDFObjectArray::description() const {
    std::string text = "<KPPDFObjectArray>: (";
    for (size_t i = 0; i < list_.size(); i++) {
        if (i)
            text += ", ";
        text += list_[i] ? list_[i]->description() : "nil";
    }
    return text + ")";
}

void KPPDFObjectArray::disconnect() {
    if (!parsed_ && !objectData_.isNull() && !directOnly_ && document_) {
        KPPDFObject::disconnect();
        document_ = detachedDocument();
        return;
    }
    KPPDFObject::disconnect();
    for (auto& element : list_)
        if (element)
            element->disconnect();
}

std::string_view KPPDFObjectArray::untouchedBytes() const {
    if (parsed_ || objectData_.isNull() || offset_ >= objectData_.length())
        return {};
    uint64_t end = std::min<uint64_t>(offset_ + rawLength_, objectData_.length());
    return std::string_view(objectData_.chars() + offset_, static_cast<size_t>(end - offset_));
}
