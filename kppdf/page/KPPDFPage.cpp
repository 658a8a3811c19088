#include "kppdf/page/KPPDFPage.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFPrintInfo.h"
#include "kppdf/platform/KPPDFUserDefaults.h"

bool KPPDFUseSpaceGap() {
    static const bool useSpaceGap =
        KPPDFUserDefaults::standardUserDefaults().boolForKey(KPPDFSpaceGapKey);
    return useSpaceGap;
}

KPPDFPage::KPPDFPage() = default;

KPPDFPage::KPPDFPage(KPPDFDocument* document, uint32_t number,
                     KPPDFRef<KPPDFObjectDictionary> dictionary)
    : pageDocument_(document), pageNumberInDocument_(number),
      pageDictionary_(std::move(dictionary)) {}

KPPDFPage::~KPPDFPage() {
    for (auto& imprint : imprints_)
        if (imprint && imprint->page() == this)
            imprint->setPage(nullptr);
}

KPPDFRef<KPPDFPage> KPPDFPage::pageWithDocument(KPPDFDocument* document, uint32_t number,
                                                KPPDFRef<KPPDFObjectDictionary> dictionary) {
    return std::make_shared<KPPDFPage>(document, number, std::move(dictionary));
}

KPPDFRef<KPPDFPage> KPPDFPage::pageWithData(const KPPDFData& data, uint32_t number,
                                            KPPDFRef<KPPDFObjectDictionary> dictionary) {
    int32_t result = 0;
    KPPDFRef<KPPDFDocument> document = KPPDFDocument::documentWithData(data, &result);
    auto page = std::make_shared<KPPDFPage>(document.get(), number, std::move(dictionary));
    page->ownedDocument_ = std::move(document);
    return page;
}

void KPPDFPage::setPageDictionary(KPPDFRef<KPPDFObjectDictionary> dictionary) {
    pageDictionary_ = std::move(dictionary);
    clearGeometryCaches();
}

void KPPDFPage::clearGeometryCaches() {
    cachedMediaBox_ = KPPDFRect();
    cachedCropBox_ = KPPDFRect();
    cachedRotation_ = 0;
    cachedRotated_ = false;
}

void KPPDFPage::installEntry(std::string_view key, KPPDFRef<KPPDFObject> value) {
    KPPDFObjectMap entries;
    if (pageDictionary_)
        entries = pageDictionary_->value();
    entries.insert_or_assign(std::string(key), std::move(value));
    KPPDFRef<KPPDFObjectDictionary> replacement =
        KPPDFObjectDictionary::dictionaryWithDictionary(std::move(entries));
    if (pageDictionary_) {
        // The new dictionary stands for the same page object: keeping its number lets links
        // and outline items still find the page, and the writers put it where the old one was.
        replacement->setObjectNumber(pageDictionary_->objectNumber());
        replacement->setGeneration(pageDictionary_->generation());
        replacement->setDocument(pageDictionary_->document());
        replacement->setDirect(pageDictionary_->isDirect());
    } else {
        replacement->setDocument(pageDocument_);
    }
    setPageDictionary(std::move(replacement));
}

KPPDFRef<KPPDFObject> KPPDFPage::inheritedEntry(std::string_view key) {
    return pageDictionary_ ? pageDictionary_->objectFromAncestorsForKey(key) : nullptr;
}

KPPDFRect KPPDFPage::storedMediaBox() {
    auto array = KPPDFCast<KPPDFObjectArray>(inheritedEntry("MediaBox"));
    return array ? getPDFRectFromArray(*array) : KPPDFRect();
}

KPPDFRect KPPDFPage::mediaBox() {
    if (cachedMediaBox_.size.width != 0 || cachedMediaBox_.size.height != 0)
        return cachedMediaBox_;
    KPPDFRect box = storedMediaBox();
    if (box.size.width == 0 && box.size.height == 0) {
        KPPDFSize paper = KPPDFPrintInfo::paperSize();
        box = KPPDFMakeRect(0, 0, paper.width, paper.height);
        installEntry("MediaBox", makePDFRect(box));
    }
    cachedMediaBox_ = box;
    return box;
}

bool KPPDFPage::cacheGeometry(const EntryLookup& lookup) {
    auto entry = [&](std::string_view key) { return lookup ? lookup(key) : inheritedEntry(key); };
    if (cachedMediaBox_.size.width == 0 && cachedMediaBox_.size.height == 0) {
        auto array = KPPDFCast<KPPDFObjectArray>(entry("MediaBox"));
        KPPDFRect box = array ? getPDFRectFromArray(*array) : KPPDFRect();
        if (box.size.width == 0 && box.size.height == 0)
            return false;
        cachedMediaBox_ = box;
    }
    if (cachedCropBox_.size.width == 0 && cachedCropBox_.size.height == 0)
        cacheCropBox(entry("CropBox"));
    if (cachedRotation_ == 0)
        cacheRotation(entry("Rotate"));
    return true;
}

