#include "kppdf/objects/KPPDFObjectString.h"

#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"
#include "kppdf/platform/KPPDFTextEncoding.h"

namespace {
constexpr uint32_t kLatin1 = KPPDFISOLatin1StringEncoding;
constexpr uint32_t kUnicode = KPPDFUnicodeStringEncoding;

int hexValue(uint8_t c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Appends the literal-string escape of byte c.
void appendEscaped(std::string& out, uint8_t c) {
    switch (c) {
    case '\b': out.append("\\b"); break;
    case '\t': out.append("\\t"); break;
    case '\n': out.append("\\n"); break;
    case '\f': out.append("\\f"); break;
    case '\r': out.append("\\r"); break;
    case '(': out.append("\\("); break;
    case ')': out.append("\\)"); break;
    case '\\': out.append("\\\\"); break;
    default: out.push_back(static_cast<char>(c));
    }
}
} // namespace

KPPDFObjectString::KPPDFObjectString() { objectType_ = KPPDFObjectTypeString; }

KPPDFRef<KPPDFObjectString> KPPDFObjectString::stringAtOffset(uint64_t offset,
                                                              KPPDFDocument* document,
                                                              const KPPDFData& source,
                                                              int32_t stringType, bool dataOnly) {
    const KPPDFData& data = document ? document->docData() : source;
    uint64_t length = data.length();
    if (offset >= length)
        return nullptr;
    const uint8_t* bytes = data.bytes();
    bool literal = stringType == kStringTypeLiteral ||
                   (stringType == kStringTypeDetect && bytes[offset] == '(');
    auto string = std::make_shared<KPPDFObjectString>();
    string->document_ = document;
    string->literal_ = literal;
    string->hasStringData_ = true;
    std::string& out = string->stringData_;
    uint64_t p = offset + 1;

    if (literal) {
        if (bytes[offset] != '(')
            return nullptr;
        int depth = 1;
        // 0: bytes one at a time; 1: pairs, first byte copied as is; 2: pairs, second copied.
        int pairMode = 0;
        bool pairFirst = true;
        while (p < length) {
            uint8_t c = bytes[p];
            if (pairMode) {
                bool copyAsIs = (pairMode == 1) == pairFirst;
                pairFirst = !pairFirst;
                if (copyAsIs) {
                    out.push_back(static_cast<char>(c));
                    p++;
                    continue;
                }
            }
            if (c == '\\') {
                if (++p >= length)
                    break;
                uint8_t e = bytes[p++];
                switch (e) {
                case '\n': break;
                case '\r':
                    if (p < length && bytes[p] == '\n')
                        p++;
                    break;
                case 'n': out.push_back('\n'); break;
                case 'r': out.push_back('\r'); break;
                case 't': out.push_back('\t'); break;
                case 'b': out.push_back('\b'); break;
                case 'f': out.push_back('\f'); break;
                default:
                    if (e >= '0' && e <= '7') {
                        unsigned value = e - '0';
                        for (int i = 0; i < 2 && p < length && bytes[p] >= '0' && bytes[p] <= '7'; i++)
                            value = value * 8 + (bytes[p++] - '0');
                        out.push_back(static_cast<char>(value & 0xFF));
                    } else {
                        out.push_back(static_cast<char>(e));
                    }
                }
                continue;
            }
            p++;
            if (c == '\r') {
                if (p < length && bytes[p] == '\n')
                    p++;
                out.push_back('\n');
            } else if (c == '(') {
                depth++;
                out.push_back('(');
                if (!pairMode && p + 1 < length) {
                    if (bytes[p] == 0xFF && bytes[p + 1] == 0xFE)
                        pairMode = 1, pairFirst = true;
                    else if (bytes[p] == 0xFE && bytes[p + 1] == 0xFF)
                        pairMode = 2, pairFirst = true;
                }
            } else if (c == ')') {
                if (--depth == 0)
                    break;
                out.push_back(')');
            } else {
                out.push_back(static_cast<char>(c));
            }
        }
        string->twoByteMode_ = pairMode != 0;
        if (out.size() >= 2 && static_cast<uint8_t>(out[0]) >= 254 &&
            static_cast<uint8_t>(out[1]) >= 254)
            string->encoding_ = kUnicode;
    } else {
        if (bytes[offset] != '<')
            return nullptr;
        int high = -1;
        while (p < length) {
            uint8_t c = bytes[p++];
            if (c == '>')
                break;
            if (KPPDFIsWhitespace(c))
                continue;
            int v = hexValue(c);
            if (v < 0)
                continue; // Stray bytes in a hex string are passed over, as readers do.
            if (high < 0) {
                high = v;
            } else {
                out.push_back(static_cast<char>(high * 16 + v));
                high = -1;
            }
        }
        // An odd final digit counts as if followed by 0 (ISO 32000-1, 7.3.4.3).
        if (high >= 0)
            out.push_back(static_cast<char>(high * 16));
    }
    string->rawLength_ = static_cast<uint32_t>(std::min<uint64_t>(p, length) - offset);
    string->decrypted_ = !(document && !document->encryptKey().empty() &&
                           document->encryptionStatus() == 1);
    if (dataOnly || !literal) {
        string->value_ = out;
        string->valueIsText_ = false;
    } else if (string->decrypted_) {
        std::string text;
        if (!KPPDFTextEncoding::decode(out, string->encoding_, &text))
            text = KPPDFTextEncoding::latin1ToUTF8(out);
        string->value_ = std::move(text);
        string->valueIsText_ = true;
        string->hasStringData_ = false;
        string->stringData_.clear();
    }
    return string;
}

KPPDFRef<KPPDFObjectString> KPPDFObjectString::stringWithString(std::string_view text) {
    auto string = std::make_shared<KPPDFObjectString>();
    string->literal_ = true;
    std::string latin1;
    string->encoding_ = KPPDFTextEncoding::utf8ToLatin1(text, &latin1) ? kLatin1 : kUnicode;
    string->setTextValue(std::string(text));
    return string;
}

KPPDFRef<KPPDFObjectString> KPPDFObjectString::stringWithData(std::string_view bytes) {
    auto string = std::make_shared<KPPDFObjectString>();
    string->literal_ = false;
    string->value_ = std::string(bytes);
    string->valueIsText_ = false;
    return string;
}

void KPPDFObjectString::setTextValue(std::string text) {
    value_ = std::move(text);
    valueIsText_ = true;
    hasStringData_ = false;
    stringData_.clear();
    decrypted_ = true;
}

bool KPPDFObjectString::keyNumbers(uint32_t* number, uint32_t* generation) const {
    const KPPDFObject* object = this;
    for (int i = 0; object && i < 1024; i++) {
        if (object->objectNumber()) {
            *number = object->objectNumber();
            *generation = object->generation();
            return true;
        }
        object = object->directContainer();
    }
    return false;
}

void KPPDFObjectString::decryptIfNeeded() {
    if (decrypted_)
        return;
    if (!document_ || document_->encryptKey().empty() || document_->encryptionStatus() != 1) {
        decrypted_ = true;
        return;
    }
    uint32_t number = 0, generation = 0;
    if (!keyNumbers(&number, &generation))
        return; // No numbered ancestor (yet): the value stays as read.
    std::string bytes = stringData_;
    document_->cryptBytes(bytes, number, generation);
    decrypted_ = true;
    if (literal_) {
        encoding_ = !bytes.empty() && static_cast<uint8_t>(bytes[0]) == 254 ? kUnicode : kLatin1;
        if (encoding_ == kUnicode && (bytes.size() < 2 || static_cast<uint8_t>(bytes[1]) != 255))
            encoding_ = kLatin1;
        std::string text;
        if (!KPPDFTextEncoding::decode(bytes, encoding_, &text))
            text = KPPDFTextEncoding::latin1ToUTF8(bytes);
        value_ = std::move(text);
        valueIsText_ = true;
        hasStringData_ = false;
        stringData_.clear();
    } else {
        value_ = bytes;
        stringData_ = std::move(bytes);
        valueIsText_ = false;
    }
}

const std::string& KPPDFObjectString::value() {
    decryptIfNeeded();
    if (!decrypted_ && !valueIsText_ && value_.empty() && hasStringData_)
        value_ = stringData_;
    return value_;
}

bool KPPDFObjectString::valueIsText() {
    decryptIfNeeded();
    return valueIsText_;
}

std::string KPPDFObjectString::stringValue() {
    const std::string& v = value();
    if (valueIsText_)
        return v;
    std::string text;
    if (v.size() >= 2 && ((static_cast<uint8_t>(v[0]) == 0xFE && static_cast<uint8_t>(v[1]) == 0xFF) ||
                          (static_cast<uint8_t>(v[0]) == 0xFF && static_cast<uint8_t>(v[1]) == 0xFE))) {
        KPPDFTextEncoding::utf16ToUTF8(v, &text);
        return text;
    }
    return KPPDFTextEncoding::latin1ToUTF8(v);
}

std::string KPPDFObjectString::stringData() {
    if (hasStringData_)
        return stringData_;
    if (!valueIsText_)
        return value_;
    std::string bytes;
    if (encoding_ == kUnicode && document_ && !document_->encryptKey().empty() &&
        document_->encryptionStatus() == 2) {
        // Kept as established for encrypted output: a byte-order mark, then every UTF-16 unit
        // above 255 as two bytes (high first) and every other one as a single byte.
        bytes = "\xFE\xFF";
        for (char16_t unit : KPPDFTextEncoding::utf8ToUTF16Units(value_)) {
            if (unit > 255)
                bytes.push_back(static_cast<char>(unit >> 8));
            bytes.push_back(static_cast<char>(unit & 0xFF));
        }
    } else if (encoding_ == kUnicode) {
        // Text that is not Latin-1 is written as UTF-16 with its byte-order mark.
        bytes = KPPDFTextEncoding::utf8ToUTF16(value_, true, true);
    } else if (!KPPDFTextEncoding::utf8ToLatin1(value_, &bytes)) {
        bytes = KPPDFTextEncoding::utf8ToUTF16(value_, true, true);
    }
    return bytes;
}

bool KPPDFObjectString::appendDirectObject(std::string& out) {
    std::string bytes;
    uint32_t number = 0, generation = 0;
    if (hasStringData_ && !decrypted_ && !(document_ && document_->encryptionStatus() == 1)) {
        // Still encrypted as read and the document will not decrypt it: keep the bytes.
        bytes = stringData_;
    } else {
        value();
        bytes = stringData();
    }
    // The stored value stays plain; only the text written is encrypted, so writing twice never
    // encrypts twice.
    if (KPPDFWriteContext* context = KPPDFWriteContext::current()) {
        if (context->encryptingDocument && context->currentNumber)
            context->encryptingDocument->cryptBytes(bytes, context->currentNumber,
                                                    context->currentGeneration);
    } else if (document_ && !document_->encryptKey().empty() &&
               document_->encryptionStatus() == 2 && keyNumbers(&number, &generation)) {
        document_->cryptBytes(bytes, number, generation);
    }
    if (literal_) {
        out.reserve(out.size() + bytes.size() * 2 + 2);
        out.push_back('(');
        for (uint8_t c : bytes)
            appendEscaped(out, c);
        out.push_back(')');
    } else {
        static const char kHex[] = "0123456789ABCDEF";
        out.reserve(out.size() + bytes.size() * 2 + 2);
        out.push_back('<');
        for (uint8_t c : bytes) {
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
        out.push_back('>');
    }
    return true;
}

void KPPDFObjectString::copyInto(KPPDFObjectString& copy) const {
    copy.document_ = document_;
    copy.literal_ = literal_;
    copy.encoding_ = encoding_;
    copy.value_ = value_;
    copy.valueIsText_ = valueIsText_;
    copy.stringData_ = stringData_;
    copy.hasStringData_ = hasStringData_;
    copy.decrypted_ = decrypted_;
    copy.twoByteMode_ = twoByteMode_;
}

KPPDFRef<KPPDFObject> KPPDFObjectString::copy() const {
    auto copy = std::make_shared<KPPDFObjectString>();
    copyInto(*copy);
    return copy;
}

std::string KPPDFObjectString::description() const {
    return std::string("<KPPDFObjectString>: ") + (literal_ ? "(" : "<") + value_ +
           (literal_ ? ")" : ">");
}
