#include "kppdf/document/KPPDFDocument.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDestination.h"
#include "kppdf/document/KPPDFOutline.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {

// Fills the object table from a built file the way the cross-reference table would, then runs
// the page tree, names and outline steps of opening.
KPPDFRef<KPPDFDocument> loadBuilt(TestPDFBuilder& builder, unsigned highest,
                                  const std::string& path = "") {
    auto document = tableDocument(builder, highest);
    document->setPath(path);
    auto root = tableDictionary(*document, 1);
    document->setRootObject(root);
    if (root)
        document->setPagesObject(root->resolvedObjectForKey<KPPDFObjectDictionary>("Pages"));
    document->processDests();
    document->prepPages();
    document->processOutline();
    return document;
}

std::string ref(unsigned number) {
    return std::to_string(number) + " 0 R";
}

std::string page(unsigned parent, const std::string& extra = "") {
    return "<< /Type /Page /Parent " + ref(parent) + " " + extra + " >>";
}

std::vector<uint32_t> pageNumbers(KPPDFDocument& document) {
    std::vector<uint32_t> numbers;
    for (auto& page : document.pages())
        numbers.push_back(page->pageDictionary()->objectNumber());
    return numbers;
}

int32_t pageIndex(KPPDFDocument& document, const KPPDFRef<KPPDFPage>& page) {
    for (uint32_t i = 0; page && i < document.pageCount(); i++)
        if (document.pageAtIndex(i) == page)
            return static_cast<int32_t>(i);
    return -1;
}

// A destination's type, page index (-1: none), fit and numbers in one line.
std::string destinationFields(const KPPDFDestination& d, KPPDFDocument& document) {
    static const char* const kTypes[] = {"unknown", "page", "uri", "remote"};
    static const char* const kFits[] = {"None", "XYZ",  "Fit",   "FitH", "FitV",
                                        "FitR", "FitB", "FitBH", "FitBV"};
    bool known = d.type() >= 0 && d.type() < 4 && d.fit() >= 0 && d.fit() < 9;
    if (!known)
        return "type " + std::to_string(d.type()) + " fit " + std::to_string(d.fit());
    char text[160];
    std::snprintf(text, sizeof text, "%s %d %s l%g r%g b%g t%g z%g", kTypes[d.type()],
                  pageIndex(document, d.page()), kFits[d.fit()], double(d.left()),
                  double(d.right()), double(d.bottom()), double(d.top()), double(d.zoom()));
    return text;
}

// Each item below the outline item, depth first and indented by level: title, flags, colour,
// and where it leads.
void outlineLines(const KPPDFOutline& item, KPPDFDocument& document,
                  std::vector<std::string>& lines, const std::string& indent = "") {
    for (const auto& child : item.children()) {
        std::string colour = std::string(child->colorIsBlack() ? "black " : "") +
                             (child->color() ? child->color()->description() : "none");
        auto d = child->destination();
        lines.push_back(indent + child->title() + " | " + std::to_string(child->flags()) + " " +
                        colour + " | " +
                        (d ? destinationFields(*d, document) + " " + d->url() : ""));
        outlineLines(*child, document, lines, indent + "  ");
    }
}

// Three pages below the root, used by the destination and outline tests: objects 3, 4, 5.
void addThreePages(TestPDFBuilder& builder, const std::string& catalogExtra) {
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R " + catalogExtra + " >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R] /Count 3 >>");
    builder.add(3, page(2, "/MediaBox [0 0 612 792]"));
    builder.add(4, page(2, "/MediaBox [0 0 612 792]"));
    builder.add(5, page(2, "/MediaBox [0 0 612 792]"));
}

// The destinations of a page's link annotations, in order.
std::vector<KPPDFRef<KPPDFDestination>> linkDestinations(KPPDFDocument& document, uint32_t index) {
    std::vector<KPPDFRef<KPPDFDestination>> destinations;
    auto annots =
        document.pageAtIndex(index)->pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>(
            "Annots");
    for (size_t i = 0; annots && i < annots->count(); i++) {
        auto annotation = KPPDFCast<KPPDFObjectDictionary>(annots->resolvedObjectAtIndex(i));
        if (annotation && annotation->hasName("Subtype", "Link"))
            destinations.push_back(
                KPPDFDestination::destinationFromDictionary(annotation, document));
    }
    return destinations;
}

} // namespace

