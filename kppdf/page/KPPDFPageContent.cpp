// The page's content stream interpreter (ISO 32000-1, sections 8 and 9): it follows the
// graphics and text state through the operators, records a text blob for every string shown
// and an image for every image XObject drawn, and draws nothing.
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <thread>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/page/KPPDFGraphicsState.h"
#include "kppdf/page/KPPDFImage.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/KPPDFPageLock.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "kppdf/page/internal/KPPDFContentTokenizer.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFTextEncoding.h"

namespace {

// Operands kept for one operator; the rest are dropped (no operator this interpreter runs
// takes more).
constexpr int kMaxOperands = 6;
// q nested deeper than this is not followed (ISO 32000-1, Annex C, allows 28).
constexpr size_t kMaxGstateDepth = 1024;
// Bounds on the work one page's content may cause through forms that draw other forms many
// times: form invocations, content bytes read in all, and blobs kept.
constexpr uint32_t kMaxFormInvocations = 16384;
constexpr uint64_t kMaxInterpretedBytes = uint64_t(256) << 20;
constexpr size_t kMaxTextBlobs = size_t(1) << 20;
constexpr size_t kMaxImages = 65536;
// Width and metrics used when a string is shown in a font the page does not have, per unit of
// font size.
constexpr float kMissingFontWidth = 0.5f;
constexpr float kMissingFontAscent = 0.75f;
constexpr float kMissingFontDescent = -0.25f;
// Vertical advance of a glyph in a vertical font that gives none: the default of DW2
// (ISO 32000-1, 9.7.4.3), per unit of font size.
constexpr float kDefaultVerticalAdvance = -1.0f;
// The sleep between attempts at the page lock.
constexpr auto kLockRetryDelay = std::chrono::milliseconds(10);

// Takes KPPDFPageLock by trying and sleeping, as every user of the lock does.
class PageLockHolder {
public:
    PageLockHolder() : lock_(KPPDFPageLock::sharedLock()) {
        while (!lock_.try_lock())
            std::this_thread::sleep_for(kLockRetryDelay);
    }
    ~PageLockHolder() { lock_.unlock(); }
    PageLockHolder(const PageLockHolder&) = delete;
    PageLockHolder& operator=(const PageLockHolder&) = delete;

private:
    KPPDFPageLock& lock_;
};

// The decoded data of one or more content streams, with the range of each within it.
struct ContentData {
    KPPDFData data;
    std::vector<KPPDFRange> ranges;
    std::vector<KPPDFRef<KPPDFObjectStream>> streams;
};

ContentData contentDataForStreams(const std::vector<KPPDFRef<KPPDFObjectStream>>& streams) {
    ContentData content;
    for (const auto& stream : streams)
        if (stream)
            content.streams.push_back(stream);
    if (content.streams.size() == 1) {
        content.data = content.streams[0]->decodedData();
        content.ranges.push_back(KPPDFMakeRange(
            0, static_cast<uint32_t>(std::min<size_t>(content.data.length(), UINT32_MAX))));
        return content;
    }
    std::vector<KPPDFData> parts;
    size_t total = 0;
    for (const auto& stream : content.streams) {
        parts.push_back(stream->decodedData());
        total += parts.back().length() + 1;
    }
    std::string joined;
    joined.reserve(total);
    for (const KPPDFData& part : parts) {
        if (joined.size() + part.length() > UINT32_MAX) {
            KPPDFLog("Content streams longer than %u bytes in all; the rest is not read",
                     UINT32_MAX);
            break;
        }
        content.ranges.push_back(KPPDFMakeRange(static_cast<uint32_t>(joined.size()),
                                                static_cast<uint32_t>(part.length())));
        joined.append(part.view());
        // A token may not run on into the next stream (ISO 32000-1, 7.8.2).
        joined.push_back('\n');
    }
    content.streams.resize(content.ranges.size());
    content.data = KPPDFData(std::move(joined));
    return content;
}

// A PDF number token ([+-] digits [. digits]) as a finite float.
bool numberFromToken(const char* p, uint32_t length, float* value) {
    if (length == 0)
        return false;
    for (uint32_t i = 0; i < length; i++)
        if (!(KPPDFDocumentCharLookup[static_cast<uint8_t>(p[i])] & KPPDFCharNumeric))
            return false;
    const char* end = p;
    float number = KPPDFObjectStrToFloat(p, &end, p + length);
    if (end == p || !std::isfinite(number))
        return false;
    *value = number;
    return true;
}

// The buffers parseTextBlobs works in. Each thread has its own, so pages prepared on several
// threads do not share them; one string is decoded at a time (no call runs inside another).
struct TextScratch {
    struct Move {
        uint32_t codeIndex;
        float amount;
    };
    std::string codes;
    std::vector<Move> moves;
    std::string text;
    std::vector<float> widths;
    std::vector<KPPDFTextBlob::Adjustment> adjustments;
    void clear() {
        codes.clear();
        moves.clear();
        text.clear();
        widths.clear();
        adjustments.clear();
    }
};

TextScratch& textScratch() {
    thread_local TextScratch scratch;
    return scratch;
}

uint32_t utf8Length(std::string_view text) {
    uint32_t count = 0;
    for (char c : text)
        if ((static_cast<uint8_t>(c) & 0xC0) != 0x80)
            count++;
    return count;
}

KPPDFAffineTransform translation(float tx, float ty) {
    return {1, 0, 0, 1, tx, ty};
}

// A matrix from a PDF array of six numbers; false for anything else.
bool matrixFromArray(const KPPDFRef<KPPDFObjectArray>& array, KPPDFAffineTransform* matrix) {
    if (!array || array->count() < 6)
        return false;
    float values[6];
    for (size_t i = 0; i < 6; i++) {
        KPPDFRef<KPPDFObject> element = array->resolvedObjectAtIndex(i);
        if (!element || !element->isNumber() || !std::isfinite(element->realValue()))
            return false;
        values[i] = element->realValue();
    }
    *matrix = {values[0], values[1], values[2], values[3], values[4], values[5]};
    return true;
}

// The family of a colour space operand of CS or cs: a family name itself, or a resource
// name looked up in the ColorSpace resources (ISO 32000-1, 8.6.3). -1 when it is neither.
int32_t colorSpaceForOperand(std::string_view name,
                             const KPPDFRef<KPPDFObjectDictionary>& resources,
                             const KPPDFRef<KPPDFObjectDictionary>& pageResources) {
    if (name == "DeviceGray" || name == "DeviceRGB" || name == "DeviceCMYK" || name == "Pattern")
        return KPPDFGraphicsState::colorSpaceForName(name);
    KPPDFRef<KPPDFObject> space;
    for (const auto* dictionary : {&resources, &pageResources}) {
        if (!*dictionary)
            continue;
        if (auto spaces = (*dictionary)->resolvedObjectForKey<KPPDFObjectDictionary>("ColorSpace"))
            space = spaces->resolvedObjectForKey(name);
        if (space)
            break;
    }
    if (auto family = KPPDFCast<KPPDFObjectName>(space))
        return KPPDFGraphicsState::colorSpaceForName(family->value());
    auto array = KPPDFCast<KPPDFObjectArray>(space);
    if (!array || array->count() == 0)
        return -1;
    auto family = KPPDFCast<KPPDFObjectName>(array->resolvedObjectAtIndex(0));
    if (!family)
        return -1;
    if (family->value() != "ICCBased" || array->count() < 2)
        return KPPDFGraphicsState::colorSpaceForName(family->value());
    auto profile = KPPDFCast<KPPDFObjectStream>(array->resolvedObjectAtIndex(1));
    if (!profile)
        return KPPDFColorSpaceICCBased;
    KPPDFRef<KPPDFObject> alternate = profile->resolvedObjectForKey("Alternate");
    if (auto alternateArray = KPPDFCast<KPPDFObjectArray>(alternate))
        alternate =
            alternateArray->count() > 0 ? alternateArray->resolvedObjectAtIndex(0) : nullptr;
    if (auto alternateName = KPPDFCast<KPPDFObjectName>(alternate)) {
        int32_t code = KPPDFGraphicsState::colorSpaceForName(alternateName->value());
        if (code >= 0)
            return code;
    }
    KPPDFRef<KPPDFObject> components = profile->resolvedObjectForKey("N");
    switch (components && components->isNumber() ? components->longLongValue() : 0) {
    case 1:
        return KPPDFColorSpaceDeviceGray;
    case 3:
        return KPPDFColorSpaceDeviceRGB;
    case 4:
        return KPPDFColorSpaceDeviceCMYK;
    default:
        return KPPDFColorSpaceICCBased;
    }
}

void setColorSpace(KPPDFGraphicsState& gs, const KPPDFRef<KPPDFObjectDictionary>& resources,
                   const KPPDFRef<KPPDFObjectDictionary>& pageResources, std::string_view name,
                   bool forStroke) {
    int32_t space = colorSpaceForOperand(name, resources, pageResources);
    if (space < 0)
        return;
    if (forStroke)
        gs.setStrokeColorSpace(space);
    else
        gs.setNonstrokeColorSpace(space);
}

// Tj or TJ: the operand is traced back to the stream that holds it.
void showText(KPPDFPage& page, const ContentData& content, const KPPDFContentToken& operand) {
    if (content.streams.empty())
        return;
    uint32_t index = KPPDFPage::streamIndex(content.ranges, operand.offset);
    KPPDFRange range = content.ranges[index];
    if (operand.offset < range.location || operand.offset >= range.end())
        return;
    uint32_t location = operand.offset - range.location;
    // An operand cut off by the end of its stream is read as far as it goes.
    uint32_t length =
        static_cast<uint32_t>(std::min<uint64_t>(operand.length, range.end() - operand.offset));
    page.parseTextBlobs(content.streams[index], KPPDFMakeRange(location, length));
}

} // namespace