void KPPDFPage::cacheCropBox(const KPPDFRef<KPPDFObject>& entry) {
    if (auto array = KPPDFCast<KPPDFObjectArray>(entry))
        cachedCropBox_ = getPDFRectFromArray(*array);
    else
        cachedCropBox_.size = {kNoCropBox, kNoCropBox};
}

bool KPPDFPage::cropBox(KPPDFRect* box) {
    if (cachedCropBox_.size.width == 0 && cachedCropBox_.size.height == 0)
        cacheCropBox(inheritedEntry("CropBox"));
    if (cachedCropBox_.size.width == kNoCropBox || cachedCropBox_.size.height == kNoCropBox)
        return false;
    if (box)
        *box = cachedCropBox_;
    return true;
}

void KPPDFPage::cacheRotation(const KPPDFRef<KPPDFObject>& entry) {
    if (!entry || !entry->isNumber()) {
        cachedRotated_ = false;
        cachedRotation_ = kRotationNone;
        return;
    }
    long long degrees = entry->longLongValue() % 360;
    if (degrees < 0)
        degrees += 360;
    cachedRotation_ = degrees == 0 ? kRotationNone : static_cast<uint32_t>(degrees);
    cachedRotated_ = true;
}

bool KPPDFPage::rotate(uint32_t* rotation) {
    if (cachedRotation_ == 0)
        cacheRotation(inheritedEntry("Rotate"));
    if (!cachedRotated_)
        return false;
    if (rotation)
        *rotation = cachedRotation_;
    return true;
}

void KPPDFPage::setRotate(uint32_t degrees) {
    installEntry("Rotate", KPPDFObjectInteger::integerWithLongLong(degrees % 360));
}

KPPDFRef<KPPDFObjectArray> KPPDFPage::makePDFRect(KPPDFRect rect) {
    auto array = std::make_shared<KPPDFObjectArray>();
    array->addObject(KPPDFObjectReal::realWithFloat(rect.origin.x));
    array->addObject(KPPDFObjectReal::realWithFloat(rect.origin.y));
    array->addObject(KPPDFObjectReal::realWithFloat(rect.origin.x + rect.size.width));
    array->addObject(KPPDFObjectReal::realWithFloat(rect.origin.y + rect.size.height));
    return array;
}

KPPDFRect KPPDFPage::getPDFRectFromArray(KPPDFObjectArray& array) {
    float corners[4];
    // Four plain numbers (the rule) are read from the array's text, without parsing it.
    size_t plain = 0;
    bool numbers = array.plainNumbers(corners, 4, &plain) && plain == 4;
    if (!numbers && array.count() < 4) {
        KPPDFLog("Rectangle array has %zu elements instead of 4", array.count());
        return KPPDFRect();
    }
    for (size_t i = 0; i < 4; i++) {
        if (!numbers) {
            KPPDFRef<KPPDFObject> element = array.resolvedObjectAtIndex(i);
            corners[i] = element ? element->realValue() : 0.0f;
        }
        if (!std::isfinite(corners[i])) {
            KPPDFLog("Rectangle array holds a number that is not finite");
            return KPPDFRect();
        }
    }
    return KPPDFMakeRect(corners[0], corners[1], std::fabs(corners[2] - corners[0]),
                         std::fabs(corners[3] - corners[1]));
}

std::vector<KPPDFRef<KPPDFImprint>>& KPPDFPage::imprints() {
    if (!processedAnnotations_)
        processAnnotations();
    return imprints_;
}

void KPPDFPage::addImprint(KPPDFRef<KPPDFImprint> imprint) {
    if (!imprint)
        return;
    imprint->setPage(this);
    imprints_.push_back(std::move(imprint));
}

void KPPDFPage::insertImprint(KPPDFRef<KPPDFImprint> imprint, uint32_t index) {
    if (!imprint)
        return;
    imprint->setPage(this);
    if (index >= imprints_.size())
        imprints_.push_back(std::move(imprint));
    else
        imprints_.insert(imprints_.begin() + index, std::move(imprint));
}

void KPPDFPage::removeImprint(const KPPDFRef<KPPDFImprint>& imprint) {
    if (!imprint)
        return;
    // Hold the argument: it may be the last owner of itself once it leaves the list.
    KPPDFRef<KPPDFImprint> keep = imprint;
    std::erase_if(imprints_, [&](const KPPDFRef<KPPDFImprint>& element) {
        if (!element || !element->isEqual(*keep))
            return false;
        if (element->page() == this)
            element->setPage(nullptr);
        return true;
    });
}

void KPPDFPage::removeImprintAtIndex(uint32_t index) {
    if (index >= imprints_.size()) {
        KPPDFLog("No imprint at index %u of %zu", index, imprints_.size());
        return;
    }
    if (imprints_[index] && imprints_[index]->page() == this)
        imprints_[index]->setPage(nullptr);
    imprints_.erase(imprints_.begin() + index);
}

