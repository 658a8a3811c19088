#include "kppdf/platform/KPPDFArchiver.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kppdf/platform/KPPDFLog.h"

namespace {

constexpr std::string_view kHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                     "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";
constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
// Base64 characters per line of a data element.
constexpr size_t kBase64LineLength = 76;
// Longest text accepted for a number or a date; no valid one comes near it.
constexpr size_t kMaxScalarLength = 64;
// Longest entity or character reference between "&" and ";".
constexpr size_t kMaxEntityLength = 10;

// ---- Writing ----

void appendEscaped(std::string& out, std::string_view text) {
    for (unsigned char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        default:
            // Control characters (CR included, which a reader would turn into LF) go as
            // character references so that the text comes back byte for byte.
            if (c < 0x20 && c != '\t' && c != '\n') {
                char reference[8];
                std::snprintf(reference, sizeof reference, "&#%u;", c);
                out += reference;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
}

void appendBase64(std::string& out, std::string_view bytes, int depth) {
    std::string encoded;
    encoded.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t group = uint32_t(uint8_t(bytes[i])) << 16 | uint32_t(uint8_t(bytes[i + 1])) << 8 |
                         uint8_t(bytes[i + 2]);
        for (int shift = 18; shift >= 0; shift -= 6)
            encoded += kBase64[(group >> shift) & 63];
    }
    if (size_t rest = bytes.size() - i) {
        uint32_t group = uint32_t(uint8_t(bytes[i])) << 16;
        if (rest == 2)
            group |= uint32_t(uint8_t(bytes[i + 1])) << 8;
        encoded += kBase64[(group >> 18) & 63];
        encoded += kBase64[(group >> 12) & 63];
        encoded += rest == 2 ? kBase64[(group >> 6) & 63] : '=';
        encoded += '=';
    }
    for (size_t at = 0; at < encoded.size(); at += kBase64LineLength) {
        out.append(static_cast<size_t>(depth), '\t');
        out.append(encoded, at, kBase64LineLength);
        out += '\n';
    }
}

void appendReal(std::string& out, double value) {
    if (std::isnan(value)) {
        out += "nan";
        return;
    }
    if (std::isinf(value)) {
        out += value > 0 ? "+infinity" : "-infinity";
        return;
    }
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    out += text;
}

bool appendValue(std::string& out, const KPPDFPropertyList& value, int depth) {
    // The same bound as the reader's, so that whatever is written can be read back.
    bool container = value.kind() == KPPDFPropertyList::Kind::Array ||
                     value.kind() == KPPDFPropertyList::Kind::Dictionary;
    if (container && depth >= KPPDFArchiver::kMaxDepth)
        return false;
    std::string indent(static_cast<size_t>(depth), '\t');
    out += indent;
    char number[32];
    switch (value.kind()) {
    case KPPDFPropertyList::Kind::String:
        out += "<string>";
        appendEscaped(out, value.stringValue());
        out += "</string>\n";
        return true;
    case KPPDFPropertyList::Kind::Integer:
        std::snprintf(number, sizeof number, "%lld", static_cast<long long>(value.integerValue()));
        out += "<integer>";
        out += number;
        out += "</integer>\n";
        return true;
    case KPPDFPropertyList::Kind::Real:
        out += "<real>";
        appendReal(out, value.realValue());
        out += "</real>\n";
        return true;
    case KPPDFPropertyList::Kind::Boolean:
        out += value.boolValue() ? "<true/>\n" : "<false/>\n";
        return true;
    case KPPDFPropertyList::Kind::Date: {
        double seconds = std::floor(value.dateValue().timeIntervalSince1970());
        KPPDFDate::Components utc =
            KPPDFDate::dateWithTimeIntervalSince1970(seconds, 0).components();
        // The year by hand: at least four digits, and its sign ahead of them.
        char text[64];
        std::snprintf(text, sizeof text, "%s%04d-%02d-%02dT%02d:%02d:%02dZ",
                      utc.year < 0 ? "-" : "", utc.year < 0 ? -utc.year : utc.year, utc.month,
                      utc.day, utc.hour, utc.minute, utc.second);
        out += "<date>";
        out += text;
        out += "</date>\n";
        return true;
    }
    case KPPDFPropertyList::Kind::Data:
        if (value.dataValue().empty()) {
            out += "<data></data>\n";
            return true;
        }
        out += "<data>\n";
        appendBase64(out, value.dataValue(), depth);
        out += indent;
        out += "</data>\n";
        return true;
    case KPPDFPropertyList::Kind::Array:
        if (value.arrayValue().empty()) {
            out += "<array/>\n";
            return true;
        }
        out += "<array>\n";
        for (const KPPDFPropertyList& element : value.arrayValue())
            if (!appendValue(out, element, depth + 1))
                return false;
        out += indent;
        out += "</array>\n";
        return true;
    case KPPDFPropertyList::Kind::Dictionary:
        if (value.dictionaryValue().empty()) {
            out += "<dict/>\n";
            return true;
        }
        out += "<dict>\n";
        for (const auto& [key, entry] : value.dictionaryValue()) {
            out += indent;
            out += "\t<key>";
            appendEscaped(out, key);
            out += "</key>\n";
            if (!appendValue(out, entry, depth + 1))
                return false;
        }
        out += indent;
        out += "</dict>\n";
        return true;
    }
    return false;
}

// ---- Reading ----

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.' || c == ':';
}

void appendUTF8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

bool decodeBase64(std::string_view text, std::string* out) {
    uint32_t group = 0;
    int count = 0;
    bool padding = false;
    for (char c : text) {
        if (isSpace(c))
            continue;
        if (c == '=') {
            padding = true;
            continue;
        }
        int value = base64Value(c);
        if (value < 0 || padding)
            return false;
        group = group << 6 | static_cast<uint32_t>(value);
        if (++count == 4) {
            out->push_back(static_cast<char>(group >> 16));
            out->push_back(static_cast<char>(group >> 8));
            out->push_back(static_cast<char>(group));
            group = 0;
            count = 0;
        }
    }
    if (count == 1)
        return false;
    if (count == 2) {
        out->push_back(static_cast<char>(group >> 4));
    } else if (count == 3) {
        out->push_back(static_cast<char>(group >> 10));
        out->push_back(static_cast<char>(group >> 2));
    }
    return true;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

bool parseInteger(std::string_view text, int64_t* value) {
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.empty())
        return false;
    // Accumulated as a negative number, whose range reaches one further than the positive one.
    int64_t result = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        int digit = c - '0';
        if (result < (INT64_MIN + digit) / 10)
            return false;
        result = result * 10 - digit;
    }
    if (!negative) {
        if (result == INT64_MIN)
            return false;
        result = -result;
    }
    *value = result;
    return true;
}

