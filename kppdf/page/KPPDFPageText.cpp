// The page's text lines: blobs sorted into baselines, the page string built from them, the
// refinements selection needs (widths, split lines, column order) and the lookups from points
// and positions to lines and characters.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <map>
#include <string_view>
#include <thread>

#include "kppdf/page/KPPDFBaseline.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/page/KPPDFGraphicsState.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/KPPDFPageLock.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "kppdf/page/internal/KPPDFTextUnicode.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {

// How long a thread that finds the page lock taken waits before it tries again.
constexpr std::chrono::milliseconds kLockRetryInterval{10};
// Blobs of one line further apart than this part of the font size read as separate words, and
// the page string gets a space between them when neither brings one. A tenth of the size is
// where TJ moves part words too (KPPDFTextBlob::kWordGapMove), as pdftotext reads them.
constexpr float kWordSpaceGap = 0.1f;
// With the "spaceGap" default on, lines are split at gaps as wide as this part of the font size
// (about a space) instead of at kSplitGapWidth.
constexpr float kSpaceGapSplit = 0.25f;
// The descriptor flags that pick a display face (ISO 32000-1, 9.8.2, table 123).
constexpr uint32_t kFlagFixedPitch = 1;
constexpr uint32_t kFlagSerif = 2;
constexpr uint32_t kFlagSymbolic = 4;
constexpr uint32_t kFlagScript = 8;
constexpr uint32_t kFlagItalic = 64;
constexpr uint32_t kFlagForceBold = 262144;

// KPPDFPageLock taken as the text code always takes it: try, and sleep a little between tries.
class PageTextLock {
public:
    PageTextLock() {
        while (!KPPDFPageLock::sharedLock().try_lock())
            std::this_thread::sleep_for(kLockRetryInterval);
    }
    ~PageTextLock() { KPPDFPageLock::sharedLock().unlock(); }
    PageTextLock(const PageTextLock&) = delete;
    PageTextLock& operator=(const PageTextLock&) = delete;
};

size_t characterCount(std::string_view text) {
    size_t count = 0;
    for (size_t i = 0; i < text.size(); i += kppdf_text::utf8SequenceLength(text, i))
        count++;
    return count;
}

// The UTF-16 position of a byte of text: of the character that holds it, or with roundUp of the
// character after it when the byte is inside one. Past the end: the length in UTF-16 units.
uint32_t utf16IndexForByte(std::string_view text, uint64_t byte, bool roundUp) {
    uint64_t units = 0;
    size_t offset = 0;
    while (offset < text.size() && offset < byte) {
        size_t length = kppdf_text::utf8SequenceLength(text, offset);
        if (offset + length > byte && !roundUp)
            break;
        units += kppdf_text::utf16Length(kppdf_text::decodeUTF8(text, offset));
        offset += length;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(units, UINT32_MAX));
}

// The byte where the character at a UTF-16 position starts (the text's length past the end);
// a position inside a surrogate pair gives that character's start.
uint32_t byteForUTF16Index(std::string_view text, uint64_t index) {
    uint64_t units = 0;
    size_t offset = 0;
    while (offset < text.size()) {
        size_t units16 = kppdf_text::utf16Length(kppdf_text::decodeUTF8(text, offset));
        if (units + units16 > index)
            break;
        units += units16;
        offset += kppdf_text::utf8SequenceLength(text, offset);
    }
    return static_cast<uint32_t>(offset);
}

// A byte position of the page string (or -1) as a UTF-16 position; -1 stays -1.
int32_t utf16Position(std::string_view text, int64_t byte) {
    if (byte < 0)
        return -1;
    return static_cast<int32_t>(
        std::min<uint32_t>(utf16IndexForByte(text, uint64_t(byte), false), INT32_MAX - 1));
}

