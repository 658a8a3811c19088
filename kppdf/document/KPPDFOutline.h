#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kppdf/platform/KPPDFColor.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFDestination;

// One item of a document's outline (bookmarks, ISO 32000-1, 12.3.3), with its children in
// document order. The root item has an empty title and no destination.
class KPPDFOutline {
public:
    // Pure black (red, green and blue all 0) is kept as "no colour".
    KPPDFOutline(std::string title, int32_t flags, const KPPDFColor& color,
                 KPPDFRef<KPPDFDestination> destination);
    KPPDFOutline(const KPPDFOutline&) = delete;
    KPPDFOutline& operator=(const KPPDFOutline&) = delete;

    static KPPDFRef<KPPDFOutline> outlineWithTitle(std::string title, int32_t flags,
                                                   const KPPDFColor& color,
                                                   KPPDFRef<KPPDFDestination> destination);

    // UTF-8.
    const std::string& title() const { return title_; }
    // The item's F entry: 1 italic, 2 bold.
    int32_t flags() const { return flags_; }
    // Empty for black.
    const std::optional<KPPDFColor>& color() const { return color_; }
    bool colorIsBlack() const { return !color_; }
    // Null when the item leads nowhere.
    const KPPDFRef<KPPDFDestination>& destination() const { return destination_; }
    const std::vector<KPPDFRef<KPPDFOutline>>& children() const { return children_; }
    bool hasChildren() const { return !children_.empty(); }
    uint32_t numberOfChildren() const { return static_cast<uint32_t>(children_.size()); }
    // Null children are ignored.
    void addChild(KPPDFRef<KPPDFOutline> child);

    // The item alone (title, flags, colour, destination and number of children), one line.
    std::string description() const;

private:
    std::string title_;
    int32_t flags_ = 0;
    std::optional<KPPDFColor> color_;
    std::vector<KPPDFRef<KPPDFOutline>> children_;
    KPPDFRef<KPPDFDestination> destination_;
};