TEST(KPPDFDocumentPageTree, WalkOrderCountAndDamagedTrees) {
    // Objects 2, 3, ... below the catalogue, the pages they give in order, and the log lines
    // (none when the list is empty).
    auto counted = [](const std::string& count) {
        std::string node = "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R] " + count + " >>";
        return std::vector<std::string>{node, page(2), page(2), page(2)};
    };
    struct Case {
        const char* name;
        std::vector<std::string> objects;
        std::vector<uint32_t> pages;
        std::vector<const char*> logged;
    };
    const Case cases[] = {
        {"nested nodes give their leaves depth first",
         {"<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 3 >>",
          "<< /Type /Pages /Parent 2 0 R /Kids [5 0 R 6 0 R] /Count 2 >>", page(2), page(3),
          "<< /Type /Pages /Parent 3 0 R /Kids [7 0 R] /Count 1 >>", page(6)},
         {5, 7, 4},
         {}},
        // 4 has no Type and no Kids: a page; 5 has Kids: a node, whose page 6 then comes once.
        {"kids of the wrong kind",
         {"<< /Type /Pages /Kids [3 0 R 4 0 R 99 0 R 5 0 R 6 0 R] /Count 3 >>",
          "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
          "<< /Parent 2 0 R /MediaBox [0 0 100 100] >>", "<< /Parent 2 0 R /Kids [6 0 R] >>",
          page(5)},
         {4, 6},
         {"Expected Page or Pages object, found: Font",
          "Expected Page or Pages object, found: (null)",
          "Page tree node 4 0 R has no Type; taken as Page",
          "Page tree node 6 0 R is listed twice; skipped",
          "Page tree Count 3 exceeds the 2 pages found"}},
        {"cycles and repeats are cut",
         {"<< /Type /Pages /Kids [3 0 R] /Count 3 >>",
          "<< /Type /Pages /Parent 2 0 R /Kids [4 0 R 5 0 R 2 0 R 4 0 R 3 0 R 6 0 R] /Count 3 >>",
          page(3), page(3), page(3)},
         {4, 5, 6},
         {"Page tree node 2 0 R lists its own ancestor; skipped",
          "Page tree node 3 0 R lists its own ancestor; skipped",
          "Page tree node 4 0 R is listed twice; skipped"}},
        {"a root that is a page itself",
         {"<< /Type /Page /MediaBox [0 0 200 100] >>"},
         {2},
         {"Page tree root is a Page; taken as the only page"}},
        // A Type that is null, or refers to nothing, is no Type (a saved file writes the
        // second as the first).
        {"null types",
         {"<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>",
          "<< /Type null /Parent 2 0 R /MediaBox [0 0 100 100] >>",
          "<< /Type 99 0 R /Parent 2 0 R /MediaBox [0 0 100 100] >>"},
         {3, 4},
         {"Page tree node 3 0 R has no Type; taken as Page",
          "Page tree node 4 0 R has no Type; taken as Page"}},
        // The Count decides only when it is smaller than the pages found.
        {"Count as found", counted("/Count 3"), {3, 4, 5}, {}},
        {"Count smaller",
         counted("/Count 2"),
         {3, 4},
         {"Page tree Count 2 is below the 3 pages found; using the first 2"}},
        {"Count larger",
         counted("/Count 5"),
         {3, 4, 5},
         {"Page tree Count 5 exceeds the 3 pages found"}},
        {"Count negative",
         counted("/Count -1"),
         {3, 4, 5},
         {"Page tree has no usable Count; using the 3 pages found"}},
        {"no Count", counted(""), {3, 4, 5}, {"Page tree has no usable Count"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TestPDFBuilder builder;
        builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
        for (size_t i = 0; i < c.objects.size(); i++)
            builder.add(static_cast<unsigned>(i + 2), c.objects[i]);
        LogCapture log;
        auto document = loadBuilt(builder, static_cast<unsigned>(c.objects.size() + 1));
        EXPECT_EQ(pageNumbers(*document), c.pages);
        for (uint32_t i = 0; i < document->pageCount(); i++) {
            EXPECT_EQ(document->pageAtIndex(i)->pageNumberInDocument(), i);
            EXPECT_EQ(document->pageAtIndex(i)->document(), document.get());
        }
        EXPECT_EQ(document->pageAtIndex(document->pageCount()), nullptr);
        for (const char* line : c.logged)
            EXPECT_TRUE(log.contains(line)) << line;
        if (c.logged.empty()) {
            EXPECT_TRUE(log.lines().empty()) << log.lines().front();
        }
    }
}

TEST(KPPDFDocumentPageTree, InheritedEntriesAsEachPageWouldLookThemUpAndSaved) {
    // Pages read without parsing take inherited boxes and rotations from their node once for
    // all its pages; each must get what looking up its own ancestors gives, in a sound tree and
    // in one whose chain of parents comes back through a page (7's node claims it as parent).
    // A box or rotation that is null, or refers to nothing (10, 11), is no entry: the page takes
    // its node's. Both ways of saving write the inherited value into the page, whose node is not
    // written (the writer writes a reference to nothing as null, so the two must mean the same).
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R 6 0 R] /Count 7 /Rotate 180 "
                   "/MediaBox [0 0 300 300] >>");
    builder.add(3, "<< /Type /Pages /Parent 2 0 R /Kids [4 0 R 5 0 R 9 0 R 10 0 R 11 0 R] "
                   "/Count 5 /CropBox [10 10 290 290] >>");
    builder.add(4, page(3));
    builder.add(5, page(3, "/Rotate 90 /MediaBox [0 0 100 200]"));
    builder.add(9, page(3));
    builder.add(10, page(3, "/MediaBox null /Rotate null"));
    builder.add(11, page(3, "/MediaBox 99 0 R /CropBox null /Rotate 98 0 R"));
    builder.add(6, "<< /Type /Pages /Parent 7 0 R /Kids [7 0 R 8 0 R] /Count 2 "
                   "/MediaBox [0 0 50 60] >>");
    builder.add(7, page(6));
    builder.add(8, page(6, "/CropBox [1 1 20 20]"));
    const KPPDFRect inheritedCrop = KPPDFMakeRect(10, 10, 280, 280);
    const struct {
        KPPDFRect media, crop; // crop: empty when there is none
        uint32_t rotation;
    } expected[] = {
        {KPPDFMakeRect(0, 0, 300, 300), inheritedCrop, 180},
        {KPPDFMakeRect(0, 0, 100, 200), inheritedCrop, 90},
        {KPPDFMakeRect(0, 0, 300, 300), inheritedCrop, 180},
        {KPPDFMakeRect(0, 0, 300, 300), inheritedCrop, 180},
        {KPPDFMakeRect(0, 0, 300, 300), inheritedCrop, 180},
        {KPPDFMakeRect(0, 0, 50, 60), KPPDFRect(), 0},
        {KPPDFMakeRect(0, 0, 50, 60), KPPDFMakeRect(1, 1, 19, 19), 0},
    };
    auto check = [&](KPPDFDocument& document) {
        ASSERT_EQ(document.pageCount(), 7u);
        for (uint32_t i = 0; i < 7; i++) {
            SCOPED_TRACE(i);
            KPPDFPage& page = *document.pageAtIndex(i);
            EXPECT_EQ(page.mediaBox(), expected[i].media);
            bool hasCrop = expected[i].crop.size.width > 0;
            KPPDFRect crop = KPPDFRect();
            EXPECT_EQ(page.cropBox(&crop), hasCrop);
            EXPECT_EQ(crop, expected[i].crop);
            uint32_t rotation = 0;
            page.rotate(&rotation);
            EXPECT_EQ(rotation, expected[i].rotation);
            // The same as each page's own lookup, made now on its parsed dictionary.
            auto own = page.pageDictionary();
            auto rotate = own->objectFromAncestorsForKey("Rotate");
            EXPECT_EQ(rotate ? static_cast<uint32_t>(rotate->longLongValue()) : 0u, rotation);
            EXPECT_EQ(own->objectFromAncestorsForKey("CropBox") != nullptr, hasCrop);
        }
    };
    auto document = loadBuilt(builder, 11);
    ASSERT_EQ(pageNumbers(*document), (std::vector<uint32_t>{4, 5, 9, 10, 11, 7, 8}));
    check(*document);
    for (bool imprints : {true, false}) {
        SCOPED_TRACE(imprints);
        int32_t result = -1;
        auto saved = KPPDFDocument::documentWithData(
            KPPDFData(document->currentDataWithImprints(imprints)), &result);
        ASSERT_TRUE(saved);
        EXPECT_EQ(result, KPPDFDocumentOpened);
        check(*saved);
    }
}