// What the interpreter knows about the content it is reading.
struct KPPDFPage::ContentContext {
    // Shared by a page's content and every form it draws.
    struct Run {
        uint64_t bytesRead = 0;
        uint32_t formInvocations = 0;
        std::vector<const KPPDFObject*> formPath; // forms being read, outermost first
        bool limitLogged = false;
        bool imageLimitLogged = false;
        bool blobLimitLogged = false;
        KPPDFRef<KPPDFObjectDictionary> pageResources;
    };

    ContentData content;
    KPPDFRef<KPPDFObjectDictionary> resources;
    Run* run = nullptr;
    int depth = 0;
    // The q/Q stack below this size belongs to the content that drew this form.
    size_t stackBase = 0;
    // q operators not followed because the stack was full; their Q are skipped too.
    uint32_t ignoredSaves = 0;
};

void KPPDFPage::startGstate() const {
    ContentState& state = content();
    if (state.gstate)
        return;
    state.gstate = std::make_shared<KPPDFGraphicsState>();
    state.gstateStack = {state.gstate};
}

void KPPDFPage::setGstate(KPPDFRef<KPPDFGraphicsState> state) {
    if (!state)
        return;
    startGstate();
    content().gstate = std::move(state);
}

void KPPDFPage::setupFontInfo(const KPPDFRef<KPPDFObjectDictionary>& resources) {
    if (!resources)
        return;
    KPPDFRef<KPPDFObjectDictionary> fonts =
        resources->resolvedObjectForKey<KPPDFObjectDictionary>("Font");
    if (!fonts)
        return;
    // A copy, since resolving entries may replace them in the dictionary's map.
    KPPDFObjectMap entries = fonts->value();
    for (const auto& [name, entry] : entries) {
        KPPDFRef<KPPDFObjectDictionary> dictionary = KPPDFResolve<KPPDFObjectDictionary>(entry);
        if (!dictionary) {
            KPPDFLog("Font resource /%s is no font dictionary", name.c_str());
            continue;
        }
        KPPDFRef<KPPDFFont> font;
        {
            // The document's font list is shared by pages prepared on other threads.
            PageLockHolder lock;
            if (pageDocument_)
                font = pageDocument_->lookupFont(dictionary);
            if (!font) {
                font = KPPDFFont::fontWithFontDictionary(dictionary);
                if (font && pageDocument_)
                    pageDocument_->addFont(font);
            }
        }
        if (font)
            content().pageFonts.insert_or_assign(name, std::move(font));
    }
}