// The face a display would use for a font: its own name when that is one of the standard
// fonts (or a known alias of one), else the standard face of the family and style its
// descriptor flags and name suggest. The subset prefix ("ABCDEF+") is not part of the name.
std::string displayFontName(const KPPDFFont* font) {
    if (!font)
        return "Helvetica";
    std::string name = font->fontName();
    if (size_t plus = name.find('+'); plus != std::string::npos)
        name.erase(0, plus + 1);
    std::string standard = KPPDFFont::normalizedName(name);
    if (!standard.empty())
        return standard;

    uint32_t flags = font->descriptorFlags();
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    bool bold = (flags & kFlagForceBold) || lower.find("bold") != std::string::npos;
    bool italic = (flags & kFlagItalic) || lower.find("italic") != std::string::npos ||
                  lower.find("oblique") != std::string::npos;
    if (flags & kFlagFixedPitch) {
        static const char* const kCourier[4] = {"Courier", "Courier-Bold", "Courier-Oblique",
                                                "Courier-BoldOblique"};
        return kCourier[(bold ? 1 : 0) + (italic ? 2 : 0)];
    }
    bool serif = (flags & kFlagSerif) || ((flags & kFlagScript) && !(flags & kFlagSymbolic));
    if (serif) {
        static const char* const kTimes[4] = {"Times-Roman", "Times-Bold", "Times-Italic",
                                              "Times-BoldItalic"};
        return kTimes[(bold ? 1 : 0) + (italic ? 2 : 0)];
    }
    static const char* const kHelvetica[4] = {"Helvetica", "Helvetica-Bold", "Helvetica-Oblique",
                                              "Helvetica-BoldOblique"};
    return kHelvetica[(bold ? 1 : 0) + (italic ? 2 : 0)];
}

// The font size a blob appears in, page units: the text size through the text matrix and CTM.
float displayFontSize(const KPPDFTextBlob& blob) {
    const KPPDFGraphicsState* state = blob.gstate().get();
    if (!state)
        return 0;
    KPPDFAffineTransform m = state->textMatrix().concat(state->CTM());
    float size = std::fabs(state->TfontSize() * std::hypot(m.c, m.d));
    return std::isfinite(size) ? size : 0;
}

// Attributes of a blob's text in the page string: fill colour, display face and size. Faces are
// looked up once per font while one page string is built.
class BlobAttributes {
public:
    // Valid until the next call. Neighbouring blobs mostly look alike, so the last attributes
    // are kept and handed out again rather than built anew for each blob.
    const KPPDFTextAttributes& attributesFor(const KPPDFTextBlob& blob) {
        const KPPDFGraphicsState* state = blob.gstate().get();
        // Text is filled in black until a colour operator says otherwise (ISO 32000-1, 8.6.8).
        KPPDFColor color =
            state && state->nonstrokeColor() ? *state->nonstrokeColor() : KPPDFColor::blackColor();
        float size = displayFontSize(blob);
        const KPPDFFont* font = blob.font().get();
        if (hasLast_ && font == lastFont_ && last_.foregroundColor == color &&
            last_.fontSize == size)
            return last_;
        auto found = faces_.find(font);
        if (found == faces_.end())
            found = faces_.emplace(font, displayFontName(font)).first;
        last_.foregroundColor = color;
        last_.fontName = found->second;
        last_.fontSize = size;
        lastFont_ = font;
        hasLast_ = true;
        return last_;
    }

private:
    std::map<const KPPDFFont*, std::string> faces_;
    KPPDFTextAttributes last_;
    const KPPDFFont* lastFont_ = nullptr;
    bool hasLast_ = false;
};

bool startsWithWhitespace(std::string_view text) {
    return !text.empty() && kppdf_text::isWhitespace(kppdf_text::decodeUTF8(text, 0));
}

bool endsWithWhitespace(std::string_view text) {
    return !text.empty() && kppdf_text::isWhitespace(
                                kppdf_text::decodeUTF8(text, kppdf_text::lastCharacterStart(text)));
}

// Sort keys that order every blob, even one a broken matrix put at NaN: reading order is
// larger y first, then smaller x.
float sortY(const KPPDFTextBlob& blob) {
    float y = blob.location().y;
    return std::isnan(y) ? -std::numeric_limits<float>::infinity() : y;
}

float sortX(const KPPDFTextBlob& blob) {
    float x = blob.location().x;
    return std::isnan(x) ? std::numeric_limits<float>::infinity() : x;
}

