#pragma once
#include <cstdint>

#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

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
// is saved. This base class is a content imprint; annotation kinds derive from it.
class KPPDFImprint {
public:
    KPPDFImprint() = default;
    virtual ~KPPDFImprint() = default;
    KPPDFImprint(const KPPDFImprint&) = delete;
    KPPDFImprint& operator=(const KPPDFImprint&) = delete;

    static KPPDFRef<KPPDFImprint> imprint() { return std::make_shared<KPPDFImprint>(); }

    // KPPDFImprintTypeContent or KPPDFImprintTypeAnnotation.
    virtual int32_t imprintType() const { return KPPDFImprintTypeContent; }
    // One of the annotation kinds for annotation imprints; -1 for content imprints.
    virtual int32_t annotationType() const { return -1; }

    // The page that holds the imprint; null while it is on none. Set by the page's list.
    KPPDFPage* page() const { return page_; }
    void setPage(KPPDFPage* page) { page_ = page; }
    KPPDFPoint location() const { return location_; }
    void setLocation(KPPDFPoint location) { location_ = location; }
    KPPDFSize size() const { return size_; }
    void setSize(KPPDFSize size) { size_ = size; }

    // Identity by default; kinds that can tell two equal imprints apart override it.
    virtual bool isEqual(const KPPDFImprint& other) const { return this == &other; }
    // A new imprint of the same kind and values, on no page. The caller owns it.
    virtual KPPDFRef<KPPDFImprint> copy() const;

protected:
    void copyInto(KPPDFImprint& copy) const;

    KPPDFPoint location_;
    KPPDFSize size_;
    KPPDFPage* page_ = nullptr; // not owned
};
