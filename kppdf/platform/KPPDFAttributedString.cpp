#include "kppdf/platform/KPPDFAttributedString.h"

#include <algorithm>

#include "kppdf/platform/KPPDFLog.h"

namespace {

// Adds a run of the given length after the last one, merging it when the attributes match.
void pushRun(std::vector<KPPDFAttributedString::Run>& runs, uint32_t location, size_t length,
             const KPPDFTextAttributes& attributes) {
    if (length == 0)
        return;
    if (!runs.empty() && runs.back().attributes == attributes) {
        runs.back().range.length += static_cast<uint32_t>(length);
        return;
    }
    runs.push_back({KPPDFMakeRange(location, static_cast<uint32_t>(length)), attributes});
}

bool fitsAfter(size_t current, size_t added) {
    if (added > KPPDFAttributedString::kMaxLength - current) {
        KPPDFLog("Attributed string would exceed %zu bytes; text not added",
                 KPPDFAttributedString::kMaxLength);
        return false;
    }
    return true;
}

} // namespace

KPPDFAttributedString::KPPDFAttributedString(std::string text, KPPDFTextAttributes attrs) {
    if (!fitsAfter(0, text.size()))
        return;
    string_ = std::move(text);
    pushRun(runs_, 0, string_.size(), attrs);
}

void KPPDFAttributedString::append(const KPPDFAttributedString& other) {
    if (&other == this) {
        // Merging the first appended run would change the run still to be read.
        KPPDFAttributedString copy(other);
        append(copy);
        return;
    }
    if (!fitsAfter(string_.size(), other.string_.size()))
        return;
    uint32_t base = static_cast<uint32_t>(string_.size());
    string_.append(other.string_);
    runs_.reserve(runs_.size() + other.runs_.size());
    for (const Run& run : other.runs_)
        pushRun(runs_, base + run.range.location, run.range.length, run.attributes);
}

void KPPDFAttributedString::append(std::string_view text, const KPPDFTextAttributes& attrs) {
    if (!fitsAfter(string_.size(), text.size()))
        return;
    uint32_t base = static_cast<uint32_t>(string_.size());
    string_.append(text);
    pushRun(runs_, base, text.size(), attrs);
}

void KPPDFAttributedString::replaceOccurrences(std::string_view of, std::string_view with) {
    const size_t n = string_.size();
    const size_t m = of.size();
    if (m == 0 || m > n)
        return;

    // Knuth-Morris-Pratt keeps the scan linear whatever the pattern.
    std::vector<size_t> fallback(m, 0);
    for (size_t i = 1, k = 0; i < m; ++i) {
        while (k > 0 && of[i] != of[k])
            k = fallback[k - 1];
        if (of[i] == of[k])
            ++k;
        fallback[i] = k;
    }

    std::string text;
    std::vector<Run> runs;
    size_t runIndex = 0;
    size_t copied = 0;
    bool matched = false;
    auto seekRun = [&](size_t position) {
        while (runs_[runIndex].range.end() <= position)
            ++runIndex;
    };
    // Copies old bytes [from, to) with their attributes.
    auto copySegment = [&](size_t from, size_t to) {
        text.append(string_, from, to - from);
        while (from < to) {
            seekRun(from);
            size_t end = std::min<size_t>(to, runs_[runIndex].range.end());
            pushRun(runs, static_cast<uint32_t>(text.size() - (to - from)), end - from,
                    runs_[runIndex].attributes);
            from = end;
        }
    };

    for (size_t i = 0, k = 0; i < n; ++i) {
        while (k > 0 && string_[i] != of[k])
            k = fallback[k - 1];
        if (string_[i] == of[k])
            ++k;
        if (k < m)
            continue;
        size_t start = i + 1 - m;
        size_t lengthBefore = text.size() + (start - copied);
        if (!fitsAfter(lengthBefore, with.size()) ||
            !fitsAfter(lengthBefore + with.size(), n - i - 1))
            return;
        if (!matched) {
            text.reserve(n);
            runs.reserve(runs_.size());
            matched = true;
        }
        copySegment(copied, start);
        seekRun(start);
        pushRun(runs, static_cast<uint32_t>(text.size()), with.size(), runs_[runIndex].attributes);
        text.append(with);
        copied = i + 1;
        k = 0;
    }
    if (!matched)
        return;
    copySegment(copied, n);
    string_ = std::move(text);
    runs_ = std::move(runs);
}

const KPPDFTextAttributes&
KPPDFAttributedString::attributesAtIndex(size_t index, KPPDFRange* effectiveRange) const {
    static const KPPDFTextAttributes kNoAttributes;
    if (index >= string_.size()) {
        if (effectiveRange)
            *effectiveRange = KPPDFMakeRange(static_cast<uint32_t>(string_.size()), 0);
        return kNoAttributes;
    }
    auto after = std::upper_bound(runs_.begin(), runs_.end(), index,
                                  [](size_t i, const Run& run) { return i < run.range.location; });
    const Run& run = *(after - 1);
    if (effectiveRange)
        *effectiveRange = run.range;
    return run.attributes;
}
