// kppdf info, outline, dests and objects: the structure of a file.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "kppdf/document/KPPDFDestination.h"
#include "kppdf/document/KPPDFOutline.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "tools/KPPDFTool.h"

namespace {
nlohmann::json rectJSON(const KPPDFRect& r) {
    return nlohmann::json::array({r.origin.x, r.origin.y, r.origin.x + r.size.width,
                                  r.origin.y + r.size.height});
}

// "[x0 y0 x1 y1]" with each number as "%g" writes it (to_chars gives the same text, faster:
// a large document has thousands of lines).
void appendRect(std::string& out, const KPPDFRect& r) {
    const double corners[4] = {r.origin.x, r.origin.y, r.origin.x + r.size.width,
                               r.origin.y + r.size.height};
    char text[128];
    char* end = text;
    *end++ = '[';
    for (int i = 0; i < 4; i++) {
        if (i)
            *end++ = ' ';
        // Whole numbers below a million, what nearly every box holds, print as integers under
        // "%g" too; the integer writer is several times faster.
        double corner = corners[i];
        if (corner > -1e6 && corner < 1e6 &&
            corner == static_cast<double>(static_cast<int>(corner)) &&
            !(corner == 0 && std::signbit(corner)))
            end = std::to_chars(end, text + sizeof text - 1, static_cast<int>(corner)).ptr;
        else
            end = std::to_chars(end, text + sizeof text - 1, corner, std::chars_format::general, 6)
                      .ptr;
    }
    *end++ = ']';
    out.append(text, end);
}

void appendNumber(std::string& out, uint32_t value) {
    char text[16];
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

int commandInfo(KPPDFToolContext& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(options);
    if (!document)
        return options.status;
    bool encrypted = document->encryptDictionary() != nullptr;
    nlohmann::json boxes = nlohmann::json::array();
    std::string lines;
    if (!options.json)
        lines.reserve(size_t(document->pageCount()) * 64);
    for (uint32_t i = 0; i < document->pageCount(); i++) {
        KPPDFRef<KPPDFPage> page = document->pageAtIndex(i);
        KPPDFRect media = page->mediaBox();
        KPPDFRect crop;
        bool hasCrop = page->cropBox(&crop);
        uint32_t rotation = 0;
        if (!page->rotate(&rotation) || rotation == 360)
            rotation = 0;
        // Only the form asked for is built: thousands of pages make either one sizeable.
        if (options.json) {
            boxes.push_back({{"page", i + 1},
                             {"media_box", rectJSON(media)},
                             {"crop_box", rectJSON(hasCrop ? crop : media)},
                             {"rotation", rotation}});
        } else {
            lines += "Page ";
            appendNumber(lines, i + 1);
            lines += ": media ";
            appendRect(lines, media);
            lines += " crop ";
            appendRect(lines, hasCrop ? crop : media);
            lines += " rotate ";
            appendNumber(lines, rotation);
            lines += '\n';
        }
    }
    if (options.json) {
        nlohmann::json out = {{"version", document->pdfVersion()},
                              {"pages", document->pageCount()},
                              {"encrypted", encrypted},
                              {"repaired", document->isRepaired()},
                              {"page_boxes", boxes}};
        std::cout << out.dump(2) << "\n";
    } else {
        std::cout << "PDF version: " << document->pdfVersion() << "\n"
                  << "Pages: " << document->pageCount() << "\n"
                  << "Encrypted: " << (encrypted ? "yes" : "no") << "\n"
                  << "Repaired: " << (document->isRepaired() ? "yes" : "no") << "\n"
                  << lines;
    }
    return KPPDFToolExitOK;
}

std::string destinationText(const KPPDFRef<KPPDFDestination>& destination) {
    if (!destination)
        return "";
    switch (destination->type()) {
    case 1:
        return destination->page()
                   ? "page " + std::to_string(destination->page()->pageNumberInDocument() + 1)
                   : "page ?";
    case 2:
    case 3:
        return destination->url();
    default:
        return "";
    }
}

void printOutline(const KPPDFRef<KPPDFOutline>& item, int depth, nlohmann::json* json) {
    for (const KPPDFRef<KPPDFOutline>& child : item->children()) {
        std::string destination = destinationText(child->destination());
        if (json) {
            nlohmann::json entry = {{"title", child->title()}, {"destination", destination}};
            if (child->hasChildren()) {
                nlohmann::json kids = nlohmann::json::array();
                printOutline(child, depth + 1, &kids);
                entry["children"] = kids;
            }
            json->push_back(entry);
        } else {
            std::cout << std::string(static_cast<size_t>(depth) * 2, ' ') << child->title();
            if (!destination.empty())
                std::cout << " -> " << destination;
            std::cout << "\n";
            printOutline(child, depth + 1, nullptr);
        }
    }
}

int commandOutline(KPPDFToolContext& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(options);
    if (!document)
        return options.status;
    nlohmann::json json = nlohmann::json::array();
    if (document->outlines())
        printOutline(document->outlines(), 0, options.json ? &json : nullptr);
    if (options.json)
        std::cout << json.dump(2) << "\n";
    return KPPDFToolExitOK;
}

int commandDests(KPPDFToolContext& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(options);
    if (!document)
        return options.status;
    nlohmann::json json = nlohmann::json::object();
    for (auto& [name, value] : document->dests()) {
        KPPDFRef<KPPDFObject> target = document->resolveDestination(
            KPPDFObjectString::stringWithString(name));
        std::string where;
        if (KPPDFRef<KPPDFObjectArray> array = KPPDFResolve<KPPDFObjectArray>(target);
            array && array->count() > 0) {
            KPPDFRef<KPPDFPage> page = document->pageForReference(array->value()[0]);
            where = page ? "page " + std::to_string(page->pageNumberInDocument() + 1) : "page ?";
        }
        if (options.json)
            json[name] = where;
        else
            std::cout << name << (where.empty() ? "" : " -> " + where) << "\n";
    }
    if (options.json)
        std::cout << json.dump(2) << "\n";
    return KPPDFToolExitOK;
}

int commandObjects(KPPDFToolContext& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(options);
    if (!document)
        return options.status;
    nlohmann::json json = nlohmann::json::array();
    if (!options.json)
        std::cout << "PDF version: " << document->pdfVersion() << "\n"
                  << "Objects: " << document->objectCount() << "\n";
    for (uint32_t number = 1; number < document->tableSize(); number++) {
        KPPDFRef<KPPDFObject> object =
            KPPDFObject::resolve(document->objectWithNumber(number, 0));
        if (!object)
            continue;
        std::string kind = object->objectTypeName();
        std::string detail;
        if (KPPDFObjectDictionary* dictionary = object->asDictionary()) {
            if (auto type = KPPDFCast<KPPDFObjectName>(dictionary->type()))
                detail = "/" + type->value();
        } else if (KPPDFObjectStream* stream = object->asStream()) {
            if (auto type = KPPDFCast<KPPDFObjectName>(stream->dictionary()->type()))
                detail = "/" + type->value();
            detail += (detail.empty() ? "" : ", ") + std::to_string(stream->range().length) + " bytes";
        }
        if (options.json) {
            json.push_back({{"number", number}, {"generation", object->generation()},
                            {"kind", kind}, {"detail", detail}});
        } else {
            std::cout << number << " " << object->generation() << " " << kind;
            if (!detail.empty())
                std::cout << " " << detail;
            std::cout << "\n";
        }
    }
    if (options.json)
        std::cout << nlohmann::json{{"version", document->pdfVersion()}, {"objects", json}}.dump(2)
                  << "\n";
    return KPPDFToolExitOK;
}
} // namespace

void addInfoCommands(CLI::App& app, KPPDFToolContext& context) {
    struct Entry {
        const char* name;
        const char* help;
        int (*run)(KPPDFToolContext&);
    };
    static const Entry entries[] = {
        {"info", "version, pages, encryption and page boxes", commandInfo},
        {"outline", "the outline as an indented tree", commandOutline},
        {"dests", "the named destinations", commandDests},
        {"objects", "every object with its number and kind", commandObjects},
    };
    for (const Entry& entry : entries) {
        CLI::App* command = app.add_subcommand(entry.name, entry.help);
        KPPDFToolAddFileOptions(command, context);
        command->add_flag("--json", context.json, "JSON output");
        command->callback([&context, run = entry.run] { context.status = run(context); });
    }
}