void KPPDFPage::parseContent() {
    if (!pageDictionary_)
        return;
    std::vector<KPPDFRef<KPPDFObjectStream>> streams;
    KPPDFRef<KPPDFObject> contents = pageDictionary_->resolvedObjectForKey("Contents");
    if (auto stream = KPPDFCast<KPPDFObjectStream>(contents)) {
        streams.push_back(std::move(stream));
    } else if (auto array = KPPDFCast<KPPDFObjectArray>(contents)) {
        for (size_t i = 0; i < array->count(); i++) {
            auto element = KPPDFCast<KPPDFObjectStream>(array->resolvedObjectAtIndex(i));
            if (!element)
                continue;
            // Streams this library added for imprints are not page text, unless the imprint
            // was flattened into the page.
            if (element->resolvedObjectForKey("ParvelImprint")) {
                auto flattened =
                    KPPDFCast<KPPDFObjectBoolean>(element->resolvedObjectForKey("Flattened"));
                if (!flattened || !flattened->boolValue())
                    continue;
            }
            streams.push_back(std::move(element));
        }
    }
    setupFontInfo(KPPDFResolve<KPPDFObjectDictionary>(
        pageDictionary_->objectFromAncestorsForKey("Resources")));
    parseContentStreams(streams);
    parsedFirstContentObject_ = true;
}

