// Null, boolean, integer, real and name objects.
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNull.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// Longest number text a real keeps to be written back as it stood.
constexpr size_t kMaxKeptRealText = 32;

bool hasBytesAt(const KPPDFData& data, uint64_t offset, std::string_view bytes) {
    return offset <= data.length() && data.length() - offset >= bytes.size() &&
           std::memcmp(data.bytes() + offset, bytes.data(), bytes.size()) == 0;
}
} // namespace

// ---- null ----

KPPDFObjectNull::KPPDFObjectNull() { objectType_ = KPPDFObjectTypeNull; }

KPPDFRef<KPPDFObjectNull> KPPDFObjectNull::nullObject() {
    return std::make_shared<KPPDFObjectNull>();
}

KPPDFRef<KPPDFObjectNull> KPPDFObjectNull::nullAtOffset(uint64_t offset, KPPDFDocument* document) {
    return nullAtOffset(offset, document ? document->docData() : KPPDFData(), document);
}

KPPDFRef<KPPDFObjectNull> KPPDFObjectNull::nullAtOffset(uint64_t offset, const KPPDFData& data,
                                                        KPPDFDocument* document) {
    if (!hasBytesAt(data, offset, "null"))
        return nullptr;
    auto object = std::make_shared<KPPDFObjectNull>();
    object->document_ = document;
    object->rawLength_ = 4;
    return object;
}

bool KPPDFObjectNull::appendDirectObject(std::string& out) {
    out.append("null");
    return true;
}

KPPDFRef<KPPDFObject> KPPDFObjectNull::resolvedObjectForKey(std::string_view) {
    return std::make_shared<KPPDFObjectNull>();
}

KPPDFRef<KPPDFObject> KPPDFObjectNull::copy() const {
    auto copy = std::make_shared<KPPDFObjectNull>();
    copy->document_ = document_;
    return copy;
}

// ---- boolean ----

KPPDFObjectBoolean::KPPDFObjectBoolean() { objectType_ = KPPDFObjectTypeBoolean; }

KPPDFObjectBoolean::KPPDFObjectBoolean(bool value) : KPPDFObjectBoolean() {
    value_ = value;
    hasValue_ = true;
}

KPPDFRef<KPPDFObjectBoolean> KPPDFObjectBoolean::boolWithBool(bool value) {
    return std::make_shared<KPPDFObjectBoolean>(value);
}

KPPDFRef<KPPDFObjectBoolean> KPPDFObjectBoolean::boolAtOffset(uint64_t offset,
                                                              const KPPDFData& data,
                                                              KPPDFDocument* document) {
    if (offset >= data.length())
        return nullptr;
    auto object = std::make_shared<KPPDFObjectBoolean>();
    object->document_ = document;
    uint8_t first = data.bytes()[offset];
    if (first == 't') {
        if (!hasBytesAt(data, offset, "true"))
            return nullptr;
        object->setBoolValue(true);
        object->rawLength_ = 4;
    } else if (first == 'f') {
        if (!hasBytesAt(data, offset, "false"))
            return nullptr;
        object->setBoolValue(false);
        object->rawLength_ = 5;
    } else {
        KPPDFLog("Boolean value other than true or false found");
        return nullptr;
    }
    return object;
}

bool KPPDFObjectBoolean::appendDirectObject(std::string& out) {
    out.append(boolValue() ? "true" : "false");
    return true;
}

KPPDFRef<KPPDFObject> KPPDFObjectBoolean::copy() const {
    auto copy = std::make_shared<KPPDFObjectBoolean>();
    copy->document_ = document_;
    copy->value_ = value_;
    copy->hasValue_ = hasValue_;
    return copy;
}

// ---- integer ----

KPPDFObjectInteger::KPPDFObjectInteger() { objectType_ = KPPDFObjectTypeInteger; }

KPPDFObjectInteger::KPPDFObjectInteger(long long value) : KPPDFObjectInteger() { value_ = value; }