TEST(KPPDFDocumentPageTree, DeepTreesAreCutWithoutRecursion) {
    // Node i lists page i and node i + 1, 2000 levels down; node 0 is the root.
    constexpr unsigned kLevels = 2000;
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 10 0 R >>");
    for (unsigned i = 0; i <= kLevels; i++) {
        std::string kids = ref(11 + 2 * i);
        if (i < kLevels)
            kids.append(" ").append(ref(12 + 2 * i));
        std::string parent = i ? "/Parent " + ref(10 + 2 * (i - 1)) + " " : "";
        builder.add(10 + 2 * i, "<< /Type /Pages " + parent + "/Kids [" + kids + "] >>");
        builder.add(11 + 2 * i, page(10 + 2 * i));
    }
    LogCapture log;
    auto document = loadBuilt(builder, 12 + 2 * kLevels);
    // The root's own page and one page from each level the walk may enter.
    EXPECT_EQ(document->pageCount(), uint32_t(KPPDFDocument::kMaxPageTreeDepth));
    EXPECT_TRUE(log.contains("Page tree deeper than 1024 levels"));
    for (uint32_t i = 0; i < document->pageCount(); i += 97)
        EXPECT_EQ(document->pageAtIndex(i)->pageDictionary()->objectNumber(), 11 + 2 * i);
}

