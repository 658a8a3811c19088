// CMap text and font dictionaries from untrusted bytes. The first byte picks the target:
// even: the rest is CMap text, whose map is then asked for codes taken from the input;
// odd: the rest, up to a NUL byte, is a font dictionary in PDF syntax (a "ToUnicode" string
// becomes a stream of its bytes), and the bytes after the NUL are shown with that font.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFCMap.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {

// Codes asked for per input; enough to reach every branch of the lookups.
constexpr size_t kMaxCodes = 64;

void fuzzCMap(std::string_view text) {
    KPPDFCMap cmap;
    cmap.processCMapString(text);
    volatile uint32_t sink = 0;
    for (size_t i = 0; i + 1 < text.size() && i / 2 < kMaxCodes; i += 2) {
        uint32_t code = static_cast<uint8_t>(text[i]) << 8 | static_cast<uint8_t>(text[i + 1]);
        sink = sink + cmap.stringDataForGlyph(code).size();
        uint16_t unit;
        if (cmap.unicodeForCode(code, &unit))
            sink = sink + unit;
    }
}

void fuzzFont(std::string_view input) {
    size_t split = input.find('\0');
    std::string_view dictionaryText = input.substr(0, split);
    std::string_view shown = split == std::string_view::npos ? input : input.substr(split + 1);

    KPPDFData data = KPPDFData::dataWithString(dictionaryText);
    auto dictionary =
        KPPDFCast<KPPDFObjectDictionary>(KPPDFDocument::parseObject(nullptr, 0, data, true, true));
    if (dictionary) {
        // Direct syntax has no streams, so a string stands in for the ToUnicode stream.
        if (auto map = dictionary->resolvedObjectForKey<KPPDFObjectString>("ToUnicode")) {
            KPPDFData bytes(map->stringData());
            auto stream = KPPDFObjectStream::streamWithData(
                bytes, KPPDFRange{0, static_cast<uint32_t>(bytes.length())});
            dictionary->setObject(stream, "ToUnicode");
        }
    }
    KPPDFRef<KPPDFFont> font = KPPDFFont::fontWithFontDictionary(dictionary);
    if (!font)
        return;
    volatile float sink = 0;
    sink = sink + static_cast<float>(font->stringForData(shown).size());
    size_t step = font->isTwoByte() ? 2 : 1;
    for (size_t i = 0; i + step <= shown.size() && i / step < kMaxCodes; i += step) {
        uint32_t code = static_cast<uint8_t>(shown[i]);
        if (step == 2)
            code = code << 8 | static_cast<uint8_t>(shown[i + 1]);
        sink = sink + font->glyphWidth(code);
        sink = sink + static_cast<float>(font->dataForGlyph(static_cast<uint16_t>(code)).size());
    }
    sink = sink + font->glyphWidth(0xFFFFFFFFu);
    sink = sink + font->ascent() + font->descent() + static_cast<float>(font->descriptorFlags());
    sink = sink + static_cast<float>(font->description().size());
    sink = sink + static_cast<float>(KPPDFFont::abbreviatedNameForFont(*font)->value().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool quiet = [] {
        KPPDFSetLogHandler([](const std::string&) {});
        return true;
    }();
    (void)quiet;
    if (size == 0)
        return 0;
    std::string_view input(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    if (bytes[0] & 1)
        fuzzFont(input);
    else
        fuzzCMap(input);
    return 0;
}
