#pragma once
#include <cstdint>

#include "kppdf/platform/KPPDFData.h"

// The length of an unparsed top-level array or dictionary: from its first byte to the next
// "endobj" (or, for a dictionary, "stream") keyword outside strings and comments, scanning from
// one byte after offset while six bytes remain. When no keyword is found it is the distance
// scanned.
uint32_t KPPDFLazyObjectLength(const KPPDFData& data, uint64_t offset, bool stopAtStream);