TEST(KPPDFDocumentPageTree, NamedAndExplicitDestinations) {
    // Both forms of named destinations: only the name tree counts. Its root's own Names are
    // ignored because it has Kids; node 12 lists the root again.
    TestPDFBuilder builder;
    addThreePages(builder, "/Dests 8 0 R /Names << /Dests 10 0 R >>");
    builder.add(6, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    builder.add(8, "<< /first [3 0 R /Fit] >>");
    builder.add(10, "<< /Kids [11 0 R 12 0 R] /Names [(zzz) [3 0 R /Fit]] >>");
    builder.add(11, "<< /Limits [(alpha) (beta)] /Names [(alpha) [3 0 R /Fit] (beta) 13 0 R] >>");
    builder.add(12, "<< /Kids [14 0 R 10 0 R] >>");
    builder.add(13, "<< /D [4 0 R /FitR 10 20 30 40] >>");
    builder.add(14, "<< /Names [(alpha) [5 0 R /FitB] (gamma) 15 0 R (odd)] >>");
    builder.add(15, "[5 0 R /FitV 100]");
    builder.add(22, "<< /Dest (beta) >>");
    builder.add(24, "<< /A << /S /GoTo /D [5 0 R /FitBH 500] >> >>");
    builder.add(26, "<< /A << /S /GoToR /F (other dir/companion.pdf) /D [0 /Fit] >> >>");
    builder.add(27, "<< /A << /S /GoToR /F (../up.pdf) >> >>");
    builder.add(28, "<< /A << /S /GoToR /F << /FS /URL /F (https://example.org/x.pdf) >> >> >>");
    builder.add(29, "<< /A << /S /GoToR /F << /Type /Filespec /F (/abs/f\\351.pdf) >> >> >>");
    builder.add(31, "<< /A << /S /Launch /F (x.app) >> >>");
    builder.add(33, "<< /Dest (missing) >>");
    builder.add(34, "<< /Dest [6 0 R /Fit] >>");
    builder.add(35, "<< /Dest [1 /FitV 50] >>");
    builder.add(36, "<< /Dest [3 0 R /XYZ null null null] >>");
    builder.add(39, "<< /Dest [5 0 R /Zoom 1 2 3] >>");
    std::error_code error;
    std::filesystem::path before = std::filesystem::current_path(error);
    LogCapture log;
    auto document = loadBuilt(builder, 39, "/tmp/docs/here/file.pdf");

    std::vector<std::string> keys;
    for (auto& [key, value] : document->dests())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"alpha", "beta", "gamma", "odd"}));
    EXPECT_TRUE(log.contains("Name tree node 10 0 R is reached twice; skipped"));
    // The later alpha replaces the earlier one.
    auto alpha = document->resolveDestination(KPPDFObjectString::stringWithString("alpha"));
    ASSERT_TRUE(alpha);
    EXPECT_EQ(alpha->directObject(), "[5 0 R /FitB]");
    auto beta = document->resolveDestination(KPPDFObjectString::stringWithString("beta"));
    ASSERT_TRUE(beta);
    EXPECT_EQ(beta->directObject(), "[4 0 R /FitR 10 20 30 40]");
    auto odd = document->resolveDestination(KPPDFObjectString::stringWithString("odd"));
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->objectType(), KPPDFObjectTypeNull);
    // Anything but a name or string is already a destination.
    EXPECT_EQ(document->resolveDestination(alpha), alpha);
    EXPECT_EQ(document->resolveDestination(KPPDFObjectName::nameWithString("zzz")), nullptr);

    // Page index -1: no page. Remote files resolve against the document's folder.
    const std::pair<unsigned, std::string> expected[] = {
        {22, "page 1 FitR l10 r20 b30 t40 z0 "},
        {24, "page 2 FitBH l0 r0 b0 t500 z0 "},
        {26, "remote -1 None l0 r0 b0 t0 z0 file:///tmp/docs/here/other%20dir/companion.pdf"},
        {27, "remote -1 None l0 r0 b0 t0 z0 file:///tmp/docs/up.pdf"},
        {28, "remote -1 None l0 r0 b0 t0 z0 https://example.org/x.pdf"},
        {29, "remote -1 None l0 r0 b0 t0 z0 file:///abs/f%C3%A9.pdf"},
        {31, "unknown -1 None l0 r0 b0 t0 z0 "},
        {33, "unknown -1 None l0 r0 b0 t0 z0 "},
        // A target that is no page keeps the fit but has no page.
        {34, "page -1 Fit l0 r0 b0 t0 z0 "},
        {35, "page 1 FitV l50 r0 b0 t0 z0 "},
        {36, "page 0 XYZ l0 r0 b0 t0 z0 "},
        {39, "page 2 None l0 r0 b0 t0 z0 "},
    };
    for (const auto& [number, fields] : expected) {
        auto dictionary = KPPDFResolve<KPPDFObjectDictionary>(document->objectWithNumber(number));
        ASSERT_TRUE(dictionary) << number;
        auto d = KPPDFDestination::destinationFromDictionary(dictionary, *document);
        EXPECT_EQ(destinationFields(*d, *document) + " " + d->url(), fields) << number;
    }
    // Never by changing directory.
    EXPECT_EQ(std::filesystem::current_path(error), before);
}