KPPDFRef<KPPDFObjectInteger> KPPDFObjectInteger::integerWithLongLong(long long value) {
    return std::make_shared<KPPDFObjectInteger>(value);
}

KPPDFRef<KPPDFObjectInteger> KPPDFObjectInteger::integerWithPtr(const char* ptr, uint32_t length,
                                                                KPPDFDocument* document) {
    const char* end = ptr;
    long long value = KPPDFParseSignedDecimal(ptr, ptr + length, &end);
    if (end == ptr)
        return nullptr;
    auto object = std::make_shared<KPPDFObjectInteger>(value);
    object->document_ = document;
    object->rawLength_ = static_cast<uint32_t>(end - ptr);
    return object;
}

uint32_t KPPDFObjectInteger::rawLength() const {
    if (rawLength_ == 0) {
        char buffer[32];
        int n = std::snprintf(buffer, sizeof buffer, "%lld", value_);
        const_cast<KPPDFObjectInteger*>(this)->rawLength_ = static_cast<uint32_t>(n);
    }
    return rawLength_;
}

bool KPPDFObjectInteger::appendDirectObject(std::string& out) {
    // Only the low 32 bits are written.
    char buffer[16];
    char* p = buffer;
    KPPDFObjectSignedToStringInPlace(static_cast<int32_t>(static_cast<uint32_t>(value_)), &p);
    out.append(buffer, static_cast<size_t>(p - buffer));
    return true;
}

KPPDFRef<KPPDFObject> KPPDFObjectInteger::copy() const {
    auto copy = std::make_shared<KPPDFObjectInteger>(value_);
    copy->document_ = document_;
    return copy;
}

std::string KPPDFObjectInteger::description() const {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "<KPPDFObjectInteger, 0x%08X>: %lld",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)), value_);
    return buffer;
}

// ---- real ----

KPPDFObjectReal::KPPDFObjectReal() { objectType_ = KPPDFObjectTypeReal; }

KPPDFObjectReal::KPPDFObjectReal(float value) : KPPDFObjectReal() { value_ = value; }

KPPDFRef<KPPDFObjectReal> KPPDFObjectReal::realWithFloat(float value) {
    return std::make_shared<KPPDFObjectReal>(value);
}

KPPDFRef<KPPDFObjectReal> KPPDFObjectReal::realWithPtr(const char* ptr, uint32_t length,
                                                       KPPDFDocument* document) {
    const char* end = ptr;
    float value = KPPDFObjectStrToFloat(ptr, &end, ptr + length);
    if (end == ptr)
        return nullptr;
    auto object = std::make_shared<KPPDFObjectReal>(value);
    object->document_ = document;
    object->rawLength_ = static_cast<uint32_t>(end - ptr);
    size_t textLength = static_cast<size_t>(end - ptr);
    if (textLength <= kMaxKeptRealText && std::isfinite(value)) {
        char text[kMaxKeptRealText + 1];
        std::memcpy(text, ptr, textLength);
        text[textLength] = '\0';
        if (std::strtod(text, nullptr) != static_cast<double>(value))
            object->sourceText_.assign(ptr, textLength);
    }
    return object;
}

long long KPPDFObjectReal::longLongValue() const {
    if (!(value_ == value_))
        return 0;
    if (value_ >= 9.2233720e18f)
        return LLONG_MAX;
    if (value_ <= -9.2233720e18f)
        return LLONG_MIN;
    return static_cast<long long>(value_);
}

