#include "kppdf/page/KPPDFCMap.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFResources.h"

namespace {

// Four hex digits: one UTF-16 code unit, or a two-byte code.
constexpr size_t kUnitDigits = 4;
// Names of registry CMaps found missing that are remembered; files name them as they like, so
// beyond this many they are looked for again rather than kept forever.
constexpr size_t kMaxMissingCMapNames = 256;

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

uint16_t hexValue(const char* p, size_t digits) {
    uint16_t value = 0;
    for (size_t i = 0; i < digits; i++) {
        char c = p[i];
        int d = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        value = static_cast<uint16_t>(value * 16 + d);
    }
    return value;
}

// Splits as the CMap files of the common producers need: CR LF if the text has it, else LF,
// else CR.
std::vector<std::string_view> splitLines(std::string_view text) {
    std::string_view separator = "\r\n";
    if (text.find(separator) == std::string_view::npos)
        separator = text.find('\n') != std::string_view::npos ? "\n" : "\r";
    std::vector<std::string_view> lines;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + separator.size();
    }
    return lines;
}

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && KPPDFIsWhitespace(static_cast<uint8_t>(line.front())))
        line.remove_prefix(1);
    while (!line.empty() && KPPDFIsWhitespace(static_cast<uint8_t>(line.back())))
        line.remove_suffix(1);
    return line;
}

// A "<hex>" token read from the line at *pos, which moves past it. With skipToOpen the reader
// first moves on to the next "<" of the line (so "[<0041> ...]" is read from its first element).
// *digits gets the number of hex digits; false when no "<" follows or a digit run is not
// closed by ">".
bool readHexToken(std::string_view line, size_t* pos, bool skipToOpen, const char** start,
                  size_t* digits) {
    size_t p = *pos;
    if (skipToOpen) {
        p = line.find('<', p);
        if (p == std::string_view::npos)
            return false;
    } else {
        while (p < line.size() && KPPDFIsWhitespace(static_cast<uint8_t>(line[p])))
            p++;
        if (p >= line.size() || line[p] != '<')
            return false;
    }
    p++;
    size_t first = p;
    while (p < line.size() && isHexDigit(line[p]))
        p++;
    if (p >= line.size() || line[p] != '>')
        return false;
    *start = line.data() + first;
    *digits = p - first;
    *pos = p + 1;
    return true;
}

// A source code of one or two bytes.
bool readSourceCode(std::string_view line, size_t* pos, bool skipToOpen, uint16_t* code) {
    const char* digits;
    size_t count;
    if (!readHexToken(line, pos, skipToOpen, &digits, &count) || count == 0 || count > kUnitDigits)
        return false;
    *code = count == kUnitDigits ? KPPDFCMap::getTwoByteHexChar(digits) : hexValue(digits, count);
    return true;
}

// The first code unit of a destination; the rest of a longer destination is not kept.
bool readDestination(std::string_view line, size_t* pos, uint16_t* unit) {
    const char* digits;
    size_t count;
    if (!readHexToken(line, pos, true, &digits, &count) || count == 0)
        return false;
    *unit = count >= kUnitDigits ? KPPDFCMap::getTwoByteHexChar(digits) : hexValue(digits, count);
    return true;
}

// The entry count in front of a "begin..." keyword, clipped to the limit.
uint32_t blockCount(std::string_view line) {
    const char* end = nullptr;
    unsigned long long n = KPPDFParseUnsignedDecimal(line.data(), line.data() + line.size(), &end);
    return static_cast<uint32_t>(std::min<unsigned long long>(n, KPPDFCMap::kMaxBlockEntries));
}

struct RegistryCache {
    std::mutex mutex;
    std::unordered_map<std::string, KPPDFRef<const KPPDFCMap>> maps;
    size_t missing = 0;
};

RegistryCache& registryCache() {
    // Never destroyed: fonts of documents closed at exit may still ask for it.
    static RegistryCache* cache = new RegistryCache;
    return *cache;
}

} // namespace

KPPDFCMap::KPPDFCMap() = default;
KPPDFCMap::~KPPDFCMap() = default;

KPPDFRef<KPPDFCMap> KPPDFCMap::cmapWithStream(const KPPDFRef<KPPDFObjectStream>& stream) {
    auto cmap = std::make_shared<KPPDFCMap>();
    if (!stream)
        return cmap;
    KPPDFData data = stream->decodedData();
    if (data.empty())
        KPPDFLog("CMap stream %u has no data", stream->objectNumber());
    // The bytes are Latin-1 text; every token the parser looks at is ASCII.
    cmap->processCMapString(data.view());
    return cmap;
}

KPPDFRef<KPPDFCMap> KPPDFCMap::cmapWithStreamObject(const KPPDFRef<KPPDFObject>& stream) {
    return cmapWithStream(KPPDFResolve<KPPDFObjectStream>(stream));
}

KPPDFRef<KPPDFCMap> KPPDFCMap::cmapWithCIDSystemInfo(const KPPDFRef<KPPDFObjectDictionary>& info) {
    if (!info)
        return std::make_shared<KPPDFCMap>();
    auto registry = info->resolvedObjectForKey<KPPDFObjectString>("Registry");
    auto ordering = info->resolvedObjectForKey<KPPDFObjectString>("Ordering");
    if (!registry || !ordering) {
        KPPDFLog("CIDSystemInfo without Registry or Ordering");
        return std::make_shared<KPPDFCMap>();
    }
    return cmapWithName(registry->stringValue() + "-" + ordering->stringValue() + "-UCS2");
}