void KPPDFPage::setImprints(std::vector<KPPDFRef<KPPDFImprint>> imprints) {
    for (auto& imprint : imprints_)
        if (imprint && imprint->page() == this)
            imprint->setPage(nullptr);
    std::erase(imprints, nullptr);
    imprints_ = std::move(imprints);
    for (auto& imprint : imprints_)
        imprint->setPage(this);
}

void KPPDFPage::addExtraObject(KPPDFRef<KPPDFObject> object) {
    if (object)
        extraObjects_.push_back(std::move(object));
}

void KPPDFPage::removeExtraObject(const KPPDFRef<KPPDFObject>& object) {
    const KPPDFObject* target = object.get();
    std::erase_if(extraObjects_, [target](const KPPDFRef<KPPDFObject>& element) {
        return element.get() == target;
    });
}

const std::string& KPPDFPage::pageString() const {
    static const std::string kNone;
    return content_ ? content_->pageString.string() : kNone;
}

const KPPDFPage::BaselineList& KPPDFPage::baselines() const {
    static const BaselineList kNone;
    return content_ ? content_->baselines : kNone;
}

void KPPDFPage::resetContent() {
    // Everything the content made goes, but the images.
    if (content_) {
        std::vector<KPPDFRef<KPPDFImage>> images = std::move(content_->images);
        content_.reset();
        if (!images.empty())
            content().images = std::move(images);
    }
    preparedForSearch_ = false;
    preparedForSelection_ = false;
    parsedFirstContentObject_ = false;
    hasColumns_ = false;
}

bool KPPDFPage::isEqual(const KPPDFPage& other) const {
    return pageDocument_ == other.pageDocument_ &&
           pageNumberInDocument_ == other.pageNumberInDocument_;
}

KPPDFRef<KPPDFPage> KPPDFPage::copy() const {
    auto page = std::make_shared<KPPDFPage>();
    page->pageDocument_ = pageDocument_;
    page->ownedDocument_ = ownedDocument_;
    page->pageNumberInDocument_ = pageNumberInDocument_;
    for (const auto& imprint : imprints_) {
        if (!imprint)
            continue;
        // Link annotations are deliberately not carried into copies; other kinds are unknown
        // here and are left out too.
        bool wanted = imprint->imprintType() == KPPDFImprintTypeContent ||
                      (imprint->imprintType() == KPPDFImprintTypeAnnotation &&
                       imprint->annotationType() != KPPDFAnnotationTypeLink);
        if (!wanted)
            continue;
        if (KPPDFRef<KPPDFImprint> duplicate = imprint->copy()) {
            duplicate->setPage(page.get());
            page->imprints_.push_back(std::move(duplicate));
        }
    }
    if (pageDictionary_) {
        auto dictionary = KPPDFCast<KPPDFObjectDictionary>(pageDictionary_->copy());
        if (dictionary) {
            dictionary->setObjectNumber(pageDictionary_->objectNumber());
            dictionary->setGeneration(pageDictionary_->generation());
        }
        page->setPageDictionary(std::move(dictionary));
    }
    page->extraObjects_ = extraObjects_;
    // The fonts are shared (they belong to the document's font list); the graphics state is
    // copied, since the interpreter changes it in place and the pages must not disturb each other.
    if (content_) {
        ContentState& copied = page->content();
        copied.pageFonts = content_->pageFonts;
        if (content_->gstate) {
            copied.gstate = content_->gstate->copy();
            copied.gstateStack = {copied.gstate};
        }
        if (preparedForSearch_) {
            copied.baselines = content_->baselines;
            copied.textBlobs = content_->textBlobs;
            copied.pageString = content_->pageString;
        }
    }
    page->processedAnnotations_ = processedAnnotations_;
    if (preparedForSearch_) {
        page->preparedForSearch_ = preparedForSearch_;
        page->preparedForSelection_ = preparedForSelection_;
    }
    page->parsedFirstContentObject_ = parsedFirstContentObject_;
    page->hasColumns_ = hasColumns_;
    return page;
}

uint32_t KPPDFPage::streamIndex(const std::vector<KPPDFRange>& ranges, uint64_t position) {
    for (size_t i = 0; i < ranges.size(); i++)
        if (ranges[i].location <= position && position < ranges[i].end())
            return static_cast<uint32_t>(i);
    return 0;
}

void KPPDFPage::disconnect() {
    pageDocument_ = nullptr;
    if (pageDictionary_)
        pageDictionary_->disconnect();
    for (auto& object : extraObjects_)
        if (object)
            object->disconnect();
}

std::string KPPDFPage::description() const {
    char text[64];
    std::snprintf(text, sizeof text, "<KPPDFPage %u>", pageNumberInDocument_);
    return text;
}
