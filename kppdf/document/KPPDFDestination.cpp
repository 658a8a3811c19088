#include "kppdf/document/KPPDFDestination.h"

#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {

struct FitStyle {
    std::string_view name;
    int32_t fit;
};

// ISO 32000-1, table 151.
constexpr FitStyle kFitStyles[] = {
    {"XYZ", KPPDFDestinationFitXYZ},     {"Fit", KPPDFDestinationFitFit},
    {"FitH", KPPDFDestinationFitFitH},   {"FitV", KPPDFDestinationFitFitV},
    {"FitR", KPPDFDestinationFitFitR},   {"FitB", KPPDFDestinationFitFitB},
    {"FitBH", KPPDFDestinationFitFitBH}, {"FitBV", KPPDFDestinationFitFitBV},
};

bool isURLPathByte(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    return std::string_view("-._~!$&'()*+,;=:@/").find(static_cast<char>(c)) !=
           std::string_view::npos;
}

// The text of a string object, or of a name (some writers use names where strings belong).
bool textOf(const KPPDFRef<KPPDFObject>& object, std::string* text) {
    if (!object)
        return false;
    if (KPPDFObjectString* string = object->asString()) {
        *text = string->stringValue();
        return true;
    }
    if (KPPDFObjectName* name = object->asName()) {
        *text = name->value();
        return true;
    }
    return false;
}

// The folder that relative file names of the document's remote destinations start from:
// the document's own folder, else the current directory (read, never changed).
std::string baseDirectory(const KPPDFDocument& document) {
    std::error_code error;
    if (!document.path().empty()) {
        std::filesystem::path path = std::filesystem::absolute(document.path(), error);
        if (!error)
            return path.parent_path().string();
    }
    std::filesystem::path current = std::filesystem::current_path(error);
    return error ? std::string("/") : current.string();
}

} // namespace

KPPDFRef<KPPDFDestination>
KPPDFDestination::destinationFromDictionary(const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                                            KPPDFDocument& document) {
    auto destination = std::make_shared<KPPDFDestination>();
    if (dictionary)
        destination->initFromDictionary(*dictionary, document);
    return destination;
}

void KPPDFDestination::initFromDictionary(KPPDFObjectDictionary& dictionary,
                                          KPPDFDocument& document) {
    if (KPPDFRef<KPPDFObject> dest = dictionary.resolvedObjectForKey("Dest")) {
        initPage(dest, document);
        return;
    }
    auto action = dictionary.resolvedObjectForKey<KPPDFObjectDictionary>("A");
    if (!action)
        return;
    auto kind = action->resolvedObjectForKey<KPPDFObjectName>("S");
    if (!kind)
        return;
    if (kind->value() == "GoTo") {
        if (KPPDFRef<KPPDFObject> dest = action->resolvedObjectForKey("D"))
            initPage(dest, document);
    } else if (kind->value() == "URI") {
        type_ = KPPDFDestinationTypeURI;
        textOf(action->resolvedObjectForKey("URI"), &url_);
    } else if (kind->value() == "GoToR") {
        initRemote(*action, document);
    }
}

void KPPDFDestination::initRemote(KPPDFObjectDictionary& action, KPPDFDocument& document) {
    type_ = KPPDFDestinationTypeRemote;
    std::string directory = baseDirectory(document);
    KPPDFRef<KPPDFObject> file = action.resolvedObjectForKey("F");
    std::string text;
    if (textOf(file, &text)) {
        url_ = fileURLForPath(text, directory);
        return;
    }
    KPPDFObjectDictionary* fileDictionary = file ? file->asDictionary() : nullptr;
    if (!fileDictionary)
        return;
    // A file dictionary (Type Filespec), ISO 32000-1, 7.11.3.
    auto system = fileDictionary->resolvedObjectForKey<KPPDFObjectName>("FS");
    std::string name;
    bool hasName = textOf(fileDictionary->resolvedObjectForKey("F"), &name);
    if (system && system->value() == "URL") {
        if (hasName)
            url_ = name;
    } else if (!system && textOf(fileDictionary->resolvedObjectForKey("Mac"), &text)) {
        // The Mac entry is taken as a folder path, so its URL ends in a slash.
        url_ = fileURLForPath(text, directory);
        if (url_.back() != '/')
            url_ += '/';
    }
    if (url_.empty() && !hasName)
        hasName = textOf(fileDictionary->resolvedObjectForKey("UF"), &name);
    if (url_.empty() && hasName)
        url_ = fileURLForPath(name, directory);
}

