#pragma once
#include <cstdint>
#include <optional>

#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFPropertyList.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFAnnotation;
class KPPDFDocument;
class KPPDFPage;

// Kinds of imprint (imprintType()).
enum : int32_t {
    KPPDFImprintTypeContent = 1,    // a small document of its own drawn on the page
    KPPDFImprintTypeAnnotation = 2, // one entry of the page's Annots
};

// Kinds of annotation imprint (annotationType()): the position of each kind in the list of
// annotation types of PDF 1.4, so the gaps are intended.
enum : int32_t {
    KPPDFAnnotationTypeGeneric = 0,
    KPPDFAnnotationTypeText = 1,
    KPPDFAnnotationTypeLink = 2,
    KPPDFAnnotationTypeFreeText = 3,
    KPPDFAnnotationTypePopup = 13,
    KPPDFAnnotationTypeWidget = 17,
};

// An overlay that belongs to a page: kept apart from the page's own content until the document
// is saved. This base class is a content imprint: a one-page document of its own, drawn with its
// lower-left corner at location. Annotation kinds derive from it.
class KPPDFImprint {
public:
    // The key of dictionary() that keeps its value through every setDictionary.
    static constexpr const char* kFilenameKey = "filename";

    KPPDFImprint() = default;
    virtual ~KPPDFImprint();
    KPPDFImprint(const KPPDFImprint&) = delete;
    KPPDFImprint& operator=(const KPPDFImprint&) = delete;

    // A content imprint without a document, at the origin.
    static KPPDFRef<KPPDFImprint> imprint() { return std::make_shared<KPPDFImprint>(); }
    // A content imprint whose document is opened from data (the bytes of a complete PDF file) at
    // location. Its size stays zero, its dictionary null and it is not flattened; the document
    // is null when data is no PDF. The caller owns the result.
    static KPPDFRef<KPPDFImprint> imprintWithData(const KPPDFData& data, KPPDFPoint location);

    // KPPDFImprintTypeContent or KPPDFImprintTypeAnnotation.
    virtual int32_t imprintType() const { return KPPDFImprintTypeContent; }
    // One of the annotation kinds for annotation imprints; -1 for content imprints.
    virtual int32_t annotationType() const { return -1; }
    // Checked cast: this imprint as an annotation, or null.
    virtual KPPDFAnnotation* asAnnotation() { return nullptr; }

    // The page that holds the imprint; null while it is on none. Set by the page's list.
    KPPDFPage* page() const { return page_; }
    void setPage(KPPDFPage* page) { page_ = page; }
    // Lower-left corner in page user space; annotations write it into their dictionary.
    KPPDFPoint location() const { return location_; }
    virtual void setLocation(KPPDFPoint location) { location_ = location; }
    KPPDFSize size() const { return size_; }
    virtual void setSize(KPPDFSize size) { size_ = size; }

    // The imprint's content as a one-page document (shared by copies); null for annotations.
    const KPPDFRef<KPPDFDocument>& document() const { return document_; }
    void setDocument(KPPDFRef<KPPDFDocument> document) { document_ = std::move(document); }

    // Free properties the application attaches, a dictionary or null (nullopt).
    const std::optional<KPPDFPropertyList>& dictionary() const { return dictionary_; }
    // Stores the dictionary, except that a "filename" the current one holds is kept: it
    // overrides any "filename" of the new one (and survives a null one), so the source file of
    // an imprint is never lost. A value that is no dictionary counts as null.
    void setDictionary(std::optional<KPPDFPropertyList> dictionary);

    // True when the save merges the imprint into the page content for good instead of keeping
    // it as an overlay.
    bool flatten() const { return flatten_; }
    void setFlatten(bool flatten) { flatten_ = flatten; }

    // Whether the imprint is printed; content imprints always are.
    virtual bool flagPrint() const { return true; }

    // Identity by default; kinds that can tell two equal imprints apart override it.
    virtual bool isEqual(const KPPDFImprint& other) const { return this == &other; }
    // A new imprint of the same kind: same location and size, the same document (shared), a
    // copy of the dictionary, not flattened, on no page. The caller owns it.
    virtual KPPDFRef<KPPDFImprint> copy() const;

protected:
    // Copies location, size, document and dictionary into copy (not flatten, not page).
    void copyInto(KPPDFImprint& copy) const;

    KPPDFPoint location_;
    KPPDFSize size_;
    KPPDFPage* page_ = nullptr; // not owned
    std::optional<KPPDFPropertyList> dictionary_;
    KPPDFRef<KPPDFDocument> document_;
    bool flatten_ = false;
};
