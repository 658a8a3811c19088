#include "kppdf/objects/KPPDFObjectStream.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFFilter.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// Filter chains longer than this are refused (no real file has more than three).
constexpr size_t kMaxFilterChain = 16;

KPPDFPredictorParams predictorParams(const KPPDFRef<KPPDFObject>& parms) {
    KPPDFPredictorParams params;
    KPPDFObjectDictionary* dictionary = parms ? parms->asDictionary() : nullptr;
    if (!dictionary)
        return params;
    auto number = [&](std::string_view key, int fallback) {
        KPPDFRef<KPPDFObject> value = dictionary->resolvedObjectForKey(key);
        return value && value->isNumber() ? static_cast<int>(value->longLongValue()) : fallback;
    };
    params.predictor = number("Predictor", 1);
    params.colors = number("Colors", 1);
    params.bitsPerComponent = number("BitsPerComponent", 8);
    params.columns = number("Columns", 1);
    return params;
}
} // namespace

KPPDFObjectStream::KPPDFObjectStream() { objectType_ = KPPDFObjectTypeStream; }

KPPDFRef<KPPDFObjectStream> KPPDFObjectStream::streamAtOffset(
    uint64_t offset, KPPDFDocument* document, KPPDFRef<KPPDFObjectDictionary> dictionary) {
    return streamAtOffset(offset, document, document ? document->docData() : KPPDFData(),
                          std::move(dictionary));
}

KPPDFRef<KPPDFObjectStream> KPPDFObjectStream::streamAtOffset(
    uint64_t offset, KPPDFDocument* document, const KPPDFData& data,
    KPPDFRef<KPPDFObjectDictionary> dictionary) {
    if (!dictionary)
        return nullptr;
    auto stream = std::make_shared<KPPDFObjectStream>();
    stream->document_ = document;
    stream->setDictionary(std::move(dictionary));
    if (!stream->readAtOffset(offset, data))
        return nullptr;
    return stream;
}

uint64_t KPPDFObjectStream::dataStart(const KPPDFData& data, uint64_t offset, bool* crAlone) {
    const char* base = data.chars();
    const uint64_t length = data.length();
    uint64_t start = offset + 6;
    if (start < length && base[start] == '\r') {
        bool alone = start + 1 >= length || base[start + 1] != '\n';
        if (crAlone)
            *crAlone = alone;
        return start + (alone ? 1 : 2);
    }
    return start < length && base[start] == '\n' ? start + 1 : start;
}

bool KPPDFObjectStream::declaredLengthEnds(const KPPDFData& data, uint64_t start, uint64_t declared,
                                           uint64_t* end) {
    const char* base = data.chars();
    const uint64_t length = data.length();
    if (start > length || declared > length - start)
        return false;
    uint64_t p = start + declared;
    if (p < length && base[p] == '\r')
        p++;
    if (p < length && base[p] == '\n')
        p++;
    if (length - p < 9 || std::memcmp(base + p, "endstream", 9) != 0)
        return false;
    *end = p + 9;
    return true;
}