// Measures a blob's characters again from the codes it showed, for blobs that came without
// per-character widths: the glyph advances with character, word and horizontal scaling and the
// TJ moves (ISO 32000-1, 9.4.4). When the codes do not give one width per character, the
// blob's width is shared out evenly.
void fillWidths(KPPDFTextBlob& blob) {
    const size_t characters = characterCount(blob.string());
    if (blob.nWidths() == characters)
        return;
    std::vector<float> widths;
    const KPPDFFont* font = blob.font().get();
    const KPPDFGraphicsState* state = blob.gstate().get();
    if (font && state) {
        const size_t codeLength = font->isTwoByte() ? 2 : 1;
        const std::string& codes = blob.codes();
        const size_t nCodes = codes.size() / codeLength;
        const float size = state->TfontSize();
        const float hScale = state->ThorizontalScaling();
        const float scale = blob.textScale();
        const auto& adjustments = blob.adjustments();
        size_t next = 0;
        widths.reserve(characters);
        for (size_t i = 0; i <= nCodes; i++) {
            for (; next < adjustments.size() && adjustments[next].codeIndex == i; next++) {
                float move = -adjustments[next].amount / 1000.0f * size * hScale * scale;
                if (adjustments[next].insertedSpace)
                    widths.push_back(move);
                else if (!widths.empty())
                    widths.back() += move;
            }
            if (i == nCodes)
                break;
            const char* code = codes.data() + i * codeLength;
            uint32_t value = codeLength == 2 ? (uint32_t(uint8_t(code[0])) << 8 | uint8_t(code[1]))
                                             : uint8_t(code[0]);
            float spacing = state->TcharSpacing() +
                            (codeLength == 1 && value == 32 ? state->TwordSpacing() : 0);
            // glyphWidth is not const: fonts measure lazily.
            float glyph = const_cast<KPPDFFont*>(font)->glyphWidth(value);
            widths.push_back((glyph * size + spacing) * hScale * scale);
        }
    }
    if (widths.size() != characters) {
        float share = characters ? blob.width() / float(characters) : 0;
        widths.assign(characters, share);
    } else {
        float sum = 0;
        for (float width : widths)
            sum += width;
        blob.setWidth(sum);
    }
    blob.setWidths(std::move(widths));
}

} // namespace

void KPPDFPage::prepareForSearch() {
    if (preparedForSearch_)
        return;
    // Set before the work, so that a page whose content leads back to it cannot loop.
    preparedForSearch_ = true;
    parseContent();
    ContentState& state = content();

    std::stable_sort(state.textBlobs.begin(), state.textBlobs.end(),
                     [](const KPPDFRef<KPPDFTextBlob>& a, const KPPDFRef<KPPDFTextBlob>& b) {
                         float ay = sortY(*a), by = sortY(*b);
                         if (ay != by)
                             return ay > by;
                         return sortX(*a) < sortX(*b);
                     });

    PageTextLock lock;
    KPPDFAttributedString text;
    BlobAttributes attributes;
    BaselineList lines;
    KPPDFBaseline::BlobList line;
    uint64_t lineStart = 0;
    KPPDFTextBlob* previous = nullptr;
    for (size_t i = 0; i < state.textBlobs.size(); i++) {
        KPPDFTextBlob& blob = *state.textBlobs[i];
        line.push_back(state.textBlobs[i]);
        const KPPDFTextAttributes& look = attributes.attributesFor(blob);
        // Neighbours set apart by more than a letter's gap are separate words, even when the
        // content shows no space between them (each word placed by its own operator).
        if (previous && !previous->string().empty() && !blob.string().empty() &&
            !endsWithWhitespace(previous->string()) && !startsWithWhitespace(blob.string()) &&
            blob.location().x - previous->maxX() > kWordSpaceGap * displayFontSize(*previous)) {
            text.append(" ", text.attributesAtIndex(text.length() - 1));
            KPPDFRange range = previous->rangeInPageString();
            range.length++;
            previous->setRangeInPageString(range);
        }
        uint64_t start = text.length();
        if (!blob.string().empty())
            text.append(blob.string(), look);
        bool endsLine = i + 1 == state.textBlobs.size() ||
                        state.textBlobs[i + 1]->location().y != blob.location().y;
        if (endsLine)
            text.append("\n", look);
        blob.setRangeInPageString(KPPDFMakeRange(static_cast<uint32_t>(start),
                                                 static_cast<uint32_t>(text.length() - start)));
        previous = &blob;
        if (endsLine) {
            lines.push_back(KPPDFBaseline::baselineWithBlobs(
                std::move(line), KPPDFMakeRange(static_cast<uint32_t>(lineStart),
                                                static_cast<uint32_t>(text.length() - lineStart))));
            line.clear();
            lineStart = text.length();
            previous = nullptr;
        }
    }
    state.baselines = std::move(lines);
    state.pageString = std::move(text);
}

