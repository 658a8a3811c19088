#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/page/KPPDFGraphicsState.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFDocument;
class KPPDFFont;
class KPPDFImage;
class KPPDFImprint;
class KPPDFObjectStream;
class KPPDFTextBlob;
class KPPDFBaseline;
class KPPDFObjectArray;
class KPPDFObjectDictionary;

// The user-defaults key of the space-gap rule of text extraction.
inline constexpr const char KPPDFSpaceGapKey[] = "spaceGap";
// The "spaceGap" user default, read once on first call (later changes are not seen).
bool KPPDFUseSpaceGap();

// One page of a document: its dictionary from the page tree, its geometry (cached until the
// dictionary is replaced), its imprints and the extra objects written with it.
class KPPDFPage {
public:
    // A rotation of zero degrees is cached as this, since 0 means "not computed yet".
    static constexpr uint32_t kRotationNone = 360;
    // Width and height of the cached crop box of a page that has none.
    static constexpr float kNoCropBox = -1.0f;

    KPPDFPage();
    KPPDFPage(KPPDFDocument* document, uint32_t number, KPPDFRef<KPPDFObjectDictionary> dictionary);
    virtual ~KPPDFPage();
    KPPDFPage(const KPPDFPage&) = delete;
    KPPDFPage& operator=(const KPPDFPage&) = delete;

    // A page of document (not owned: it must outlive the page) with its index and dictionary.
    static KPPDFRef<KPPDFPage> pageWithDocument(KPPDFDocument* document, uint32_t number,
                                                KPPDFRef<KPPDFObjectDictionary> dictionary);
    // A page whose document is opened from data and kept alive by the page. The document is
    // null when data is not a PDF; the page is returned all the same.
    static KPPDFRef<KPPDFPage> pageWithData(const KPPDFData& data, uint32_t number,
                                            KPPDFRef<KPPDFObjectDictionary> dictionary);

    // The document the page belongs to; null once that document is gone.
    KPPDFDocument* document() const { return pageDocument_; }
    void setDocument(KPPDFDocument* document) { pageDocument_ = document; }
    uint32_t pageNumberInDocument() const { return pageNumberInDocument_; }
    void setPageNumberInDocument(uint32_t number) { pageNumberInDocument_ = number; }
    const KPPDFRef<KPPDFObjectDictionary>& pageDictionary() const { return pageDictionary_; }
    // Installs a dictionary and forgets every cached box and rotation.
    void setPageDictionary(KPPDFRef<KPPDFObjectDictionary> dictionary);

    // ---- Geometry (ISO 32000-1, 14.11.2 and 7.7.3.3) ----
    // The media box, inherited through Parent. A page without one anywhere is given the print
    // paper size, written into its dictionary so that it is saved with the page.
    KPPDFRect mediaBox();
    // True and *box (may be null) set when the page or an ancestor has a crop box; false leaves
    // *box untouched. A missing crop box is remembered.
    bool cropBox(KPPDFRect* box);
    // True and *rotation (may be null) set when the page or an ancestor has Rotate; the value is
    // reduced to 0..359 and 0 is reported as kRotationNone. False leaves *rotation untouched.
    bool rotate(uint32_t* rotation);
    // The entry for a key as the page dictionary or an ancestor gives it.
    using EntryLookup = std::function<KPPDFRef<KPPDFObject>(std::string_view key)>;
    // Reads and caches the media box, crop box and rotation without changing the dictionary:
    // false when the page has no usable media box (mediaBox would give it one). lookup, when
    // given, stands for the dictionary's inherited entries (read by a caller that did not
    // parse the dictionary).
    bool cacheGeometry(const EntryLookup& lookup = nullptr);
    // Writes Rotate (degrees modulo 360) on the page itself, even when it was inherited.
    void setRotate(uint32_t degrees);
    // [x y x+width y+height] as four reals.
    static KPPDFRef<KPPDFObjectArray> makePDFRect(KPPDFRect rect);
    // The first corner as written is the origin (not normalised); width and height are made
    // positive. An array of fewer than four numbers gives the zero rectangle and a log line.
    static KPPDFRect getPDFRectFromArray(KPPDFObjectArray& array);

