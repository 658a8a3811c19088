#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "kppdf/platform/KPPDFPropertyList.h"

// Property lists to bytes and back, in the XML property-list format (with the plist DTD's
// document type). Used for the free properties of imprints that files keep in their private
// imprint record. The reader takes any bytes: it is bounded, not recursive, knows only the
// predefined XML entities and character references, and refuses document types that declare
// anything.
class KPPDFArchiver {
public:
    KPPDFArchiver() = delete;

    // Arrays and dictionaries nested deeper than this are refused, when writing and reading.
    static constexpr int kMaxDepth = 256;
    // Character data of one element (before entities are decoded) longer than this is refused.
    static constexpr size_t kMaxTextLength = size_t(64) << 20;

    // The XML property list of value (UTF-8). Dates are written in UTC to the second, reals
    // with 17 significant digits. Empty, with a log line, when value is nested too deeply.
    static std::string archive(const KPPDFPropertyList& value);
    // The dictionary at the root of an XML property list; nullopt, with a log line, when the
    // bytes are no well-formed property list or their root is not a dictionary.
    static std::optional<KPPDFPropertyList> unarchive(std::string_view bytes);
    // The same for a root of any kind.
    static std::optional<KPPDFPropertyList> unarchiveObject(std::string_view bytes);
};