TEST(KPPDFDocumentPageTree, OutlineWithBrokenChainsAndDepth) {
    {
        TestPDFBuilder builder;
        addThreePages(builder, "/Outlines 40 0 R");
        builder.add(40, "<< /Type /Outlines /First 41 0 R /Last 43 0 R /Count 3 >>");
        builder.add(41, "<< /Title (Chapter 1) /Parent 40 0 R /Next 42 0 R /First 44 0 R "
                        "/Dest [3 0 R /Fit] >>");
        builder.add(44, "<< /Title <FEFF00430061006600E9> /Parent 41 0 R "
                        "/A << /S /URI /URI (https://example.org) >> >>");
        builder.add(42, "<< /Title (Chapter 2) /Parent 40 0 R /Prev 41 0 R /Next 43 0 R >>");
        // Its Next comes back to the first item and its First points at the outline root.
        builder.add(43,
                    "<< /Title (Loop) /Parent 40 0 R /Prev 42 0 R /Next 41 0 R /First 40 0 R >>");
        LogCapture log;
        auto document = loadBuilt(builder, 44);
        ASSERT_TRUE(document->outlines());
        std::vector<std::string> lines;
        outlineLines(*document->outlines(), *document, lines);
        const std::vector<std::string> expected = {
            "Chapter 1 | 0 black none | page 0 Fit l0 r0 b0 t0 z0 ",
            "  Caf\xC3\xA9 | 0 black none | uri -1 None l0 r0 b0 t0 z0 https://example.org",
            "Chapter 2 | 0 black none | unknown -1 None l0 r0 b0 t0 z0 ",
            "Loop | 0 black none | unknown -1 None l0 r0 b0 t0 z0 "};
        EXPECT_EQ(lines, expected);
        EXPECT_TRUE(log.contains("Outline item 41 0 R is reached twice"));
        EXPECT_TRUE(log.contains("Outline item 40 0 R is reached twice"));
    }
    {
        // Each item is the only child of the one before: 300 levels.
        TestPDFBuilder builder;
        addThreePages(builder, "/Outlines 100 0 R");
        builder.add(100, "<< /First 101 0 R >>");
        for (unsigned i = 1; i <= 300; i++)
            builder.add(100 + i, "<< /Title (Level " + std::to_string(i) + ") /Parent " +
                                     ref(99 + i) + (i < 300 ? " /First " + ref(101 + i) : "") +
                                     " >>");
        LogCapture log;
        auto document = loadBuilt(builder, 400);
        int depth = 0;
        for (auto item = document->outlines(); item->hasChildren(); item = item->children()[0])
            depth++;
        EXPECT_EQ(depth, KPPDFDocument::kMaxOutlineDepth);
        EXPECT_TRUE(log.contains("Outline deeper than 256 levels"));
    }
}