void KPPDFPage::prepareForSelection() {
    if (preparedForSelection_)
        return;
    prepareForSearch();
    PageTextLock lock;
    ContentState& state = content();
    for (const auto& blob : state.textBlobs)
        fillWidths(*blob);
    // Paragraph styles are not kept: the attributed string has no paragraph attributes.
    preparedForSelection_ = true;

    // Wide gaps inside a line part it; the new line after each cut is looked at in its turn.
    const bool spaceGap = KPPDFUseSpaceGap();
    for (size_t i = 0; i < state.baselines.size(); i++) {
        KPPDFBaseline& line = *state.baselines[i];
        float width = kSplitGapWidth;
        if (spaceGap && !line.isEmpty())
            width = std::max(kSpaceGapSplit * displayFontSize(*line.blobs().front()), 0.01f);
        KPPDFGap gap = line.findFirstGapOfWidth(width);
        if (KPPDFIsEmptyGap(gap))
            continue;
        if (auto tail = line.splitBaselineAtXPos(gap.x + 0.5f * gap.width))
            state.baselines.insert(state.baselines.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                   std::move(tail));
    }

    // Columns: lines grouped by left edge (to a tenth of a unit). A few groups whose lines do
    // not reach into each other are columns, read one after the other from the left.
    std::map<int64_t, BaselineList> groups;
    for (const auto& line : state.baselines) {
        double edge = std::round(double(line->minX()) * 10.0);
        // Keys stay inside the integer range whatever a broken matrix put there.
        int64_t key = std::isfinite(edge) ? int64_t(std::clamp(edge, -1e15, 1e15)) : INT64_MIN;
        groups[key].push_back(line);
    }
    if (groups.size() < 2 || groups.size() > kMaxColumnGroups)
        return;
    for (auto left = groups.begin(), right = std::next(left); right != groups.end();
         ++left, ++right) {
        KPPDFRect leftBounds = boundsForBaselines(left->second);
        if (KPPDFIntersectsRect(leftBounds, boundsForBaselines(right->second, leftBounds)))
            return;
    }
    hasColumns_ = true;
    BaselineList ordered;
    ordered.reserve(state.baselines.size());
    for (auto& [key, group] : groups)
        ordered.insert(ordered.end(), group.begin(), group.end());
    if (ordered == state.baselines)
        return;
    state.baselines = std::move(ordered);
    KPPDFAttributedString rebuilt;
    for (const auto& line : state.baselines)
        line->addBaselineBlobsToPageString(rebuilt, state.pageString);
    state.pageString = std::move(rebuilt);
}

KPPDFRect KPPDFPage::boundsForBaselines(const BaselineList& baselines) {
    KPPDFRect bounds{};
    for (const auto& line : baselines)
        bounds = KPPDFUnionRect(bounds, line->bounds());
    return bounds;
}

KPPDFRect KPPDFPage::boundsForBaselines(const BaselineList& baselines, KPPDFRect within) {
    KPPDFRect bounds{};
    for (const auto& line : baselines)
        bounds = KPPDFUnionRect(bounds, KPPDFIntersectionRect(line->bounds(), within));
    return bounds;
}

int32_t KPPDFPage::charPositionForPoint(KPPDFPoint point, KPPDFRef<KPPDFBaseline>* baseline) {
    for (const auto& line : baselines()) {
        if (!line->hitTest(point))
            continue;
        if (baseline)
            *baseline = line;
        return utf16Position(pageString(), line->charPositionForPoint(point));
    }
    return kCharPositionNotFound;
}