    // ---- Imprints, in drawing order; the page owns them and is their page() ----
    // The list, after the page's annotations have been read into it once.
    std::vector<KPPDFRef<KPPDFImprint>>& imprints();
    // Null imprints are ignored by the editing operations.
    void addImprint(KPPDFRef<KPPDFImprint> imprint);
    // An index past the end appends.
    void insertImprint(KPPDFRef<KPPDFImprint> imprint, uint32_t index);
    // Removes every imprint equal (isEqual) to the argument.
    void removeImprint(const KPPDFRef<KPPDFImprint>& imprint);
    // An index out of range is logged and changes nothing.
    void removeImprintAtIndex(uint32_t index);
    void setImprints(std::vector<KPPDFRef<KPPDFImprint>> imprints);
    // Reads the page's Annots into imprints, once (KPPDFPageImprints.cpp): each annotation by
    // the class of its Subtype, appended in Annots order, pop-ups linked to their parents.
    void processAnnotations();
    // The annotation imprints in list order, after reading Annots if that has not run.
    std::vector<KPPDFRef<KPPDFImprint>> annotationImprints();
    // The content imprints in list order once Annots has been read; before that the whole list,
    // which can then hold nothing else (and Annots is not read for it).
    std::vector<KPPDFRef<KPPDFImprint>> contentImprints();
    // Link and form widget annotations in list order, after reading Annots if needed.
    std::vector<KPPDFRef<KPPDFImprint>> links();
    std::vector<KPPDFRef<KPPDFImprint>> widgets();
    // Rebuilds the content imprints that a save kept in the page's private record (form
    // XObjects "ParvelImprint<n>" of a page marked "ParvelImprints") and appends them; true
    // when the page carried at least one. Malformed records are skipped with a log line.
    bool setupImprints();
    bool processedAnnotations() const { return processedAnnotations_; }

    // ---- Objects written together with the page ----
    const KPPDFObjectList& extraObjects() const { return extraObjects_; }
    void setExtraObjects(KPPDFObjectList objects) { extraObjects_ = std::move(objects); }
    void addExtraObject(KPPDFRef<KPPDFObject> object);
    // Removes every entry that is this very object (identity, not equality).
    void removeExtraObject(const KPPDFRef<KPPDFObject>& object);

    // ---- Text state ----
    // The page's extracted text; empty until the text has been prepared.
    const std::string& pageString() const;
    KPPDFAttributedString& richPageString() { return content().pageString; }
    void setPageString(KPPDFAttributedString string) { content().pageString = std::move(string); }
    bool preparedForSearch() const { return preparedForSearch_; }
    bool preparedForSelection() const { return preparedForSelection_; }
    bool parsedFirstContentObject() const { return parsedFirstContentObject_; }
    void setParsedFirstContentObject(bool parsed) { parsedFirstContentObject_ = parsed; }
    bool hasColumns() const { return hasColumns_; }
    // Drops everything text preparation made, so the next text request parses again; the
    // imprints, extra objects and images stay.
    void resetContent();
    // resetContent, and also the images and the decoded bytes of the content streams and forms
    // the page read: what a caller that is done with the page's text calls to give its memory
    // back. The next text request decodes and parses again.
    void releaseContent();

    // ---- Copying and comparing ----
    // Same document and same page number; nothing else is compared.
    bool isEqual(const KPPDFPage& other) const;
    // A new page of the same document with a copy of the dictionary that keeps its object
    // number (so it is written as the same object), copies of the content and annotation
    // imprints except links, and the extra objects. The caller owns it.
    KPPDFRef<KPPDFPage> copy() const;

    // The index of the first range holding position; 0 when none does (which cannot be told
    // from a hit in the first range).
    static uint32_t streamIndex(const std::vector<KPPDFRange>& ranges, uint64_t position);