TEST(KPPDFDocumentPageTree, PageForReferenceAndEditingThePageList) {
    TestPDFBuilder builder;
    addThreePages(builder, "");
    builder.add(6, "<< /Type /Font >>");
    auto document = loadBuilt(builder, 6);
    KPPDFDocument* doc = document.get();
    auto reference = [doc](uint32_t number, uint32_t generation = 0) {
        return KPPDFObjectReference::referenceWithObjectNumber(number, generation, doc);
    };
    EXPECT_EQ(document->pageForReference(reference(4)), document->pageAtIndex(1));
    EXPECT_EQ(document->pageForReference(reference(4, 1)), nullptr);
    EXPECT_EQ(document->pageForReference(reference(2)), nullptr);
    EXPECT_EQ(document->pageForReference(reference(6)), nullptr);
    EXPECT_EQ(document->pageForReference(reference(77)), nullptr);
    // A reference made in memory and the page dictionary itself.
    auto dictionary = document->pageAtIndex(2)->pageDictionary();
    EXPECT_EQ(document->pageForReference(KPPDFObjectReference::referenceWithObject(dictionary)),
              document->pageAtIndex(2));
    EXPECT_EQ(document->pageForReference(dictionary), document->pageAtIndex(2));
    EXPECT_EQ(document->pageForReference(KPPDFObjectInteger::integerWithLongLong(3)), nullptr);
}

TEST(KPPDFDocumentPageTree, PageSizeAndRotationTransform) {
    const std::pair<const char*, KPPDFSize> sizes[] = {
        {"/CropBox [0 0 100 200] /Rotate 90", {200, 100}},
        {"/CropBox [0 0 100 200] /Rotate -90", {200, 100}},
        {"/CropBox [0 0 100 200] /Rotate 180", {100, 200}},
        {"/CropBox [0 0 100 200] /Rotate 450", {200, 100}},
        {"/Rotate 270", {792, 612}},
        {"/Rotate 45", {612, 792}},
    };
    for (const auto& [entries, size] : sizes) {
        auto page = KPPDFPage::pageWithDocument(
            nullptr, 0,
            dictionaryFromText("<< /MediaBox [0 0 612 792] " + std::string(entries) + " >>"));
        EXPECT_EQ(KPPDFDocument::pageSizeForPage(*page), size) << entries;
    }

    KPPDFSize size{612, 792};
    EXPECT_EQ(KPPDFDocument::pageTransformForRotation(-90, size), KPPDFAffineTransform());
    EXPECT_EQ(KPPDFDocument::pageTransformForRotation(0, size), KPPDFAffineTransform());

    // Quarter turns put the page's corners on the positive axes, exactly.
    struct Corners {
        float angle;
        KPPDFPoint lowerLeft, upperRight;
    };
    for (const Corners& c : {Corners{90, {792, 0}, {0, 612}}, Corners{180, {612, 792}, {0, 0}},
                             Corners{270, {0, 612}, {792, 0}}}) {
        KPPDFAffineTransform transform = KPPDFDocument::pageTransformForRotation(c.angle, size);
        EXPECT_EQ(transform.apply({0, 0}), c.lowerLeft) << c.angle;
        EXPECT_EQ(transform.apply({612, 792}), c.upperRight) << c.angle;
    }
}

