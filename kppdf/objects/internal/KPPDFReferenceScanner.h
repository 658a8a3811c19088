#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// Finds the indirect references "N G R" in the text of an object without building objects:
// strings, names and comments are stepped over, so only real references count. The writers use
// it to follow and renumber untouched objects while copying their bytes as they are.
struct KPPDFScannedReference {
    uint32_t number;
    uint32_t generation;
    size_t begin; // offset of N in the text
    size_t end;   // one past "R"
};

// Calls found for every reference in text, in order.
void KPPDFScanReferences(std::string_view text,
                         const std::function<void(const KPPDFScannedReference&)>& found);

// Appends text to out with every reference replaced by what replace writes for it (replace
// appends the new "N G R" text, or returns false to keep the reference as it stands).
void KPPDFRewriteReferences(std::string_view text,
                            const std::function<bool(const KPPDFScannedReference&, std::string&)>& replace,
                            std::string& out);

// The same, and every string token (its text from begin to one past end) is replaced by what
// replaceString appends: the writers decrypt or encrypt strings this way without parsing the
// object around them.
void KPPDFRewriteObjectText(
    std::string_view text,
    const std::function<bool(const KPPDFScannedReference&, std::string&)>& replace,
    const std::function<void(size_t, size_t, std::string&)>& replaceString, std::string& out);