bool KPPDFObjectStream::readAtOffset(uint64_t offset, const KPPDFData& data) {
    uint64_t length = data.length();
    const char* base = data.chars();
    if (offset > length || length - offset < 6 || std::memcmp(base + offset, "stream", 6) != 0)
        return false;
    rawData_ = data;
    bool crAlone = false;
    uint64_t start = dataStart(data, offset, &crAlone);
    if (crAlone)
        KPPDFLog("CR alone not allowed after 'stream' (3.2.7 in PDFReference");
    std::string_view text(base, length);
    uint64_t declared = UINT64_MAX;
    if (KPPDFRef<KPPDFObject> lengthObject = dictionary_->resolvedObjectForKey("Length");
        lengthObject && lengthObject->objectType() == KPPDFObjectTypeInteger &&
        lengthObject->longLongValue() >= 0)
        declared = static_cast<uint64_t>(lengthObject->longLongValue());

    uint64_t dataLength = 0;
    uint64_t end = 0; // one past "endstream"
    bool found = false;
    if (declared != UINT64_MAX && declaredLengthEnds(data, start, declared, &end)) {
        dataLength = declared;
        found = true;
    }
    if (!found) {
        // A Length that is missing, too small or too large: the keyword is searched for.
        KPPDFLog("endstream expected but not found");
        size_t hit = text.find("endstream", start);
        if (hit == std::string_view::npos) {
            dataLength = length - start;
            end = length;
        } else {
            // The data ends before the line end that precedes the keyword.
            uint64_t stop = hit;
            if (stop > start && base[stop - 1] == '\n')
                stop--;
            if (stop > start && base[stop - 1] == '\r')
                stop--;
            dataLength = stop - start;
            end = hit + 9;
        }
    }
    if (start > UINT32_MAX || dataLength > UINT32_MAX)
        return false;
    streamRange_ = {static_cast<uint32_t>(start), static_cast<uint32_t>(dataLength)};
    uint64_t dictionaryStart = dictionary_->offset();
    if (dictionaryStart <= offset && end - dictionaryStart <= UINT32_MAX) {
        dataRange_ = {static_cast<uint32_t>(dictionaryStart),
                      static_cast<uint32_t>(end - dictionaryStart)};
        rawLength_ = static_cast<uint32_t>(end - dictionaryStart);
    } else {
        rawLength_ = static_cast<uint32_t>(end - offset);
    }
    decrypted_ = !needsDecryption();
    return true;
}

KPPDFRef<KPPDFObjectStream> KPPDFObjectStream::streamWithData(const KPPDFData& data,
                                                              KPPDFRange range) {
    return streamWithDictionary(std::make_shared<KPPDFObjectDictionary>(), data, range);
}

KPPDFRef<KPPDFObjectStream> KPPDFObjectStream::streamWithDictionary(
    KPPDFRef<KPPDFObjectDictionary> dictionary, const KPPDFData& data, KPPDFRange range) {
    auto stream = std::make_shared<KPPDFObjectStream>();
    stream->setDictionary(dictionary ? std::move(dictionary)
                                     : std::make_shared<KPPDFObjectDictionary>());
    stream->rawData_ = data;
    if (range.end() > data.length())
        range = {0, static_cast<uint32_t>(std::min<size_t>(data.length(), UINT32_MAX))};
    stream->streamRange_ = range;
    return stream;
}

KPPDFRef<KPPDFObjectStream> KPPDFObjectStream::streamByDeflatingData(std::string_view data) {
    if (data.size() > UINT32_MAX)
        return nullptr;
    uint32_t inputLength = static_cast<uint32_t>(data.size());
    uint32_t capacity = KPPDFDeflateBound(inputLength);
    std::string compressed(capacity, '\0');
    uint32_t outputLength = capacity;
    if (KPPDFDeflate(reinterpret_cast<const uint8_t*>(data.data()), inputLength,
                     reinterpret_cast<uint8_t*>(compressed.data()), &outputLength) != 1)
        return nullptr;
    compressed.resize(outputLength);
    auto dictionary = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    dictionary->setObject(KPPDFObjectName::nameWithString("FlateDecode"), "Filter");
    dictionary->setObject(KPPDFObjectInteger::integerWithLongLong(outputLength), "Length");
    auto stream = std::make_shared<KPPDFObjectStream>();
    stream->setDictionary(std::move(dictionary));
    stream->rawData_ = KPPDFData(std::move(compressed));
    stream->streamRange_ = {0, outputLength};
    return stream;
}

bool KPPDFObjectStream::needsDecryption() const {
    return document_ && !document_->encryptKey().empty() && document_->encryptionStatus() == 1;
}

std::string_view KPPDFObjectStream::rangeBytes() const {
    if (rawData_.isNull() || streamRange_.end() > rawData_.length())
        return {};
    return std::string_view(rawData_.chars() + streamRange_.location, streamRange_.length);
}

KPPDFData KPPDFObjectStream::rawData() {
    if (!decrypted_ && needsDecryption() && objectNumber_) {
        std::string bytes(rangeBytes());
        document_->cryptBytes(bytes, objectNumber_, generation_);
        uint32_t length = static_cast<uint32_t>(bytes.size());
        rawData_ = KPPDFData(std::move(bytes));
        streamRange_ = {0, length};
        decrypted_ = true;
    }
    return rawData_.subdata(streamRange_.location, streamRange_.length);
}