// ---- Real files, checked against what qpdf, poppler and mupdf find in them ----

TEST(KPPDFDocumentPageTreeFixtures, NamedDestinationsAndLinks) {
    struct Expected {
        const char* file;
        std::vector<std::string> names, links, outline;
    };
    const Expected expected[] = {
        {"dests_catalog.pdf",
         {"first", "second", "third"},
         {"page 1 XYZ l0 r0 b0 t792 z1", "page 2 FitH l0 r0 b0 t700 z0"},
         {"page 0 Fit l0 r0 b0 t0 z0", "page 1 XYZ l0 r0 b0 t792 z1"}},
        {"dests_nametree.pdf",
         {"alpha", "beta", "charlie", "delta", "echo", "foxtrot"},
         {"page 1 FitR l10 r20 b30 t40 z0", "page 2 FitV l100 r0 b0 t0 z0"},
         {"page 0 Fit l0 r0 b0 t0 z0", "page 2 XYZ l72 r0 b0 t720 z0",
          "page 1 FitR l10 r20 b30 t40 z0"}},
    };
    for (const Expected& e : expected) {
        SCOPED_TRACE(e.file);
        auto document = openFile(dataPath(std::string("open/") + e.file));
        ASSERT_TRUE(document);
        std::vector<std::string> names, links, outline;
        for (auto& [key, value] : document->dests())
            names.push_back(key);
        for (const auto& link : linkDestinations(*document, 0))
            links.push_back(destinationFields(*link, *document));
        for (const auto& item : document->outlines()->children())
            outline.push_back(destinationFields(*item->destination(), *document));
        EXPECT_EQ(names, e.names);
        EXPECT_EQ(links, e.links);
        EXPECT_EQ(outline, e.outline);
        // A string finds the same key as a name; a dictionary value leads to its D array.
        auto found = document->resolveDestination(KPPDFObjectString::stringWithString(e.names[1]));
        ASSERT_TRUE(found && found->asArray());
        EXPECT_EQ(document->resolveDestination(KPPDFObjectName::nameWithString("fourth")), nullptr);
    }
}

TEST(KPPDFDocumentPageTreeFixtures, OutlineItems) {
    auto document = openFile(dataPath("open/outline.pdf"));
    ASSERT_TRUE(document);
    ASSERT_TRUE(document->outlines());
    std::vector<std::string> lines;
    outlineLines(*document->outlines(), *document, lines);
    const std::string companion = "file://" + std::string(KPPDF_TEST_DATA) + "/open/companion.pdf";
    const std::vector<std::string> expected = {
        "Chapter 1 | 0 black none | page 0 Fit l0 r0 b0 t0 z0 ",
        "  Section 1.1 | 1 KPPDFColor(1 0 0 1) | page 0 XYZ l72 r0 b0 t700 z0 ",
        "    Detail 1.1.1 | 2 black none | page 0 XYZ l72 r0 b0 t600 z0 ",
        "    Detail 1.1.2 | 0 black none | page 1 FitH l0 r0 b0 t500 z0 ",
        "  Section 1.2 | 0 black none | page 1 Fit l0 r0 b0 t0 z0 ",
        "    Detail 1.2.1 | 0 black none | page 1 FitH l0 r0 b0 t400 z0 ",
        "Chapter 2 | 3 KPPDFColor(0 0 0.5 1) | page 2 Fit l0 r0 b0 t0 z0 ",
        "  Section 2.1 | 0 black none | page 2 FitR l10 r20 b30 t40 z0 ",
        "  Section 2.2 | 0 KPPDFColor(0.2 0.6 0.2 1) | page 2 FitB l0 r0 b0 t0 z0 ",
        "    Detail 2.2.1 | 0 black none | page 3 FitBH l0 r0 b0 t300 z0 ",
        "Caf\xC3\xA9 et th\xC3\xA9 | 0 black none | page 3 FitV l100 r0 b0 t0 z0 ",
        "R\xC3\xA9sum\xC3\xA9 | 0 black none | page 3 FitBV l50 r0 b0 t0 z0 ",
        "Project website | 0 black none | uri -1 None l0 r0 b0 t0 z0 https://example.com/kppdf",
        "Companion file | 0 black none | remote -1 None l0 r0 b0 t0 z0 " + companion};
    EXPECT_EQ(lines, expected);
}