KPPDFRef<KPPDFCMap> KPPDFCMap::cmapWithName(const std::string& name) {
    RegistryCache& cache = registryCache();
    std::lock_guard<std::mutex> lock(cache.mutex);
    KPPDFRef<const KPPDFCMap> cached;
    auto found = cache.maps.find(name);
    if (found != cache.maps.end()) {
        cached = found->second;
    } else {
        auto parsed = std::make_shared<KPPDFCMap>();
        std::string path = KPPDFResources::pathForCMap(name);
        KPPDFData text = path.empty() ? KPPDFData() : KPPDFData::dataWithContentsOfFile(path);
        bool missing = text.isNull();
        if (missing)
            KPPDFLog("CMap %s not found", name.c_str());
        else
            parsed->processCMapString(text.view());
        // Missing names are remembered too (fonts of one file tend to repeat them), up to a cap.
        if (!missing || cache.missing < kMaxMissingCMapNames) {
            cache.maps.emplace(name, parsed);
            cache.missing += missing;
        }
        cached = std::move(parsed);
    }
    // A copy, so that callers may add to their map without touching the cache.
    auto cmap = std::make_shared<KPPDFCMap>();
    cmap->bfChars_ = cached->bfChars_;
    cmap->bfRanges_ = cached->bfRanges_;
    cmap->sortedRanges_ = cached->sortedRanges_;
    cmap->rangesDisjoint_ = cached->rangesDisjoint_;
    return cmap;
}

uint16_t KPPDFCMap::getTwoByteHexChar(const char* p) {
    int value = 0;
    for (size_t i = 0; i < kUnitDigits; i++) {
        int c = static_cast<unsigned char>(p[i]);
        if (c >= 'a')
            c -= 32;
        int digit = c < ':' ? c - '0' : c - 55;
        value = value * 16 + digit;
    }
    return static_cast<uint16_t>(value);
}

void KPPDFCMap::processCMapString(std::string_view text) {
    std::vector<std::string_view> lines = splitLines(text);
    size_t i = 0;
    while (i < lines.size()) {
        std::string_view line = trimmed(lines[i++]);
        bool chars = line.ends_with("beginbfchar");
        if (!chars && !line.ends_with("beginbfrange"))
            continue;
        uint32_t count = blockCount(line);
        for (uint32_t n = 0; n < count && i < lines.size(); n++) {
            std::string_view entry = trimmed(lines[i]);
            // A count larger than the block must not swallow the lines after it.
            if (entry.starts_with("end"))
                break;
            i++;
            size_t pos = 0;
            uint16_t low, high, unit;
            if (chars) {
                if (readSourceCode(entry, &pos, false, &low) && readDestination(entry, &pos, &unit))
                    bfChars_.push_back({low, unit});
            } else if (readSourceCode(entry, &pos, false, &low) &&
                       readSourceCode(entry, &pos, true, &high) && high >= low &&
                       readDestination(entry, &pos, &unit)) {
                bfRanges_.push_back({low, uint32_t(high) - low + 1, unit});
            }
        }
    }
    sortEntries();
}

void KPPDFCMap::sortEntries() {
    // A later entry for the same code replaces an earlier one, as storing into a map would.
    std::stable_sort(bfChars_.begin(), bfChars_.end(),
                     [](const BFChar& a, const BFChar& b) { return a.code < b.code; });
    size_t out = 0;
    for (size_t i = 0; i < bfChars_.size(); i++) {
        if (i + 1 < bfChars_.size() && bfChars_[i + 1].code == bfChars_[i].code)
            continue;
        bfChars_[out++] = bfChars_[i];
    }
    bfChars_.resize(out);

    sortedRanges_ = bfRanges_;
    std::stable_sort(sortedRanges_.begin(), sortedRanges_.end(),
                     [](const BFRange& a, const BFRange& b) { return a.low < b.low; });
    rangesDisjoint_ = true;
    for (size_t i = 1; i < sortedRanges_.size(); i++) {
        const BFRange& previous = sortedRanges_[i - 1];
        if (uint64_t(previous.low) + previous.length > sortedRanges_[i].low) {
            rangesDisjoint_ = false;
            break;
        }
    }
}

bool KPPDFCMap::unicodeForCode(uint32_t code, uint16_t* unit) const {
    auto found = std::lower_bound(bfChars_.begin(), bfChars_.end(), code,
                                  [](const BFChar& entry, uint32_t c) { return entry.code < c; });
    if (found != bfChars_.end() && found->code == code) {
        *unit = found->unit;
        return true;
    }
    const BFRange* match = nullptr;
    if (rangesDisjoint_) {
        // Disjoint ranges hold at most one match, so a search finds the first one.
        auto next =
            std::upper_bound(sortedRanges_.begin(), sortedRanges_.end(), code,
                             [](uint32_t c, const BFRange& range) { return c < range.low; });
        if (next != sortedRanges_.begin()) {
            const BFRange& range = *(next - 1);
            if (code - range.low < range.length)
                match = &range;
        }
    } else {
        for (const BFRange& range : bfRanges_) {
            if (code >= range.low && code - range.low < range.length) {
                match = &range;
                break;
            }
        }
    }
    if (!match)
        return false;
    // The offset is added to the whole code unit, carrying into the high byte.
    *unit = static_cast<uint16_t>(match->destination + (code - match->low));
    return true;
}

std::string KPPDFCMap::stringDataForGlyph(uint32_t code) const {
    uint16_t unit;
    if (!unicodeForCode(code, &unit))
        return {};
    return {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
}