    // ---- Content interpretation (KPPDFPageContent.cpp; ISO 32000-1, 8 and 9) ----
    using FontMap = std::map<std::string, KPPDFRef<KPPDFFont>, std::less<>>;
    // Forms drawn inside forms deeper than this are not read (nor is a form inside itself).
    static constexpr int kMaxFormDepth = 32;
    // Fonts by resource name, filled by setupFontInfo.
    FontMap& pageFonts() { return content().pageFonts; }
    void setPageFonts(FontMap fonts) { content().pageFonts = std::move(fonts); }
    // The current state while content is read; never null.
    const KPPDFRef<KPPDFGraphicsState>& gstate() const {
        startGstate();
        return content_->gstate;
    }
    // A null state is ignored.
    void setGstate(KPPDFRef<KPPDFGraphicsState> state);
    // The q/Q stack; its first element is the initial state.
    std::vector<KPPDFRef<KPPDFGraphicsState>>& gstateStack() {
        startGstate();
        return content_->gstateStack;
    }
    // Shown strings in content order until they are sorted.
    std::vector<KPPDFRef<KPPDFTextBlob>>& textBlobs() { return content().textBlobs; }
    void setTextBlobs(std::vector<KPPDFRef<KPPDFTextBlob>> blobs) {
        content().textBlobs = std::move(blobs);
    }
    // Image XObjects drawn by the content, in drawing order, as parseContent found them.
    std::vector<KPPDFRef<KPPDFImage>>& images() { return content().images; }
    // Makes the fonts of a resource dictionary's Font entry (shared through the document's
    // font list, under KPPDFPageLock) and enters them in pageFonts. Null does nothing.
    void setupFontInfo(const KPPDFRef<KPPDFObjectDictionary>& resources);
    // Reads the page's Contents (one stream or an array), leaving out the streams of imprints
    // that were not flattened, with the page's inherited Resources.
    void parseContent();
    // Interprets the streams as one content: their decoded data in order, with the page's
    // Resources. Text blobs and images are appended to the page's lists.
    void parseContentStreams(const std::vector<KPPDFRef<KPPDFObjectStream>>& streams);
    // Td: moves to the start of the next line, offset (tx, ty) from the current one.
    void handleTd(float tx, float ty);
    // Makes the blob of one Tj string or TJ array operand at range in stream's decoded data,
    // shown with the current state, and advances the text matrix past it. A range outside the
    // data or an operand that is neither is logged and makes nothing.
    void parseTextBlobs(const KPPDFRef<KPPDFObjectStream>& stream, KPPDFRange range);

    // ---- Text lines, search and selection (KPPDFPageText.cpp) ----
    // Positions taken and returned by the operations of this section count UTF-16 code units
    // of the page string, as text views do; the ranges that blobs and baselines keep count its
    // UTF-8 bytes, and the conversions below go between the two.
    using BaselineList = std::vector<KPPDFRef<KPPDFBaseline>>;
    // The character lookups' result for a point that lies on no line.
    static constexpr int32_t kCharPositionNotFound = 2147483647;
    // Gaps between the blobs of a line at least this wide split it while preparing selection.
    static constexpr float kSplitGapWidth = 8.0f;
    // More distinct left edges than this (to a tenth of a unit) mean the lines are no columns.
    static constexpr size_t kMaxColumnGroups = 5;
    // Once: fonts and content are read, the blobs sorted into lines, the page string built.
    void prepareForSearch();
    // Once, after prepareForSearch: per-character widths, lines split at wide gaps and put in
    // column order, the page string rebuilt in that order.
    void prepareForSelection();
    // The lines in reading order; empty until prepared.
    const BaselineList& baselines() const;
    void setBaselines(BaselineList baselines) { content().baselines = std::move(baselines); }
    // The union of the lines' bounds, from the zero rectangle.
    static KPPDFRect boundsForBaselines(const BaselineList& baselines);
    // The union of each line's bounds clipped to within.
    static KPPDFRect boundsForBaselines(const BaselineList& baselines, KPPDFRect within);
    // The position under point on the first line whose bounds hold it, that line in *baseline
    // (may be null); kCharPositionNotFound, *baseline untouched, when no line holds it, -1 when
    // the point is left of the line's text. Call a prepare operation first.
    int32_t charPositionForPoint(KPPDFPoint point, KPPDFRef<KPPDFBaseline>* baseline);
    // The position nearest to point: at or below the last line's top and right of its start,
    // the end of the page string; else on the nearest line, its first position left of it, its
    // newline right of or below it. 0 without lines.
    int32_t closestCharPositionForPoint(KPPDFPoint point);
    // The lines from the one holding from to the one holding to; empty (no result) when both
    // are below 1, when either lies on no line or when from lies after to.
    BaselineList baselinesFromCharPosition(int32_t from, int32_t to);
    // UTF-16 positions of the page string to its bytes and back; positions past the end give
    // the end. A byte inside a character counts as that character.
    KPPDFRange byteRangeForCharRange(KPPDFRange characters) const;
    KPPDFRange charRangeForByteRange(KPPDFRange bytes) const;
    // One rectangle per line for the characters of range (UTF-16 positions), in reading order:
    // what a selection or a search hit covers. Positions refer to the page string as it is now,
    // so prepare for selection before taking them (preparing may rebuild the string).
    std::vector<KPPDFRect> rectsForCharRange(KPPDFRange characters);

