#pragma once
#include <cstdint>

// Geometry in PDF user space (1/72 inch), single precision.
struct KPPDFPoint {
    float x = 0, y = 0;
    bool operator==(const KPPDFPoint&) const = default;
};

struct KPPDFSize {
    float width = 0, height = 0;
    bool operator==(const KPPDFSize&) const = default;
};

struct KPPDFRect {
    KPPDFPoint origin;
    KPPDFSize size;
    bool operator==(const KPPDFRect&) const = default;
    float minX() const { return size.width < 0 ? origin.x + size.width : origin.x; }
    float minY() const { return size.height < 0 ? origin.y + size.height : origin.y; }
    float maxX() const { return size.width < 0 ? origin.x : origin.x + size.width; }
    float maxY() const { return size.height < 0 ? origin.y : origin.y + size.height; }
};

inline KPPDFRect KPPDFMakeRect(float x, float y, float width, float height) {
    return KPPDFRect{{x, y}, {width, height}};
}

// x' = a*x + c*y + tx, y' = b*x + d*y + ty
struct KPPDFAffineTransform {
    float a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
    bool operator==(const KPPDFAffineTransform&) const = default;

    KPPDFPoint apply(KPPDFPoint p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }
    // this followed by other.
    KPPDFAffineTransform concat(const KPPDFAffineTransform& o) const {
        return {a * o.a + b * o.c,           a * o.b + b * o.d,           c * o.a + d * o.c,
                c * o.b + d * o.d,           tx * o.a + ty * o.c + o.tx, tx * o.b + ty * o.d + o.ty};
    }
    bool invert(KPPDFAffineTransform* out) const {
        float det = a * d - b * c;
        if (det == 0)
            return false;
        *out = {d / det, -b / det, -c / det, a / det, (c * ty - d * tx) / det, (b * tx - a * ty) / det};
        return true;
    }
};

// A (location, length) pair of byte or character positions.
struct KPPDFRange {
    uint32_t location = 0, length = 0;
    bool operator==(const KPPDFRange&) const = default;
    uint64_t end() const { return uint64_t(location) + length; }
};

inline KPPDFRange KPPDFMakeRange(uint32_t location, uint32_t length) { return {location, length}; }