void KPPDFPage::parseContentStreams(const std::vector<KPPDFRef<KPPDFObjectStream>>& streams) {
    ContentContext::Run run;
    ContentContext context;
    context.content = contentDataForStreams(streams);
    std::vector<KPPDFRef<KPPDFObjectStream>>& decoded = content().decodedStreams;
    decoded.insert(decoded.end(), context.content.streams.begin(), context.content.streams.end());
    if (pageDictionary_)
        context.resources = KPPDFResolve<KPPDFObjectDictionary>(
            pageDictionary_->objectFromAncestorsForKey("Resources"));
    run.pageResources = context.resources;
    context.run = &run;
    interpretContent(context);
}

void KPPDFPage::releaseContent() {
    // A form drawn again and again is listed each time; dropping its bytes twice is harmless.
    if (content_)
        for (const auto& stream : content_->decodedStreams)
            stream->releaseDecodedData();
    content_.reset(); // the images too, which resetContent keeps
    resetContent();
}

void KPPDFPage::handleTd(float tx, float ty) {
    startGstate();
    KPPDFGraphicsState& gs = *content_->gstate;
    KPPDFAffineTransform matrix = translation(tx, ty).concat(gs.textLineMatrix());
    gs.setTextMatrix(matrix);
    gs.setTextLineMatrix(matrix);
}