    // Called by the document as it goes away: forgets it and cuts the dictionary's links.
    void disconnect();
    std::string description() const;

private:
    void installEntry(std::string_view key, KPPDFRef<KPPDFObject> value);
    KPPDFRef<KPPDFObject> inheritedEntry(std::string_view key);
    // The media box the dictionary or an ancestor gives; the zero rectangle without one.
    KPPDFRect storedMediaBox();
    void cacheCropBox(const KPPDFRef<KPPDFObject>& entry);
    void cacheRotation(const KPPDFRef<KPPDFObject>& entry);
    void clearGeometryCaches();

    KPPDFDocument* pageDocument_ = nullptr; // not owned
    // Only for pages made from data: keeps their own document alive.
    KPPDFRef<KPPDFDocument> ownedDocument_;
    uint32_t pageNumberInDocument_ = 0;
    std::vector<KPPDFRef<KPPDFImprint>> imprints_;
    KPPDFRef<KPPDFObjectDictionary> pageDictionary_;
    KPPDFObjectList extraObjects_;
    bool processedAnnotations_ = false;
    bool preparedForSearch_ = false;
    bool preparedForSelection_ = false;
    bool parsedFirstContentObject_ = false;
    KPPDFRect cachedMediaBox_;
    KPPDFRect cachedCropBox_;
    uint32_t cachedRotation_ = 0;
    bool cachedRotated_ = false;
    bool hasColumns_ = false;

    // Content interpretation (KPPDFPageContent.cpp).
    struct ContentContext;
    void interpretContent(ContentContext& context);
    void drawXObject(ContentContext& context, std::string_view name);
    // Made when first needed: a fresh state and the stack holding it.
    void startGstate() const;

    // What reading the content and preparing the text make. Most pages of a large document
    // never read their content, so it is kept apart and made on first use (content()); a page
    // that has none costs a pointer.
    struct ContentState {
        KPPDFAttributedString pageString;
        FontMap pageFonts;
        KPPDFRef<KPPDFGraphicsState> gstate;
        std::vector<KPPDFRef<KPPDFGraphicsState>> gstateStack;
        std::vector<KPPDFRef<KPPDFTextBlob>> textBlobs;
        std::vector<KPPDFRef<KPPDFImage>> images;
        // The streams whose decoded bytes parsing asked for, so releaseContent can drop them.
        std::vector<KPPDFRef<KPPDFObjectStream>> decodedStreams;
        // Text lines (KPPDFPageText.cpp).
        BaselineList baselines;
    };
    ContentState& content() const {
        if (!content_)
            content_ = std::make_unique<ContentState>();
        return *content_;
    }
    mutable std::unique_ptr<ContentState> content_;
};