void KPPDFObjectReal::appendReal(float value, std::string& out) {
    char buffer[30];
    int n;
    // Integral values that fit 32 bits are written without a fraction; others with six decimals.
    if (std::isfinite(value) && value > -2147483648.0f && value < 2147483648.0f &&
        static_cast<float>(static_cast<int32_t>(value)) == value) {
        char* p = buffer;
        KPPDFObjectSignedToStringInPlace(static_cast<int32_t>(value), &p);
        n = static_cast<int>(p - buffer);
    } else if (!std::isfinite(value)) {
        n = std::snprintf(buffer, sizeof buffer, "0");
    } else {
        n = std::snprintf(buffer, sizeof buffer, "%f", static_cast<double>(value));
        if (n < 0 || n >= static_cast<int>(sizeof buffer))
            n = std::snprintf(buffer, sizeof buffer, "0");
    }
    out.append(buffer, static_cast<size_t>(n));
}

uint32_t KPPDFObjectReal::rawLength() const {
    if (rawLength_ == 0) {
        std::string text;
        appendReal(value_, text);
        const_cast<KPPDFObjectReal*>(this)->rawLength_ = static_cast<uint32_t>(text.size());
    }
    return rawLength_;
}

bool KPPDFObjectReal::appendDirectObject(std::string& out) {
    if (!sourceText_.empty()) {
        out.append(sourceText_);
        return true;
    }
    appendReal(value_, out);
    return true;
}

KPPDFRef<KPPDFObject> KPPDFObjectReal::copy() const {
    auto copy = std::make_shared<KPPDFObjectReal>(value_);
    copy->document_ = document_;
    copy->sourceText_ = sourceText_;
    return copy;
}

std::string KPPDFObjectReal::description() const {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "<KPPDFObjectReal, 0x%08X>: %f",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)),
                  static_cast<double>(value_));
    return buffer;
}

// ---- name ----

KPPDFObjectName::KPPDFObjectName() { objectType_ = KPPDFObjectTypeName; }

KPPDFObjectName::KPPDFObjectName(std::string value) : KPPDFObjectName() {
    value_ = std::move(value);
}

KPPDFRef<KPPDFObjectName> KPPDFObjectName::nameWithString(std::string value) {
    return std::make_shared<KPPDFObjectName>(std::move(value));
}

size_t KPPDFObjectName::scanName(const char* p, const char* limit) {
    if (p >= limit || *p != '/')
        return 0;
    const char* q = p + 1;
    while (q < limit &&
           KPPDFDocumentCharLookup[static_cast<uint8_t>(*q)] & (KPPDFCharNumeric | KPPDFCharRegular))
        q++;
    return static_cast<size_t>(q - p);
}

KPPDFRef<KPPDFObjectName> KPPDFObjectName::nameAtOffset(uint64_t offset, const KPPDFData& data) {
    if (offset >= data.length())
        return nullptr;
    const char* p = data.chars() + offset;
    size_t length = scanName(p, data.chars() + data.length());
    if (length == 0)
        return nullptr;
    auto name = std::make_shared<KPPDFObjectName>(std::string(p + 1, length - 1));
    name->rawLength_ = static_cast<uint32_t>(length);
    return name;
}

std::string KPPDFObjectName::decodedValue() const {
    std::string out;
    out.reserve(value_.size());
    auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    for (size_t i = 0; i < value_.size(); i++) {
        if (value_[i] == '#' && i + 2 < value_.size()) {
            int h = hex(value_[i + 1]);
            int l = hex(value_[i + 2]);
            if (h >= 0 && l >= 0) {
                out.push_back(static_cast<char>(h * 16 + l));
                i += 2;
                continue;
            }
        }
        out.push_back(value_[i]);
    }
    return out;
}

uint32_t KPPDFObjectName::rawLength() const {
    return rawLength_ ? rawLength_ : static_cast<uint32_t>(value_.size() + 1);
}

bool KPPDFObjectName::appendDirectObject(std::string& out) {
    out.push_back('/');
    out.append(value_);
    return true;
}

KPPDFRef<KPPDFObject> KPPDFObjectName::copy() const {
    auto copy = std::make_shared<KPPDFObjectName>(value_);
    copy->document_ = document_;
    return copy;
}

std::string KPPDFObjectName::description() const { return "<KPPDFObjectName>: " + value_; }