void KPPDFObjectStream::setRawData(const KPPDFData& data) {
    rawData_ = data;
    streamRange_ = {0, static_cast<uint32_t>(std::min<size_t>(data.length(), UINT32_MAX))};
    decodedData_ = KPPDFData();
    decrypted_ = true;
}

void KPPDFObjectStream::updateRawData(const KPPDFData& data) {
    setRawData(data);
    if (!dictionary_)
        setDictionary(std::make_shared<KPPDFObjectDictionary>());
    KPPDFRef<KPPDFObject> entry = dictionary_->objectForKey("Length");
    KPPDFRef<KPPDFObject> target = KPPDFObject::resolve(entry);
    if (KPPDFObjectInteger* integer = target ? target->asInteger() : nullptr) {
        integer->setLongLongValue(static_cast<long long>(streamRange_.length));
        if (entry != target && document_ && target->objectNumber())
            document_->setObject(target, target->objectNumber(), target->generation());
    } else {
        dictionary_->setObject(KPPDFObjectInteger::integerWithLongLong(streamRange_.length),
                               "Length");
    }
}

void KPPDFObjectStream::setDictionary(KPPDFRef<KPPDFObjectDictionary> dictionary) {
    dictionary_ = std::move(dictionary);
    if (dictionary_)
        dictionary_->setContainer(this);
}

KPPDFData KPPDFObjectStream::decodedData() {
    if (!decodedData_.isNull())
        return decodedData_;
    KPPDFData raw = rawData();
    // The first filter reads the raw bytes where they are; each later one the output of the
    // one before.
    std::string current;
    bool fromRaw = true;
    KPPDFRef<KPPDFObject> filterEntry = dictionary_ ? dictionary_->resolvedObjectForKey("Filter")
                                                    : nullptr;
    KPPDFRef<KPPDFObject> parmsEntry = dictionary_ ? dictionary_->resolvedObjectForKey("DecodeParms")
                                                   : nullptr;
    KPPDFObjectList filters, parms;
    if (filterEntry && filterEntry->asName())
        filters.push_back(filterEntry);
    else if (filterEntry && filterEntry->asArray())
        filters = filterEntry->asArray()->value();
    if (parmsEntry && parmsEntry->asArray())
        parms = parmsEntry->asArray()->value();
    else if (parmsEntry)
        parms.push_back(parmsEntry);
    if (filters.size() > kMaxFilterChain) {
        KPPDFLog("Unsupported filter: chain of %zu filters", filters.size());
        filters.clear();
        fromRaw = false;
    }
    for (size_t i = 0; i < filters.size(); i++) {
        std::string_view input = fromRaw ? raw.view() : std::string_view(current);
        if (!input.data())
            input = std::string_view("", 0); // the decoders take a null pointer for bad input
        KPPDFRef<KPPDFObject> filter = KPPDFObject::resolve(filters[i]);
        std::string name = filter && filter->asName() ? filter->asName()->value() : "";
        std::string next;
        if (name == "FlateDecode" || name == "Fl") {
            if (input.size() > UINT32_MAX ||
                !KPPDFFlateDecode(reinterpret_cast<const uint8_t*>(input.data()),
                                  static_cast<uint32_t>(input.size()), &next))
                next.clear();
            KPPDFRef<KPPDFObject> parm = i < parms.size() ? KPPDFObject::resolve(parms[i]) : nullptr;
            KPPDFPredictorParams params = predictorParams(parm);
            if (params.predictor > 1)
                KPPDFApplyPredictor(params, &next);
        } else if (name == "ASCII85Decode" || name == "A85") {
            if (!KPPDFStreamDecode85(reinterpret_cast<const uint8_t*>(input.data()), input.size(),
                                     &next))
                next.clear();
        } else if (name == "DCTDecode" || name == "DCT") {
            if (!KPPDFDecodeDCT(reinterpret_cast<const uint8_t*>(input.data()), input.size(), &next,
                                nullptr, nullptr, nullptr))
                next.clear();
        } else {
            KPPDFLog("Unsupported filter: %s", name.c_str());
            next.clear();
        }
        current.swap(next);
        fromRaw = false;
    }
    decodedData_ = fromRaw ? KPPDFData(std::string(raw.view())) : KPPDFData(std::move(current));
    return decodedData_;
}

