// The text commands of kppdf: text (the page strings), search (occurrences with their
// positions and rectangles) and fonts (the fonts the pages use).
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFSearchResult.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/page/KPPDFPage.h"
#include "tools/KPPDFTool.h"

namespace {

// What the text commands read from the command line besides the file options.
struct TextOptions {
    std::string query;
    uint32_t page = 0; // from 1; 0 for every page
    bool ignoreCase = false;
};

// The pages to work on, [*first, *end); false (and a message) for a page the document lacks.
bool pageRange(KPPDFToolContext& context, KPPDFDocument& document, uint32_t page, uint32_t* first,
               uint32_t* end) {
    if (page == 0) {
        *first = 0;
        *end = document.pageCount();
        return true;
    }
    if (page > document.pageCount()) {
        KPPDFToolFail(context.file, "has no page " + std::to_string(page) + " (it has " +
                                        std::to_string(document.pageCount()) + ")");
        context.status = KPPDFToolExitUsage;
        return false;
    }
    *first = page - 1;
    *end = page;
    return true;
}

const char* fontKind(int32_t type) {
    switch (type) {
    case KPPDFFontTypeType0:
        return "Type0";
    case KPPDFFontTypeType1:
        return "Type1";
    case KPPDFFontTypeType3:
        return "Type3";
    case KPPDFFontTypeTrueType:
        return "TrueType";
    case KPPDFFontTypeCIDFont:
        return "CIDFont";
    default:
        return "unknown";
    }
}

// The font dictionary's Encoding as written: a name, or a dictionary's base with Differences.
std::string encodingName(const KPPDFFont& font) {
    if (!font.fontDictionary())
        return "-";
    KPPDFRef<KPPDFObject> encoding = font.fontDictionary()->resolvedObjectForKey("Encoding");
    if (!encoding)
        return font.isTwoByte() ? "-" : "built-in";
    if (KPPDFObjectName* name = encoding->asName())
        return name->value();
    if (KPPDFObjectDictionary* dictionary = encoding->asDictionary()) {
        KPPDFRef<KPPDFObject> base = dictionary->resolvedObjectForKey("BaseEncoding");
        std::string text = base && base->asName() ? base->asName()->value() : "built-in";
        if (dictionary->resolvedObjectForKey("Differences"))
            text += "+Differences";
        return text;
    }
    if (encoding->asStream())
        return "embedded CMap";
    return "?";
}

// How the font's codes become Unicode: its ToUnicode map, a registry's map (composite fonts),
// glyph names through its encoding (simple fonts), or not at all.
const char* unicodeSource(const KPPDFFont& font) {
    if (font.fontDictionary() && font.fontDictionary()->resolvedObjectForKey("ToUnicode"))
        return "ToUnicode";
    if (font.cmap())
        return "registry";
    if (!font.isTwoByte() && font.encodingTable())
        return "encoding";
    return "no";
}

// Page coordinates to a thousandth of a unit, so that JSON shows no float noise.
double rounded(float value) {
    return std::round(double(value) * 1000.0) / 1000.0;
}

int runText(KPPDFToolContext& context, const TextOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    uint32_t first = 0, end = 0;
    if (!document || !pageRange(context, *document, options.page, &first, &end))
        return context.status;
    for (uint32_t i = first; i < end; i++) {
        KPPDFRef<KPPDFPage> page = document->pageAtIndex(i);
        page->prepareForSelection();
        if (i > first)
            std::fputc('\f', stdout);
        std::fwrite(page->pageString().data(), 1, page->pageString().size(), stdout);
        // Its text is out: what preparing it made is not needed again.
        page->releaseContent();
    }
    return KPPDFToolExitOK;
}

int runSearch(KPPDFToolContext& context, const TextOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    uint32_t first = 0, end = 0;
    if (!document || !pageRange(context, *document, options.page, &first, &end))
        return context.status;
    uint32_t flags = options.ignoreCase ? uint32_t(KPPDFSearchCaseInsensitive) : 0u;
    std::vector<KPPDFSearchResult> hits;
    for (uint32_t i = first; i < end; i++) {
        std::vector<KPPDFSearchResult> onPage = document->findStringOnPage(options.query, i, flags);
        hits.insert(hits.end(), onPage.begin(), onPage.end());
        // The hits hold their rectangles: the page's text state is not needed again.
        if (KPPDFRef<KPPDFPage> page = document->pageAtIndex(i))
            page->releaseContent();
    }
    if (context.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const KPPDFSearchResult& hit : hits) {
            nlohmann::json rects = nlohmann::json::array();
            for (const KPPDFRect& r : hit.rects)
                rects.push_back({rounded(r.origin.x), rounded(r.origin.y), rounded(r.size.width),
                                 rounded(r.size.height)});
            list.push_back({{"page", hit.pageIndex + 1},
                            {"location", hit.range.location},
                            {"length", hit.range.length},
                            {"rects", rects}});
        }
        std::cout << list.dump(2) << "\n";
    } else {
        for (const KPPDFSearchResult& hit : hits) {
            std::printf("page %u, characters %u+%u:", hit.pageIndex + 1, hit.range.location,
                        hit.range.length);
            for (const KPPDFRect& r : hit.rects)
                std::printf(" [%g %g %g %g]", r.origin.x, r.origin.y, r.size.width, r.size.height);
            std::printf("\n");
        }
    }
    return KPPDFToolExitOK;
}