void KPPDFPage::interpretContent(ContentContext& context) {
    ContentState& state = content();
    startGstate();
    ContentContext::Run& run = *context.run;
    const KPPDFData& data = context.content.data;
    if (run.bytesRead + data.length() > kMaxInterpretedBytes) {
        if (!run.limitLogged)
            KPPDFLog("Page content reads more than %llu bytes with its forms; the rest is skipped",
                     static_cast<unsigned long long>(kMaxInterpretedBytes));
        run.limitLogged = true;
        return;
    }
    run.bytesRead += data.length();

    KPPDFContentTokenizer tokenizer(data.chars(), data.length());
    const char* bytes = data.chars();
    KPPDFContentToken operands[kMaxOperands];
    int count = 0;
    KPPDFContentToken token;

    // The operand i places from the last (0 is the last one) as a number.
    auto number = [&](int fromLast, float* value) {
        return fromLast < count && numberFromToken(bytes + operands[count - 1 - fromLast].offset,
                                                   operands[count - 1 - fromLast].length, value);
    };
    // The last n operands as numbers, in order.
    auto numbers = [&](int n, float* values) {
        for (int i = 0; i < n; i++)
            if (!number(n - 1 - i, &values[i]))
                return false;
        return true;
    };
    // The last operand as a name, without its slash.
    auto name = [&](std::string_view* value) {
        if (count == 0)
            return false;
        const KPPDFContentToken& last = operands[count - 1];
        if (last.length < 1 || bytes[last.offset] != '/')
            return false;
        *value = std::string_view(bytes + last.offset + 1, last.length - 1);
        return true;
    };
    // Every numeric operand, for colour operators.
    auto colorElements = [&](float* values) {
        uint32_t n = 0;
        for (int i = 0; i < count; i++)
            if (numberFromToken(bytes + operands[i].offset, operands[i].length, &values[n]))
                n++;
        return n;
    };

    while (tokenizer.next(&token)) {
        const char* op;
        uint32_t length;
        if (!tokenizer.isOperator(token, &op, &length)) {
            if (count < kMaxOperands)
                operands[count++] = token;
            continue;
        }
        float v[6];
        std::string_view text;
        KPPDFGraphicsState& gs = *state.gstate;
        auto is = [&](const char* word) {
            return std::strlen(word) == length && std::memcmp(word, op, length) == 0;
        };
        switch (op[0]) {
        case 'q':
            if (length != 1)
                break;
            if (state.gstateStack.size() >= kMaxGstateDepth) {
                if (context.ignoredSaves++ == 0)
                    KPPDFLog("Graphics states nested deeper than %zu are not saved",
                             kMaxGstateDepth);
                break;
            }
            state.gstateStack.push_back(state.gstate);
            state.gstate = state.gstate->copy();
            break;
        case 'Q':
            if (length != 1)
                break;
            if (context.ignoredSaves > 0) {
                context.ignoredSaves--;
                break;
            }
            // Nothing saved by this content: keep the current state rather than lose it.
            if (state.gstateStack.size() <= context.stackBase)
                break;
            state.gstate = state.gstateStack.back();
            state.gstateStack.pop_back();
            if (!state.gstate)
                state.gstate = std::make_shared<KPPDFGraphicsState>();
            break;
        case 'c':
            if (is("cm") && numbers(6, v))
                gs.setCTM(
                    KPPDFAffineTransform{v[0], v[1], v[2], v[3], v[4], v[5]}.concat(gs.CTM()));
            else if (is("cs") && name(&text))
                setColorSpace(gs, context.resources, run.pageResources, text, false);
            break;
        case 'C':
            if (is("CS") && name(&text))
                setColorSpace(gs, context.resources, run.pageResources, text, true);
            break;
        case 'B':
            if (is("BT")) {
                gs.setTextMatrix({});
                gs.setTextLineMatrix({});
            } else if (is("BI")) {
                // Inline image: the dictionary runs to ID, then the data to EI. Not listed.
                KPPDFContentToken inner;
                const char* innerOp;
                uint32_t innerLength;
                while (tokenizer.next(&inner)) {
                    if (tokenizer.isOperator(inner, &innerOp, &innerLength) && innerLength == 2 &&
                        innerOp[0] == 'I' && innerOp[1] == 'D') {
                        tokenizer.skipInlineImageData();
                        break;
                    }
                }
            }
            break;
        case 'T':
            if (length != 2)
                break;
            switch (op[1]) {
            case 'c':
                if (number(0, v))
                    gs.setTcharSpacing(v[0]);
                break;
            case 'w':
                if (number(0, v))
                    gs.setTwordSpacing(v[0]);
                break;
            case 'z':
                if (number(0, v))
                    gs.setThorizontalScaling(v[0]);
                break;
            case 'L':
                // Tleading holds the offset T* moves by, as TD leaves it: down is negative.
                if (number(0, v))
                    gs.setTleading(-v[0]);
                break;
            case 's':
                if (number(0, v))
                    gs.setTrise(v[0]);
                break;
            case 'f':
                if (number(0, v) && count >= 2) {
                    const KPPDFContentToken& font = operands[count - 2];
                    if (font.length >= 1 && bytes[font.offset] == '/') {
                        gs.setTfont(std::string_view(bytes + font.offset + 1, font.length - 1));
                        gs.setTfontSize(v[0]);
                    }
                }
                break;
            case 'r':
                if (number(0, v))
                    gs.setTmode(v[0] >= 0 && v[0] <= 7 ? static_cast<int32_t>(v[0]) : 0);
                break;
            case 'd':
                if (numbers(2, v))
                    handleTd(v[0], v[1]);
                break;
            case 'D':
                if (numbers(2, v)) {
                    // Kept as written: T* moves by the same offset.
                    gs.setTleading(v[1]);
                    handleTd(v[0], v[1]);
                }
                break;
            case '*':
                handleTd(0, gs.Tleading());
                break;
            case 'm':
                if (numbers(6, v)) {
                    KPPDFAffineTransform matrix{v[0], v[1], v[2], v[3], v[4], v[5]};
                    gs.setTextMatrix(matrix);
                    gs.setTextLineMatrix(matrix);
                }
                break;
            case 'j':
            case 'J':
                if (state.textBlobs.size() >= kMaxTextBlobs) {
                    if (!run.blobLimitLogged)
                        KPPDFLog("More than %zu strings shown on a page; the rest are not kept",
                                 kMaxTextBlobs);
                    run.blobLimitLogged = true;
                } else if (count > 0) {
                    showText(*this, context.content, operands[count - 1]);
                }
                break;
            }
            break;
        case 'G':
        case 'g':
            if (length == 1 && number(0, v)) {
                bool stroke = op[0] == 'G';
                (stroke ? gs.setStrokeColorSpace(KPPDFColorSpaceDeviceGray)
                        : gs.setNonstrokeColorSpace(KPPDFColorSpaceDeviceGray));
                (stroke ? gs.setStrokeColor(KPPDFColor::colorWithWhite(v[0]))
                        : gs.setNonstrokeColor(KPPDFColor::colorWithWhite(v[0])));
            }
            break;
        case 'R':
        case 'r':
            if ((is("RG") || is("rg")) && numbers(3, v)) {
                KPPDFColor color = KPPDFColor::colorWithRed(v[0], v[1], v[2]);
                if (op[0] == 'R') {
                    gs.setStrokeColorSpace(KPPDFColorSpaceDeviceRGB);
                    gs.setStrokeColor(color);
                } else {
                    gs.setNonstrokeColorSpace(KPPDFColorSpaceDeviceRGB);
                    gs.setNonstrokeColor(color);
                }
            }
            break;
        case 'K':
        case 'k':
            if (length == 1 && numbers(4, v)) {
                KPPDFColor color = KPPDFColor::colorWithCyan(v[0], v[1], v[2], v[3]);
                if (op[0] == 'K') {
                    gs.setStrokeColorSpace(KPPDFColorSpaceDeviceCMYK);
                    gs.setStrokeColor(color);
                } else {
                    gs.setNonstrokeColorSpace(KPPDFColorSpaceDeviceCMYK);
                    gs.setNonstrokeColor(color);
                }
            }
            break;
        case 'S':
            if (is("SC") || is("SCN"))
                gs.setStrokeColorFromElements(v, colorElements(v));
            break;
        case 's':
            if (is("sc") || is("scn"))
                gs.setNonstrokeColorFromElements(v, colorElements(v));
            break;
        case 'D':
            if (is("Do") && name(&text))
                drawXObject(context, text);
            break;
        default:
            break;
        }
        count = 0;
    }
}

