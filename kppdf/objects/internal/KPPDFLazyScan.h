#pragma once
#include <cstdint>

#include "kppdf/platform/KPPDFData.h"

// The length of an unparsed top-level array or dictionary: from its first byte to the next
// "endobj" (or, for a dictionary, "stream") keyword outside strings and comments, scanning from
// one byte after offset while six bytes remain. When no keyword is found it is the distance
// scanned.
uint32_t KPPDFLazyObjectLength(const KPPDFData& data, uint64_t offset, bool stopAtStream);

class KPPDFObject;

// True when object, an array or dictionary element whose text ends at end in data, stopped
// before its closing "]" or ">>" (a bad element, the end of the bytes, nesting too deep). The
// array or dictionary holding it then stops as well, rather than reading the unread inside of
// the element as elements of its own.
bool KPPDFContainerEndsOpen(const KPPDFObject& object, const KPPDFData& data, uint64_t end);