TEST(KPPDFDocumentPageTreeFixtures, PagesOutliveTheirDocument) {
    KPPDFRef<KPPDFPage> kept;
    KPPDFRef<KPPDFDestination> destination;
    {
        auto document = openFile(dataPath("open/outline.pdf"));
        ASSERT_TRUE(document);
        kept = document->pageAtIndex(0);
        destination = document->outlines()->children()[0]->destination();
        EXPECT_EQ(destination->page(), kept);
    }
    EXPECT_EQ(kept->document(), nullptr);
    EXPECT_EQ(kept->pageDictionary()->document(), nullptr);
    EXPECT_EQ(kept->mediaBox(), KPPDFMakeRect(0, 0, 612, 792));
    // Its dictionary, unparsed since opening, still reads from the file's bytes it holds.
    EXPECT_TRUE(kept->pageDictionary()->hasName("Type", "Page"));
    EXPECT_EQ(destination->page(), kept);
    kept.reset();
    EXPECT_EQ(destination->page(), nullptr);

    // A page made from bytes keeps its own document alive, copies included.
    KPPDFData bytes = KPPDFData::dataWithContentsOfFile(dataPath("open/classic_lf.pdf"));
    auto page = KPPDFPage::pageWithData(bytes, 0, nullptr);
    ASSERT_TRUE(page->document());
    auto copy = page->copy();
    page.reset();
    ASSERT_TRUE(copy->document());
    EXPECT_TRUE(copy->document()->docData().sharesStorageWith(bytes));
    LogCapture log;
    EXPECT_EQ(KPPDFPage::pageWithData(KPPDFData(std::string("not a PDF")), 0, nullptr)->document(),
              nullptr);
}

TEST(KPPDFDocumentPageTreeFixtures, OutlineAndNamesReadOnFirstUse) {
    // The outline leads to the pages as they were opened, even when it is first asked for after
    // the page list has changed.
    {
        auto document = openFile(dataPath("open/outline.pdf"));
        ASSERT_TRUE(document);
        KPPDFRef<KPPDFPage> first = document->pageAtIndex(0);
        document->removePageAtIndex(0);
        ASSERT_TRUE(document->outlines());
        EXPECT_EQ(document->outlines()->children()[0]->destination()->page(), first);
    }
    // Resolving a name is a first use of the named destinations as well; the name tree still
    // wins over the catalogue's Dests.
    {
        auto document = openFile(dataPath("open/dests_both.pdf"));
        ASSERT_TRUE(document);
        KPPDFRef<KPPDFObject> target =
            document->resolveDestination(KPPDFObjectString::stringWithString("shared"));
        ASSERT_TRUE(target && target->asArray() && target->asArray()->count() > 0);
        EXPECT_EQ(pageIndex(*document, document->pageForReference(target->asArray()->value()[0])),
                  1);
    }
    // A document that wants a password has neither until it is opened with one.
    int32_t result = -1;
    auto locked =
        KPPDFDocument::documentWithContentsOfFile(dataPath("open/rc4_40_user.pdf"), &result);
    ASSERT_TRUE(locked);
    ASSERT_EQ(result, KPPDFDocumentPasswordNeeded);
    EXPECT_TRUE(locked->dests().empty());
    EXPECT_EQ(locked->outlines(), nullptr);
    EXPECT_EQ(locked->pageCount(), 0u);
}