void KPPDFPage::drawXObject(ContentContext& context, std::string_view name) {
    ContentState& state = content();
    ContentContext::Run& run = *context.run;
    if (!context.resources)
        return;
    auto xObjects = context.resources->resolvedObjectForKey<KPPDFObjectDictionary>("XObject");
    auto stream =
        xObjects ? KPPDFCast<KPPDFObjectStream>(xObjects->resolvedObjectForKey(name)) : nullptr;
    if (!stream || !stream->dictionary())
        return;
    KPPDFObjectDictionary& dictionary = *stream->dictionary();
    const KPPDFAffineTransform& ctm = state.gstate->CTM();

    if (dictionary.hasName("Subtype", "Image")) {
        if (state.images.size() >= kMaxImages) {
            if (!run.imageLimitLogged)
                KPPDFLog("More than %zu images on a page; the rest are not listed", kMaxImages);
            run.imageLimitLogged = true;
            return;
        }
        KPPDFRef<KPPDFImage> image = KPPDFImage::imageWithXObject(stream);
        image->setGstate(state.gstate->copy());
        image->setX(ctm.tx);
        image->setY(ctm.ty);
        // The unit square is drawn through the CTM: the image's sides are its axes' lengths.
        image->setWidth(std::hypot(ctm.a, ctm.b));
        image->setHeight(std::hypot(ctm.c, ctm.d));
        state.images.push_back(std::move(image));
        return;
    }
    if (!dictionary.hasName("Subtype", "Form"))
        return;

    std::string formName(name);
    if (context.depth + 1 > kMaxFormDepth) {
        KPPDFLog("Form /%s is nested deeper than %d forms and is not read", formName.c_str(),
                 kMaxFormDepth);
        return;
    }
    for (const KPPDFObject* form : run.formPath) {
        if (form == stream.get()) {
            KPPDFLog("Form /%s draws itself and is not read again", formName.c_str());
            return;
        }
    }
    if (run.formInvocations >= kMaxFormInvocations) {
        if (!run.limitLogged)
            KPPDFLog("Page content draws forms more than %u times; the rest are not read",
                     kMaxFormInvocations);
        run.limitLogged = true;
        return;
    }
    run.formInvocations++;

    // Forms without Resources use those of the content that draws them (ISO 32000-1, 7.8.3).
    KPPDFRef<KPPDFObjectDictionary> resources =
        KPPDFResolve<KPPDFObjectDictionary>(dictionary.objectFromAncestorsForKey("Resources"));
    if (!resources)
        resources = context.resources;

    // A form is painted as q, Matrix cm, content, Q (ISO 32000-1, 8.10.1); its font names
    // are its own, so the page's fonts come back afterwards.
    KPPDFRef<KPPDFGraphicsState> saved = state.gstate;
    size_t savedDepth = state.gstateStack.size();
    state.gstate = saved->copy();
    state.gstate->setOuterCTM(ctm);
    KPPDFAffineTransform matrix;
    if (matrixFromArray(KPPDFCast<KPPDFObjectArray>(dictionary.resolvedObjectForKey("Matrix")),
                        &matrix))
        state.gstate->setCTM(matrix.concat(ctm));
    FontMap savedFonts = state.pageFonts;
    setupFontInfo(resources);

    ContentContext inner;
    inner.content = contentDataForStreams({stream});
    state.decodedStreams.push_back(stream);
    inner.resources = resources;
    inner.run = &run;
    inner.depth = context.depth + 1;
    inner.stackBase = savedDepth;
    run.formPath.push_back(stream.get());
    interpretContent(inner);
    run.formPath.pop_back();

    state.pageFonts = std::move(savedFonts);
    if (state.gstateStack.size() > savedDepth)
        state.gstateStack.resize(savedDepth);
    state.gstate = std::move(saved);
}

