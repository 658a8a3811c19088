#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "kppdf/platform/KPPDFRef.h"

class KPPDFDocument;
class KPPDFObject;
class KPPDFObjectDictionary;
class KPPDFPage;

// Kinds of destination (type()).
enum : int32_t {
    KPPDFDestinationTypeUnknown = 0,
    KPPDFDestinationTypePage = 1,   // a page of this document
    KPPDFDestinationTypeURI = 2,    // a URI action
    KPPDFDestinationTypeRemote = 3, // a GoToR action: a page of another file
};

// Fit styles of a page destination (fit()), ISO 32000-1, 12.3.2.2.
enum : int32_t {
    KPPDFDestinationFitNone = 0,
    KPPDFDestinationFitXYZ = 1,
    KPPDFDestinationFitFit = 2,
    KPPDFDestinationFitFitH = 3,
    KPPDFDestinationFitFitV = 4,
    KPPDFDestinationFitFitR = 5,
    KPPDFDestinationFitFitB = 6,
    KPPDFDestinationFitFitBH = 7,
    KPPDFDestinationFitFitBV = 8,
};

// Where an outline item or a link leads: a page with a fit style and coordinates, a URI, or
// another file. Immutable once made.
class KPPDFDestination {
public:
    // A destination of type KPPDFDestinationTypeUnknown.
    KPPDFDestination() = default;
    KPPDFDestination(const KPPDFDestination&) = delete;
    KPPDFDestination& operator=(const KPPDFDestination&) = delete;

    // Reads the Dest entry or the A action of a link annotation or outline item dictionary.
    // Never null: what cannot be read gives type KPPDFDestinationTypeUnknown (or a page
    // destination without a page when the target is no page of document).
    static KPPDFRef<KPPDFDestination>
    destinationFromDictionary(const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                              KPPDFDocument& document);

    int32_t type() const { return type_; }
    // The target page; null when it is none of the document's pages or no longer exists.
    KPPDFRef<KPPDFPage> page() const { return page_.lock(); }
    int32_t fit() const { return fit_; }
    float top() const { return top_; }
    float left() const { return left_; }
    float bottom() const { return bottom_; }
    float right() const { return right_; }
    // 1.0 is 100 %; 0 when the destination leaves the zoom unchanged.
    float zoom() const { return zoom_; }
    // The URI, or the absolute file URL of a remote destination; empty otherwise.
    const std::string& url() const { return url_; }

    std::string description() const;

    // "file://" and the path with the bytes outside the unreserved, sub-delimiter, ":", "@"
    // and "/" sets percent-encoded (RFC 3986); a relative path is taken from directory first.
    static std::string fileURLForPath(const std::string& path, const std::string& directory);

private:
    void initFromDictionary(KPPDFObjectDictionary& dictionary, KPPDFDocument& document);
    void initRemote(KPPDFObjectDictionary& action, KPPDFDocument& document);
    void initPage(const KPPDFRef<KPPDFObject>& destination, KPPDFDocument& document);

    int32_t type_ = KPPDFDestinationTypeUnknown;
    // Pages belong to their document; a destination outliving its page sees null.
    std::weak_ptr<KPPDFPage> page_;
    int32_t fit_ = KPPDFDestinationFitNone;
    float top_ = 0;
    float left_ = 0;
    float bottom_ = 0;
    float right_ = 0;
    float zoom_ = 0;
    std::string url_;
};