KPPDFRef<KPPDFObject> KPPDFObjectStream::resolvedObjectForKey(std::string_view key) {
    return dictionary_ ? dictionary_->resolvedObjectForKey(key) : nullptr;
}

bool KPPDFObjectStream::appendDirectObject(std::string& out) {
    if (!dictionary_)
        return false;
    KPPDFWriteContext* context = KPPDFWriteContext::current();
    const char* eol = context ? context->eol : document_ ? document_->EOL() : "\n";
    size_t eolLength = context ? std::strlen(context->eol)
                               : document_ ? static_cast<size_t>(document_->EOLLength()) : 1;
    // Still encrypted as read: decrypted where it is copied to, not kept decrypted, so that
    // writing a file leaves nothing behind in its streams.
    bool decryptHere = !decrypted_ && needsDecryption() && objectNumber_;
    KPPDFData bytes = decryptHere ? KPPDFData() : rawData();
    std::string_view data = decryptHere ? rangeBytes() : bytes.view();
    out.reserve(out.size() + data.size() + 128);
    if (!dictionary_->appendDirectObject(out))
        return false;
    out.append(eol, eolLength);
    out.append("stream\r\n");
    size_t start = out.size();
    out.append(data);
    if (decryptHere)
        document_->cryptBytes(out, objectNumber_, generation_, start);
    if (context && context->encryptingDocument && context->currentNumber)
        context->encryptingDocument->cryptBytes(out, context->currentNumber,
                                                context->currentGeneration, start);
    else if (!context && document_ && !document_->encryptKey().empty() &&
             document_->encryptionStatus() == 2 && objectNumber_)
        document_->cryptBytes(out, objectNumber_, generation_, start);
    out.append(eol, eolLength);
    out.append("endstream");
    return true;
}

KPPDFAttributedString KPPDFObjectStream::attributedObject() {
    KPPDFAttributedString result = dictionary_ ? dictionary_->attributedObject()
                                               : KPPDFAttributedString();
    char text[64];
    std::snprintf(text, sizeof text, " stream (%u bytes)", streamRange_.length);
    result.append(text);
    return result;
}

KPPDFRef<KPPDFObject> KPPDFObjectStream::copy() const {
    auto copy = std::make_shared<KPPDFObjectStream>();
    copy->document_ = document_;
    if (dictionary_)
        copy->setDictionary(std::static_pointer_cast<KPPDFObjectDictionary>(dictionary_->copy()));
    copy->rawData_ = rawData_;
    copy->streamRange_ = streamRange_;
    copy->decodedData_ = decodedData_;
    copy->decrypted_ = decrypted_;
    return copy;
}

KPPDFObjectList KPPDFObjectStream::subobjects(KPPDFVisitedSet& visited) {
    return dictionary_ ? dictionary_->subobjects(visited) : KPPDFObjectList{};
}

void KPPDFObjectStream::markSubobjects(KPPDFMarkBytes& marks) {
    if (dictionary_)
        dictionary_->markSubobjects(marks);
}

void KPPDFObjectStream::fixReferences(const KPPDFReferenceFixMap& map) {
    if (dictionary_)
        dictionary_->fixReferences(map);
}

void KPPDFObjectStream::setDocument(KPPDFDocument* document) {
    document_ = document;
    if (dictionary_)
        dictionary_->setDocument(document);
}

std::string KPPDFObjectStream::description() const {
    char text[96];
    std::snprintf(text, sizeof text, "<KPPDFObjectStream, 0x%08X>: %u bytes, ",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)), streamRange_.length);
    return text + (dictionary_ ? dictionary_->description() : std::string("no dictionary"));
}

void KPPDFObjectStream::disconnect() {
    KPPDFObject::disconnect();
    if (dictionary_)
        dictionary_->disconnect();
}