void KPPDFPage::parseTextBlobs(const KPPDFRef<KPPDFObjectStream>& stream, KPPDFRange range) {
    ContentState& state = content();
    startGstate();
    if (!stream)
        return;
    KPPDFData data = stream->decodedData();
    if (range.length == 0 || range.end() > data.length()) {
        KPPDFLog("Text operand at %u (%u bytes) lies outside its content stream of %zu bytes",
                 range.location, range.length, data.length());
        return;
    }
    if (state.textBlobs.size() >= kMaxTextBlobs)
        return;

    const KPPDFGraphicsState& gs = *state.gstate;
    KPPDFRef<KPPDFFont> font;
    if (auto found = state.pageFonts.find(gs.Tfont()); found != state.pageFonts.end())
        font = found->second;
    const uint32_t codeLength = font && font->isTwoByte() ? 2 : 1;

    // The operand: the codes of its strings, and for TJ its numbers by the code they precede.
    // The buffers are the thread's own and keep their capacity from string to string; the blob
    // gets copies of just the right size.
    TextScratch& scratch = textScratch();
    scratch.clear();
    std::string& codes = scratch.codes;
    std::vector<TextScratch::Move>& moves = scratch.moves;
    const char* p = data.chars() + range.location;
    const char* end = p + range.length;
    auto appendString = [&](const char* from) {
        size_t before = codes.size();
        const char* after = KPPDFContentTokenizer::decodeString(from, end, codes);
        // A two-byte font's string of odd length ends in half a code.
        if (codeLength == 2 && (codes.size() - before) % 2)
            codes.pop_back();
        return after;
    };
    bool isArray = *p == '[';
    if (*p == '(' || (*p == '<' && (p + 1 == end || p[1] != '<'))) {
        appendString(p);
    } else if (isArray) {
        for (p++; p < end;) {
            p = KPPDFContentTokenizer::skipWhitespace(p, end);
            if (p >= end || *p == ']')
                break;
            if (*p == '(' || *p == '<') {
                const char* after = appendString(p);
                p = after > p ? after : p + 1;
                continue;
            }
            const char* tokenEnd = p + 1;
            while (tokenEnd < end && !KPPDFIsWhitespace(static_cast<uint8_t>(*tokenEnd)) &&
                   !KPPDFIsDelimiter(static_cast<uint8_t>(*tokenEnd)))
                tokenEnd++;
            float amount;
            if (numberFromToken(p, static_cast<uint32_t>(tokenEnd - p), &amount))
                moves.push_back({static_cast<uint32_t>(codes.size() / codeLength), amount});
            p = tokenEnd;
        }
    } else {
        KPPDFLog("Text operand at %u is neither a string nor an array", range.location);
        return;
    }

    // Text space (ISO 32000-1, 9.4.4): tx = ((w0 - Tj/1000) * Tfs + Tc + Tw) * Th, and the
    // text matrix moves by tx after each glyph. Advances here are in text space; scale takes
    // them to page units along the baseline.
    const float size = gs.TfontSize();
    const float hScale = gs.ThorizontalScaling();
    const KPPDFAffineTransform trm = gs.textMatrix().concat(gs.CTM());
    const float scale = std::hypot(trm.a, trm.b);
    const float vScale = std::hypot(trm.c, trm.d);
    const bool vertical = font && font->isVerticalMode();
    const uint32_t nCodes = static_cast<uint32_t>(codes.size() / codeLength);

    std::string& text = scratch.text;
    std::vector<float>& widths = scratch.widths;
    std::vector<KPPDFTextBlob::Adjustment>& adjustments = scratch.adjustments;
    uint32_t characterCount = 0; // of text
    float advance = 0;           // along the line, from the text matrix origin
    float start = 0;             // where the first glyph begins
    float textEnd = 0;           // where the last glyph ends
    float vAdvance = 0;          // vertical fonts move down instead
    float pending = 0;           // advance of codes that decode to no character yet
    size_t moveIndex = 0;
    for (uint32_t i = 0; i <= nCodes; i++) {
        for (; moveIndex < moves.size() && moves[moveIndex].codeIndex == i; moveIndex++) {
            float amount = moves[moveIndex].amount;
            float move = -amount / 1000.0f * size * hScale;
            // Vertical fonts move down; the horizontal count still gives the widths.
            if (vertical)
                vAdvance -= amount / 1000.0f * size;
            advance += move;
            if (i == 0) {
                start = advance;
                continue;
            }
            if (i == nCodes)
                continue; // after the last glyph: moves the next text, not part of this one
            KPPDFTextBlob::Adjustment adjustment{i, characterCount, amount, false};
            if (amount <= KPPDFTextBlob::kWordGapMove && !text.empty() && text.back() != ' ') {
                text.push_back(' ');
                characterCount++;
                widths.push_back(move * scale);
                adjustment.insertedSpace = true;
            } else if (!widths.empty()) {
                widths.back() += move * scale;
            } else {
                pending += move * scale;
            }
            adjustments.push_back(adjustment);
        }
        if (i == nCodes)
            break;
        const char* code = codes.data() + size_t(i) * codeLength;
        uint32_t value = codeLength == 2 ? (uint32_t(uint8_t(code[0])) << 8 | uint8_t(code[1]))
                                         : uint8_t(code[0]);
        float glyph = font ? font->glyphWidth(value) : kMissingFontWidth;
        float spacing =
            gs.TcharSpacing() + (codeLength == 1 && value == 32 ? gs.TwordSpacing() : 0);
        float glyphAdvance = (glyph * size + spacing) * hScale;
        if (vertical)
            vAdvance += kDefaultVerticalAdvance * size + spacing;
        advance += glyphAdvance;
        textEnd = advance;
        const size_t before = text.size();
        if (font)
            font->appendStringForData(std::string_view(code, codeLength), text);
        else
            text += KPPDFTextEncoding::latin1ToUTF8(std::string_view(code, 1));
        uint32_t characters = utf8Length(std::string_view(text).substr(before));
        if (characters == 0) {
            pending += glyphAdvance * scale;
            continue;
        }
        characterCount += characters;
        widths.push_back(glyphAdvance * scale + pending);
        pending = 0;
        widths.insert(widths.end(), characters - 1, 0.0f);
    }
    if (pending != 0 && !widths.empty())
        widths.back() += pending;

    // The state as the text was shown, before the text matrix moves past it.
    KPPDFRef<KPPDFGraphicsState> shownState = nCodes ? state.gstate->copy() : nullptr;
    KPPDFAffineTransform next = vertical ? translation(0, vAdvance) : translation(advance, 0);
    state.gstate->setTextMatrix(next.concat(gs.textMatrix()));
    if (nCodes == 0)
        return; // nothing shown: the matrix has moved, but there is no text to keep

    float ascent = font ? font->ascent() : kMissingFontAscent;
    float descent = font ? font->descent() : kMissingFontDescent;
    float height = std::fabs(size) * vScale;
    KPPDFPoint location = trm.apply({start, gs.Trise()});
    KPPDFRef<KPPDFTextBlob> blob =
        KPPDFTextBlob::textBlobAt(location, ascent * height, std::min(descent * height, 0.0f),
                                  std::move(shownState), stream, range, std::string(text));
    blob->setWidth((textEnd - start) * scale);
    blob->setWidths(std::vector<float>(widths.begin(), widths.end()));
    blob->setFont(std::move(font));
    blob->setIsArray(isArray);
    blob->setCodes(std::string(codes));
    if (!adjustments.empty())
        blob->setAdjustments(
            std::vector<KPPDFTextBlob::Adjustment>(adjustments.begin(), adjustments.end()));
    blob->setTextScale(scale);
    PageLockHolder lock;
    state.textBlobs.push_back(std::move(blob));
}