bool parseReal(std::string_view text, double* value) {
    text = trimmed(text);
    if (text.empty() || text.size() > kMaxScalarLength)
        return false;
    if (text == "nan") {
        *value = NAN;
        return true;
    }
    if (text == "+infinity" || text == "infinity" || text == "inf" || text == "+inf") {
        *value = INFINITY;
        return true;
    }
    if (text == "-infinity" || text == "-inf") {
        *value = -INFINITY;
        return true;
    }
    for (char c : text)
        if (!((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E'))
            return false;
    char buffer[kMaxScalarLength + 1];
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = 0;
    char* end = nullptr;
    errno = 0;
    double result = std::strtod(buffer, &end);
    if (end != buffer + text.size() || !std::isfinite(result))
        return false;
    *value = result;
    return true;
}

// Reads n decimal digits at text[*at].
bool readDigits(std::string_view text, size_t* at, size_t n, int* value) {
    if (*at + n > text.size())
        return false;
    int result = 0;
    for (size_t i = 0; i < n; i++) {
        char c = text[*at + i];
        if (c < '0' || c > '9')
            return false;
        result = result * 10 + (c - '0');
    }
    *at += n;
    *value = result;
    return true;
}

bool expectChar(std::string_view text, size_t* at, char c) {
    if (*at >= text.size() || text[*at] != c)
        return false;
    (*at)++;
    return true;
}

// "YYYY-MM-DDTHH:MM:SSZ", in UTC; the year may carry a sign and up to nine digits (dates reach
// some thirty million years either way).
bool parseDate(std::string_view text, KPPDFDate* date) {
    text = trimmed(text);
    if (text.size() > kMaxScalarLength)
        return false;
    size_t at = 0;
    bool negative = false;
    if (!text.empty() && text[0] == '-') {
        negative = true;
        at = 1;
    }
    size_t yearDigits = 0;
    while (at + yearDigits < text.size() && yearDigits < 10 && text[at + yearDigits] >= '0' &&
           text[at + yearDigits] <= '9')
        yearDigits++;
    int year, month, day, hour, minute, second;
    if (yearDigits < 4 || yearDigits > 9 || !readDigits(text, &at, yearDigits, &year) ||
        !expectChar(text, &at, '-') || !readDigits(text, &at, 2, &month) ||
        !expectChar(text, &at, '-') || !readDigits(text, &at, 2, &day) ||
        !expectChar(text, &at, 'T') || !readDigits(text, &at, 2, &hour) ||
        !expectChar(text, &at, ':') || !readDigits(text, &at, 2, &minute) ||
        !expectChar(text, &at, ':') || !readDigits(text, &at, 2, &second) ||
        !expectChar(text, &at, 'Z') || at != text.size())
        return false;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return false;
    *date =
        KPPDFDate::dateWithComponents(negative ? -year : year, month, day, hour, minute, second, 0);
    return true;
}

// An iterative reader of XML property lists. Containers that are open sit on an explicit stack;
// every step advances through the input.
class PlistReader {
public:
    explicit PlistReader(std::string_view bytes) : in_(bytes) {}

    std::optional<KPPDFPropertyList> read() {
        if (!readDocument()) {
            KPPDFLog("Property list not readable: %s at byte %zu", error_, at_);
            return std::nullopt;
        }
        return std::move(root_);
    }

private:
    struct Frame {
        KPPDFPropertyList container;
        std::string key;
        bool hasKey = false;
    };

    bool fail(const char* error) {
        error_ = error;
        return false;
    }
    bool startsWith(std::string_view prefix) const { return in_.substr(at_).starts_with(prefix); }
    void skipSpace() {
        while (at_ < in_.size() && isSpace(in_[at_]))
            at_++;
    }
    // Moves past the next occurrence of terminator; false when there is none.
    bool skipPast(std::string_view terminator) {
        size_t found = in_.find(terminator, at_);
        if (found == std::string_view::npos)
            return false;
        at_ = found + terminator.size();
        return true;
    }

    bool readDocument() {
        // A byte-order mark may precede the declaration.
        if (startsWith("\xEF\xBB\xBF"))
            at_ += 3;
        bool inPlist = false;
        bool plistClosed = false;
        while (true) {
            skipSpace();
            if (at_ >= in_.size())
                break;
            if (in_[at_] != '<')
                return fail("text outside an element");
            if (startsWith("<?")) {
                if (!skipPast("?>"))
                    return fail("unterminated processing instruction");
                continue;
            }
            if (startsWith("<!--")) {
                if (!skipPast("-->"))
                    return fail("unterminated comment");
                continue;
            }
            if (startsWith("<!DOCTYPE")) {
                if (inPlist || root_ || !stack_.empty())
                    return fail("document type inside the document");
                if (!skipDoctype())
                    return false;
                continue;
            }
            if (startsWith("<!"))
                return fail("unexpected markup declaration");
            bool closing = startsWith("</");
            std::string_view name;
            bool selfClosing = false;
            if (!readTag(closing, &name, &selfClosing))
                return false;
            if (plistClosed)
                return fail("element after the end of the property list");
            if (name == "plist") {
                if (closing) {
                    if (!inPlist || !stack_.empty())
                        return fail("misplaced </plist>");
                    inPlist = false;
                    plistClosed = true;
                } else {
                    if (inPlist || root_ || !stack_.empty())
                        return fail("misplaced <plist>");
                    if (selfClosing)
                        return fail("empty property list");
                    inPlist = true;
                }
                continue;
            }
            if (closing) {
                if (!closeContainer(name))
                    return false;
                continue;
            }
            if (!openElement(name, selfClosing))
                return false;
        }
        if (!stack_.empty())
            return fail("unclosed container at the end");
        if (inPlist)
            return fail("unclosed <plist> at the end");
        if (!root_)
            return fail("no value");
        return true;
    }

    // Past "<!DOCTYPE ...>": quoted literals are skipped whole; an internal subset, which could
    // declare entities, is refused.
    bool skipDoctype() {
        at_ += 9;
        while (at_ < in_.size()) {
            char c = in_[at_];
            if (c == '>') {
                at_++;
                return true;
            }
            if (c == '[')
                return fail("document type with an internal subset");
            if (c == '"' || c == '\'') {
                size_t end = in_.find(c, at_ + 1);
                if (end == std::string_view::npos)
                    return fail("unterminated literal in the document type");
                at_ = end + 1;
                continue;
            }
            at_++;
        }
        return fail("unterminated document type");
    }

    // Reads "<name attributes>" or "</name>" at at_; attributes are skipped.
    bool readTag(bool closing, std::string_view* name, bool* selfClosing) {
        at_ += closing ? 2 : 1;
        size_t start = at_;
        while (at_ < in_.size() && isNameChar(in_[at_]))
            at_++;
        if (at_ == start)
            return fail("element without a name");
        *name = in_.substr(start, at_ - start);
        while (at_ < in_.size()) {
            char c = in_[at_];
            if (c == '>') {
                at_++;
                return true;
            }
            if (c == '/' && !closing && at_ + 1 < in_.size() && in_[at_ + 1] == '>') {
                at_ += 2;
                *selfClosing = true;
                return true;
            }
            if (c == '"' || c == '\'') {
                if (closing)
                    return fail("attribute in an end tag");
                size_t end = in_.find(c, at_ + 1);
                if (end == std::string_view::npos)
                    return fail("unterminated attribute value");
                at_ = end + 1;
                continue;
            }
            if (c == '<')
                return fail("unterminated tag");
            at_++;
        }
        return fail("unterminated tag");
    }

    // The character data of an element up to its end tag: entities and character references
    // decoded, CDATA sections taken as they are, comments dropped. No element may nest in it.
    bool readText(std::string_view name, std::string* text) {
        size_t start = at_;
        while (true) {
            if (at_ - start > KPPDFArchiver::kMaxTextLength)
                return fail("element text too long");
            size_t stop = in_.find_first_of("<&", at_);
            if (stop == std::string_view::npos)
                return fail("unterminated element text");
            text->append(in_.substr(at_, stop - at_));
            at_ = stop;
            if (in_[at_] == '&') {
                if (!readReference(text))
                    return false;
                continue;
            }
            if (startsWith("<![CDATA[")) {
                size_t end = in_.find("]]>", at_ + 9);
                if (end == std::string_view::npos)
                    return fail("unterminated CDATA section");
                text->append(in_.substr(at_ + 9, end - at_ - 9));
                at_ = end + 3;
                continue;
            }
            if (startsWith("<!--")) {
                if (!skipPast("-->"))
                    return fail("unterminated comment");
                continue;
            }
            if (!startsWith("</"))
                return fail("element inside a text element");
            std::string_view endName;
            bool selfClosing = false;
            if (!readTag(true, &endName, &selfClosing))
                return false;
            if (endName != name)
                return fail("mismatched end tag");
            return true;
        }
    }

    bool readReference(std::string* text) {
        // Only a short stretch is searched, so that a run of stray ampersands stays linear.
        size_t semicolon = in_.substr(0, at_ + 2 + kMaxEntityLength).find(';', at_ + 1);
        if (semicolon == std::string_view::npos)
            return fail("unterminated entity reference");
        std::string_view entity = in_.substr(at_ + 1, semicolon - at_ - 1);
        at_ = semicolon + 1;
        if (entity == "lt")
            *text += '<';
        else if (entity == "gt")
            *text += '>';
        else if (entity == "amp")
            *text += '&';
        else if (entity == "quot")
            *text += '"';
        else if (entity == "apos")
            *text += '\'';
        else if (entity.size() > 1 && entity[0] == '#') {
            bool hex = entity[1] == 'x';
            std::string_view digits = entity.substr(hex ? 2 : 1);
            if (digits.empty())
                return fail("empty character reference");
            uint32_t code = 0;
            for (char c : digits) {
                int digit;
                if (c >= '0' && c <= '9')
                    digit = c - '0';
                else if (hex && c >= 'a' && c <= 'f')
                    digit = c - 'a' + 10;
                else if (hex && c >= 'A' && c <= 'F')
                    digit = c - 'A' + 10;
                else
                    return fail("bad character reference");
                code = code * (hex ? 16 : 10) + static_cast<uint32_t>(digit);
                if (code > 0x10FFFF)
                    return fail("character reference out of range");
            }
            // NUL is taken although XML has no place for it: the writer sends every control
            // character this way, so that text of any bytes comes back.
            if (code >= 0xD800 && code <= 0xDFFF)
                return fail("character reference to no character");
            appendUTF8(*text, code);
        } else {
            return fail("unknown entity");
        }
        return true;
    }

    bool openElement(std::string_view name, bool selfClosing) {
        if (name == "dict" || name == "array") {
            KPPDFPropertyList container =
                name == "dict" ? KPPDFPropertyList::dictionary() : KPPDFPropertyList::array();
            if (selfClosing)
                return deliver(std::move(container));
            if (stack_.size() >= static_cast<size_t>(KPPDFArchiver::kMaxDepth))
                return fail("containers nested too deeply");
            // A key must be waiting before a container opens inside a dictionary.
            if (!stack_.empty() && stack_.back().container.isDictionary() && !stack_.back().hasKey)
                return fail("dictionary value without a key");
            if (stack_.empty() && root_)
                return fail("second value at the root");
            stack_.push_back(Frame{std::move(container), {}, false});
            return true;
        }
        if (name == "true" || name == "false") {
            if (!selfClosing) {
                std::string text;
                if (!readText(name, &text))
                    return false;
                if (!trimmed(text).empty())
                    return fail("text in a boolean");
            }
            return deliver(KPPDFPropertyList::boolean(name == "true"));
        }
        bool known = name == "key" || name == "string" || name == "integer" || name == "real" ||
                     name == "date" || name == "data";
        if (!known)
            return fail("unknown element");
        std::string text;
        if (!selfClosing && !readText(name, &text))
            return false;
        if (name == "key") {
            if (stack_.empty() || !stack_.back().container.isDictionary())
                return fail("key outside a dictionary");
            if (stack_.back().hasKey)
                return fail("two keys in a row");
            stack_.back().key = std::move(text);
            stack_.back().hasKey = true;
            return true;
        }
        if (name == "string")
            return deliver(KPPDFPropertyList::string(text));
        if (name == "integer") {
            int64_t value = 0;
            if (!parseInteger(text, &value))
                return fail("bad or out-of-range integer");
            return deliver(KPPDFPropertyList::integer(value));
        }
        if (name == "real") {
            double value = 0;
            if (!parseReal(text, &value))
                return fail("bad or out-of-range real");
            return deliver(KPPDFPropertyList::real(value));
        }
        if (name == "date") {
            KPPDFDate date;
            if (!parseDate(text, &date))
                return fail("bad date");
            return deliver(KPPDFPropertyList::date(date));
        }
        std::string bytes;
        if (!decodeBase64(text, &bytes))
            return fail("bad base64 data");
        return deliver(KPPDFPropertyList::data(bytes));
    }

    bool closeContainer(std::string_view name) {
        if (stack_.empty())
            return fail("end tag without a container");
        Frame& top = stack_.back();
        bool isDictionary = top.container.isDictionary();
        if (name != (isDictionary ? "dict" : "array"))
            return fail("mismatched end tag");
        if (top.hasKey)
            return fail("key without a value");
        KPPDFPropertyList container = std::move(top.container);
        stack_.pop_back();
        return deliver(std::move(container));
    }

    // A finished value goes into the open container, or becomes the root.
    bool deliver(KPPDFPropertyList value) {
        if (stack_.empty()) {
            if (root_)
                return fail("second value at the root");
            root_ = std::move(value);
            return true;
        }
        Frame& top = stack_.back();
        if (top.container.isDictionary()) {
            if (!top.hasKey)
                return fail("dictionary value without a key");
            top.container.setObject(std::move(value), top.key);
            top.key.clear();
            top.hasKey = false;
        } else {
            top.container.mutableArray().push_back(std::move(value));
        }
        return true;
    }

    std::string_view in_;
    size_t at_ = 0;
    const char* error_ = "";
    std::vector<Frame> stack_;
    std::optional<KPPDFPropertyList> root_;
};

} // namespace

std::string KPPDFArchiver::archive(const KPPDFPropertyList& value) {
    std::string out(kHeader);
    if (!appendValue(out, value, 0)) {
        KPPDFLog("Property list nested deeper than %d levels not archived", kMaxDepth);
        return std::string();
    }
    out += kFooter;
    return out;
}

std::optional<KPPDFPropertyList> KPPDFArchiver::unarchiveObject(std::string_view bytes) {
    return PlistReader(bytes).read();
}

std::optional<KPPDFPropertyList> KPPDFArchiver::unarchive(std::string_view bytes) {
    std::optional<KPPDFPropertyList> root = unarchiveObject(bytes);
    if (root && !root->isDictionary()) {
        KPPDFLog("Property list root is not a dictionary");
        return std::nullopt;
    }
    return root;
}