void KPPDFDestination::initPage(const KPPDFRef<KPPDFObject>& destination, KPPDFDocument& document) {
    KPPDFRef<KPPDFObject> resolved = document.resolveDestination(destination);
    if (!resolved)
        return;
    auto array = KPPDFResolve<KPPDFObjectArray>(resolved);
    if (!array) {
        if (!resolved->asNull())
            KPPDFLog("Destination is a %s, not an array", resolved->objectTypeName());
        return;
    }
    type_ = KPPDFDestinationTypePage;
    KPPDFObjectList& elements = array->value();
    if (elements.empty())
        return;
    KPPDFRef<KPPDFPage> page = document.pageForReference(elements[0]);
    KPPDFRef<KPPDFObject> first = KPPDFObject::resolve(elements[0]);
    // A page index in place of a page reference is wrong in a local destination, but some
    // writers produce it and readers accept it.
    if (!page && first && first->asInteger() && first->longLongValue() >= 0 &&
        first->longLongValue() <= UINT32_MAX)
        page = document.pageAtIndex(static_cast<uint32_t>(first->longLongValue()));
    page_ = page;
    auto style = KPPDFResolve<KPPDFObjectName>(elements.size() > 1 ? elements[1] : nullptr);
    if (!style)
        return;
    auto number = [&](size_t index) -> float {
        if (index >= elements.size())
            return 0.0f;
        KPPDFRef<KPPDFObject> element = KPPDFObject::resolve(elements[index]);
        return element ? element->realValue() : 0.0f;
    };
    for (const FitStyle& candidate : kFitStyles)
        if (style->value() == candidate.name)
            fit_ = candidate.fit;
    switch (fit_) {
    case KPPDFDestinationFitXYZ:
        left_ = number(2);
        top_ = number(3);
        zoom_ = number(4);
        break;
    case KPPDFDestinationFitFitH:
    case KPPDFDestinationFitFitBH:
        top_ = number(2);
        break;
    case KPPDFDestinationFitFitV:
    case KPPDFDestinationFitFitBV:
        left_ = number(2);
        break;
    case KPPDFDestinationFitFitR:
        // Elements 3 and 4 go to right and bottom, not in the order ISO 32000-1 gives
        // (left bottom right top): consumers of these two fields rely on it.
        left_ = number(2);
        right_ = number(3);
        bottom_ = number(4);
        top_ = number(5);
        break;
    default:
        break;
    }
}

std::string KPPDFDestination::fileURLForPath(const std::string& path,
                                             const std::string& directory) {
    std::filesystem::path full(path);
    if (!full.is_absolute())
        full = std::filesystem::path(directory.empty() ? "/" : directory) / full;
    std::string normal = full.lexically_normal().generic_string();
    std::string url = "file://";
    url.reserve(url.size() + normal.size());
    for (unsigned char c : normal) {
        if (isURLPathByte(c)) {
            url += static_cast<char>(c);
        } else {
            char escape[4];
            std::snprintf(escape, sizeof escape, "%%%02X", c);
            url += escape;
        }
    }
    return url;
}

std::string KPPDFDestination::description() const {
    if (type_ == KPPDFDestinationTypeUnknown)
        return "<<< unknown type >>>";
    if (type_ != KPPDFDestinationTypePage)
        return "<KPPDFDestination: " + url_ + ">";
    KPPDFRef<KPPDFPage> page = page_.lock();
    std::string pageText = page ? page->description() : "(null)";
    int length = std::snprintf(nullptr, 0, "page:%s  fit:%d  %.1f %.1f %.1f %.1f %.0f%%",
                               pageText.c_str(), fit_, double(top_), double(left_), double(bottom_),
                               double(right_), double(zoom_) * 100);
    if (length < 0)
        return {};
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::snprintf(text.data(), text.size(), "page:%s  fit:%d  %.1f %.1f %.1f %.1f %.0f%%",
                  pageText.c_str(), fit_, double(top_), double(left_), double(bottom_),
                  double(right_), double(zoom_) * 100);
    text.resize(static_cast<size_t>(length));
    return text;
}