int32_t KPPDFPage::closestCharPositionForPoint(KPPDFPoint point) {
    const std::string& text = pageString();
    auto lastPosition = [&](KPPDFBaseline& line) {
        return utf16Position(text, int64_t(line.rangeInPageString().end()) - 1);
    };
    if (baselines().empty())
        return 0;
    KPPDFBaseline& last = *baselines().back();
    KPPDFRect lastBounds = last.bounds();
    // At or below the start of the last line the selection runs to the end of the text; this
    // holds inside the last line too.
    if (point.y < lastBounds.origin.y + lastBounds.size.height && point.x >= lastBounds.origin.x)
        return lastPosition(last);

    // Nothing farther than this is taken as near.
    constexpr float kFarthest = 999999.0f;
    float best = kFarthest;
    KPPDFBaseline* nearest = nullptr;
    for (const auto& line : baselines()) {
        if (line->hitTest(point))
            return utf16Position(text, line->charPositionForPoint(point));
        KPPDFRect r = line->bounds();
        float horizontal = 0;
        if (point.x < r.origin.x || point.x > r.origin.x + r.size.width)
            horizontal = std::min(std::fabs(point.x - r.origin.x),
                                  std::fabs(point.x - (r.origin.x + r.size.width)));
        float vertical = 0;
        if (point.y < r.origin.y || point.y > r.origin.y + r.size.height)
            vertical = std::fabs(point.y - (r.origin.y + 0.5f * r.size.height));
        float distance = horizontal + vertical;
        if (distance < best) {
            best = distance;
            nearest = line.get();
        }
    }
    if (!nearest)
        return 0;
    KPPDFRect r = nearest->bounds();
    if (r.origin.x >= point.x)
        return utf16Position(text, nearest->rangeInPageString().location);
    if (point.x >= r.origin.x + r.size.width || r.origin.y > point.y)
        return lastPosition(*nearest);
    return utf16Position(text,
                         nearest->charPositionForPoint({point.x, r.origin.y + r.size.height}));
}

KPPDFPage::BaselineList KPPDFPage::baselinesFromCharPosition(int32_t from, int32_t to) {
    // A range at the very start of the page is not looked up.
    if (from < 1 && to < 1)
        return {};
    if (from < 0 || to < 0 || from > to)
        return {};
    const std::string& text = pageString();
    uint64_t fromByte = byteForUTF16Index(text, uint64_t(from));
    uint64_t toByte = byteForUTF16Index(text, uint64_t(to));
    auto holds = [](const KPPDFRef<KPPDFBaseline>& line, uint64_t byte) {
        KPPDFRange range = line->rangeInPageString();
        return byte >= range.location && byte < range.end();
    };
    auto first = std::find_if(baselines().begin(), baselines().end(),
                              [&](const auto& line) { return holds(line, fromByte); });
    auto last = std::find_if(baselines().begin(), baselines().end(),
                             [&](const auto& line) { return holds(line, toByte); });
    if (first == baselines().end() || last == baselines().end() || last < first)
        return {};
    return BaselineList(first, last + 1);
}

KPPDFRange KPPDFPage::byteRangeForCharRange(KPPDFRange characters) const {
    const std::string& text = pageString();
    uint32_t start = byteForUTF16Index(text, characters.location);
    uint32_t end = byteForUTF16Index(text, characters.end());
    return KPPDFMakeRange(start, end - start);
}

KPPDFRange KPPDFPage::charRangeForByteRange(KPPDFRange bytes) const {
    const std::string& text = pageString();
    uint32_t start = utf16IndexForByte(text, bytes.location, false);
    uint32_t end = utf16IndexForByte(text, bytes.end(), true);
    return KPPDFMakeRange(start, end - start);
}

std::vector<KPPDFRect> KPPDFPage::rectsForCharRange(KPPDFRange characters) {
    KPPDFRange bytes = byteRangeForCharRange(characters);
    std::vector<KPPDFRect> rects;
    if (bytes.length == 0)
        return rects;
    for (const auto& line : baselines()) {
        KPPDFRange range = line->rangeInPageString();
        if (range.end() <= bytes.location || bytes.end() <= range.location)
            continue;
        KPPDFRect rect = line->rectForRangeInPageString(bytes);
        if (rect.size.width > 0)
            rects.push_back(rect);
    }
    return rects;
}
