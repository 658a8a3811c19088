#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/platform/KPPDFColor.h"
#include "kppdf/platform/KPPDFGeometry.h"

// What a run of text looks like and where it leads; an unset field means "not specified".
struct KPPDFTextAttributes {
    std::optional<KPPDFColor> foregroundColor;
    std::optional<std::string> link;
    std::optional<std::string> fontName;
    std::optional<float> fontSize;
    std::optional<int> alignment;
    bool operator==(const KPPDFTextAttributes&) const = default;
};

// UTF-8 text with attribute runs. Positions and ranges count bytes. The runs cover the text
// from 0 to length() without gaps, none is empty, and no two neighbours have equal attributes
// (they are merged as soon as they meet).
class KPPDFAttributedString {
public:
    struct Run {
        KPPDFRange range;
        KPPDFTextAttributes attributes;
        bool operator==(const Run&) const = default;
    };

    // Ranges are 32-bit; text beyond this is refused with a log line.
    static constexpr size_t kMaxLength = UINT32_MAX;

    KPPDFAttributedString() = default;
    explicit KPPDFAttributedString(std::string text, KPPDFTextAttributes attrs = {});

    const std::string& string() const { return string_; }
    // In bytes.
    size_t length() const { return string_.size(); }
    const std::vector<Run>& runs() const { return runs_; }

    void append(const KPPDFAttributedString& other);
    void append(std::string_view text, const KPPDFTextAttributes& attrs = {});

    // Replaces every non-overlapping occurrence, scanning left to right, in time linear in the
    // text; each replacement takes the attributes of the run where its match started. An empty
    // pattern changes nothing.
    void replaceOccurrences(std::string_view of, std::string_view with);

    // The attributes at a byte index and, when asked, the whole run holding it. An index at or
    // past the end gives empty attributes and the empty range at length().
    const KPPDFTextAttributes& attributesAtIndex(size_t index,
                                                 KPPDFRange* effectiveRange = nullptr) const;

    bool operator==(const KPPDFAttributedString&) const = default;

private:
    std::string string_;
    std::vector<Run> runs_;
};
