#pragma once
#include <algorithm>
#include <cstdint>

// The border of an annotation (ISO 32000-1, 12.5.4): width, style code and dash pattern, kept by
// value in the annotations that have one.
struct KPPDFBorderStyle {
    // A dash pattern keeps at most this many entries; further ones are dropped.
    static constexpr int32_t kMaxDash = 16;

    float width = 0;
    // Solid, dashed and so on; the codes belong to the annotation kinds that use them.
    int32_t style = 0;
    // Number of valid entries in dash, 0..kMaxDash.
    int32_t dashCount = 0;
    float dash[kMaxDash] = {};

    // Stores the first kMaxDash entries of pattern (count below 0 counts as 0).
    void setDash(const float* pattern, int32_t count) {
        dashCount = std::clamp<int32_t>(count, 0, kMaxDash);
        std::fill(dash, dash + kMaxDash, 0.0f);
        if (pattern)
            std::copy(pattern, pattern + dashCount, dash);
        else
            dashCount = 0;
    }
};