int runFonts(KPPDFToolContext& context) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    // Fonts are read as the pages' content is, forms included.
    for (uint32_t i = 0; i < document->pageCount(); i++) {
        KPPDFRef<KPPDFPage> page = document->pageAtIndex(i);
        page->prepareForSearch();
        // The document keeps the fonts; the page's text is not wanted.
        page->releaseContent();
    }
    nlohmann::json list = nlohmann::json::array();
    if (!context.json)
        std::printf("%-6s %-40s %-8s %-32s %s\n", "object", "name", "kind", "encoding", "unicode");
    for (const KPPDFRef<KPPDFFont>& font : document->docFonts()) {
        uint32_t number = font->fontDictionary() ? font->fontDictionary()->objectNumber() : 0;
        std::string name = font->fontName().empty() ? "-" : font->fontName();
        if (context.json) {
            list.push_back({{"object", number},
                            {"name", name},
                            {"kind", fontKind(font->fontType())},
                            {"encoding", encodingName(*font)},
                            {"unicode", unicodeSource(*font)}});
            continue;
        }
        std::string object = number ? std::to_string(number) : "-";
        std::printf("%-6s %-40s %-8s %-32s %s\n", object.c_str(), name.c_str(),
                    fontKind(font->fontType()), encodingName(*font).c_str(), unicodeSource(*font));
    }
    // Font names are bytes of the file: what is no UTF-8 is shown as U+FFFD.
    if (context.json)
        std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    return KPPDFToolExitOK;
}

} // namespace

// Adds the subcommands text, search and fonts to app; the one that runs puts its exit status
// (KPPDFToolExit...) into exitStatus, which must outlive the parse.
void addTextCommands(CLI::App& app, int& exitStatus) {
    auto context = std::make_shared<KPPDFToolContext>();
    auto options = std::make_shared<TextOptions>();
    int* status = &exitStatus;

    CLI::App* text =
        app.add_subcommand("text", "Print the text of each page, pages separated by a form feed");
    KPPDFToolAddFileOptions(text, *context);
    text->add_option("--page", options->page, "only this page (the first is 1)")
        ->check(CLI::PositiveNumber);
    text->callback([context, options, status] { *status = runText(*context, *options); });

    CLI::App* search = app.add_subcommand(
        "search", "Print the page, characters (UTF-16 units of the page text) and rectangles "
                  "of every occurrence of TEXT");
    KPPDFToolAddFileOptions(search, *context);
    search
        ->add_option("TEXT", options->query,
                     "text to find; white space matches any white "
                     "space, line breaks included")
        ->required();
    search->add_flag("--json", context->json, "print the occurrences as JSON");
    search->add_flag("-i,--ignore-case", options->ignoreCase, "letters match in either case");
    search->add_option("--page", options->page, "only this page (the first is 1)")
        ->check(CLI::PositiveNumber);
    search->callback([context, options, status] { *status = runSearch(*context, *options); });

    CLI::App* fonts = app.add_subcommand(
        "fonts", "List the fonts the pages use: kind, encoding and how codes map to Unicode");
    KPPDFToolAddFileOptions(fonts, *context);
    fonts->add_flag("--json", context->json, "print the list as JSON");
    fonts->callback([context, status] { *status = runFonts(*context); });
}
