// kppdf stamp and annots: placing a PDF page on a page as an overlay, and listing the overlays
// and annotations a file holds.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "tools/KPPDFTool.h"

namespace {
struct StampOptions {
    std::string output;
    std::string stamp;
    long long page = 1;
    std::string at;
    bool flatten = false;
};

// "X,Y" as two finite numbers.
bool parsePoint(const std::string& text, KPPDFPoint* point) {
    const char* start = text.c_str();
    char* end = nullptr;
    double x = std::strtod(start, &end);
    if (end == start || *end != ',')
        return false;
    const char* second = end + 1;
    double y = std::strtod(second, &end);
    if (end == second || *end != '\0' || !std::isfinite(x) || !std::isfinite(y))
        return false;
    *point = {static_cast<float>(x), static_cast<float>(y)};
    return true;
}

int commandStamp(KPPDFToolContext& context, const StampOptions& options) {
    KPPDFPoint location;
    if (!parsePoint(options.at, &location)) {
        std::fprintf(stderr, "kppdf: --at wants X,Y (two numbers), not '%s'\n",
                     options.at.c_str());
        return KPPDFToolExitUsage;
    }
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    if (options.page < 1 || options.page > static_cast<long long>(document->pageCount())) {
        KPPDFToolFail(context.file, "has no page " + std::to_string(options.page) + " (it has " +
                                        std::to_string(document->pageCount()) + ")");
        return KPPDFToolExitUsage;
    }
    KPPDFData stampData = KPPDFData::dataWithContentsOfFile(options.stamp);
    if (stampData.isNull()) {
        KPPDFToolFail(options.stamp, "cannot read the file");
        return KPPDFToolExitUnreadable;
    }
    KPPDFRef<KPPDFImprint> imprint = KPPDFImprint::imprintWithData(stampData, location);
    KPPDFRef<KPPDFPage> stampPage =
        imprint->document() ? imprint->document()->pageAtIndex(0) : nullptr;
    if (!stampPage) {
        KPPDFToolFail(options.stamp, "is no PDF file with a page to stamp with");
        return KPPDFToolExitUnreadable;
    }
    imprint->setSize(stampPage->mediaBox().size);
    imprint->setFlatten(options.flatten);
    KPPDFPropertyList properties;
    properties.setObject(KPPDFPropertyList::string(options.stamp), KPPDFImprint::kFilenameKey);
    imprint->setDictionary(std::move(properties));
    document->pageAtIndex(static_cast<uint32_t>(options.page - 1))->addImprint(imprint);
    return KPPDFToolWriteDocument(context, *document, options.output);
}

// Coordinates are floats: shown to a ten-thousandth of a point, not with the digits a double
// gives a float.
double shown(float value) {
    return std::round(static_cast<double>(value) * 1e4) / 1e4;
}

// [x0 y0 x1 y1] of a rectangle given by origin and size.
nlohmann::json rectJSON(const KPPDFRect& r) {
    return nlohmann::json::array({shown(r.origin.x), shown(r.origin.y),
                                  shown(r.origin.x + r.size.width),
                                  shown(r.origin.y + r.size.height)});
}

int commandAnnots(KPPDFToolContext& context) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    nlohmann::json items = nlohmann::json::array();
    std::string lines;
    char line[256];
    for (uint32_t i = 0; i < document->pageCount(); i++) {
        KPPDFRef<KPPDFPage> page = document->pageAtIndex(i);
        for (const KPPDFRef<KPPDFImprint>& imprint : page->imprints()) {
            if (!imprint)
                continue;
            KPPDFAnnotation* annotation = imprint->asAnnotation();
            if (!annotation) {
                KPPDFPoint at = imprint->location();
                KPPDFSize size = imprint->size();
                items.push_back({{"page", i + 1},
                                 {"kind", "imprint"},
                                 {"location", {shown(at.x), shown(at.y)}},
                                 {"size", {shown(size.width), shown(size.height)}},
                                 {"flattened", imprint->flatten()}});
                std::snprintf(line, sizeof line, "page %u: imprint at %g %g, %g by %g\n", i + 1,
                              at.x, at.y, size.width, size.height);
                lines += line;
                continue;
            }
            std::string kind, contents;
            if (const auto& dictionary = annotation->annotDict()) {
                if (auto subtype = dictionary->resolvedObjectForKey<KPPDFObjectName>("Subtype"))
                    kind = subtype->value();
                if (auto text = dictionary->resolvedObjectForKey<KPPDFObjectString>("Contents"))
                    contents = text->stringValue();
            }
            KPPDFRect rect = annotation->dictionaryRect();
            items.push_back({{"page", i + 1},
                             {"kind", kind},
                             {"type", annotation->annotationType()},
                             {"rect", rectJSON(rect)},
                             {"contents", contents}});
            std::snprintf(line, sizeof line, "page %u: %s (%d) [%g %g %g %g]", i + 1,
                          kind.empty() ? "?" : kind.c_str(), annotation->annotationType(),
                          rect.origin.x, rect.origin.y, rect.origin.x + rect.size.width,
                          rect.origin.y + rect.size.height);
            lines += line;
            if (!contents.empty()) {
                // One item per line: line breaks inside the text are shown escaped.
                std::string shown;
                for (char c : contents)
                    shown += c == '\n' ? std::string("\\n") : c == '\r' ? std::string("\\r")
                                                                        : std::string(1, c);
                lines += ": " + shown;
            }
            lines += "\n";
        }
    }
    if (context.json) {
        nlohmann::json out = {{"file", context.file}, {"annotations", items}};
        // File text need not be valid UTF-8; such bytes are shown as replacement characters.
        std::cout << out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    } else {
        std::cout << lines;
    }
    return KPPDFToolExitOK;
}
} // namespace

void addImprintCommands(CLI::App& app, KPPDFToolContext& context) {
    static StampOptions options;
    CLI::App* stamp =
        app.add_subcommand("stamp", "place the first page of a PDF file on a page, and save");
    KPPDFToolAddFileOptions(stamp, context);
    stamp->add_option("OUT", options.output, "output file (- for standard output)")->required();
    stamp->add_option("--pdf", options.stamp, "PDF file whose first page is the stamp")
        ->required();
    stamp->add_option("--page", options.page, "page to stamp, from 1 (default 1)");
    stamp->add_option("--at", options.at, "X,Y of the stamp's lower-left corner, in points")
        ->required();
    stamp->add_flag("--flatten", options.flatten, "merge the stamp into the page for good");
    stamp->callback([&context] { context.status = commandStamp(context, options); });

    CLI::App* annots =
        app.add_subcommand("annots", "list the annotations and overlays of every page");
    KPPDFToolAddFileOptions(annots, context);
    annots->add_flag("--json", context.json, "JSON output");
    annots->callback([&context] { context.status = commandAnnots(context); });
}
