#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// Stream filters of ISO 32000-1, section 7.4, as plain functions on bytes. The stream object runs
// them in the order of its "Filter" entry; none of them reads outside the given input, and any
// problem in the bytes is logged and reported through the return value.

// FlateDecode never produces more than this many bytes; a stream that inflates further is cut.
inline constexpr size_t kKPPDFFilterFlateMaxOutput = size_t(1) << 30;
// A JPEG whose width x height x components exceeds this is refused before decoding.
inline constexpr uint64_t kKPPDFFilterDCTMaxSamples = uint64_t(1) << 28;

// Inflates a zlib-format stream in one call into output[0 .. *outputLength). Returns 1 on
// success and sets *outputLength to the inflated size; otherwise returns the zlib status and
// leaves *outputLength alone: -5 (Z_BUF_ERROR) only when the output was too small, -3
// (Z_DATA_ERROR) for corrupt or truncated input, -2 for null arguments.
int32_t KPPDFInflate(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                     uint32_t* outputLength);

// Deflates input into zlib format at the default level in one call. Returns 1 and sets
// *outputLength to the compressed size on success, 0 on failure (output too small, null
// arguments). An output of KPPDFDeflateBound(inputLength) bytes always suffices.
int32_t KPPDFDeflate(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                     uint32_t* outputLength);

// Worst-case size of KPPDFDeflate's output for inputLength bytes (saturates at UINT32_MAX).
uint32_t KPPDFDeflateBound(uint32_t inputLength);

// ASCII85Decode as this system has always decoded it: each full group of five digits is appended
// least significant byte first, and a final group of n digits gives the n-1 least significant
// bytes of its rounded-up value. Decoding stops at "~>" or at the end of the input (an incomplete
// group is then dropped); a leading "<~" is not skipped. Returns false, with a log line and
// *output cleared, on "z" inside a group, a byte outside the alphabet, or "~" not followed by ">".
bool KPPDFStreamDecode85(const uint8_t* input, size_t length, std::string* output);

// FlateDecode step of a filter chain: inflates input (zlib format, or raw deflate when the zlib
// header is wrong) into *output, replacing its contents. A corrupt or truncated stream keeps the
// bytes inflated before the damage and still returns true (with a log line); false means
// nothing at all could be inflated. Output beyond maxOutput is cut off, with a log line.
bool KPPDFFlateDecode(const uint8_t* input, uint32_t inputLength, std::string* output,
                      size_t maxOutput = kKPPDFFilterFlateMaxOutput);

// How many decoded bytes a caller of KPPDFFlateDecodePrefix wants in all, told the bytes
// decoded so far (none at first): SIZE_MAX for the whole stream, no more than length to stop.
using KPPDFFlateWanted = std::function<size_t(const uint8_t* bytes, size_t length)>;

// Inflates a zlib stream that is expected to be sound, or only its head when the rest is not
// needed yet: stops as soon as wanted says enough (asked again each time its last answer is
// reached), or at the end of the deflate data; without wanted, the whole stream. True when that
// much came out without fault, *output then holding exactly the bytes KPPDFFlateDecode gives up
// to there, and *complete telling whether the stream ended within them (its checksum is not
// checked). False, with nothing in *output, on a bad zlib header, damage or a cut before the
// point wanted, or output beyond maxOutput. Logs nothing and touches no shared state, so any
// thread may call it; on false the caller decodes the usual way.
bool KPPDFFlateDecodePrefix(const uint8_t* input, uint32_t inputLength, std::string* output,
                            size_t maxOutput, const KPPDFFlateWanted& wanted, bool* complete);

// "DecodeParms" of FlateDecode (ISO 32000-1, section 7.4.4.4), with their default values.
struct KPPDFPredictorParams {
    int predictor = 1;
    int colors = 1;
    int bitsPerComponent = 8;
    int columns = 1;
};

// Undoes the predictor in place: 1 none, 2 TIFF predictor 2, 10 to 15 PNG predictors (each row
// led by its own filter-type byte). A short last row is decoded as far as it goes. Returns false
// with a log line, leaving *data untouched, when the parameters are invalid or unsupported.
bool KPPDFApplyPredictor(const KPPDFPredictorParams& params, std::string* data);

// DCTDecode: decodes a baseline or progressive JPEG into interleaved 8-bit samples, row after row
// (gray 1, RGB 3 or CMYK 4 components; Adobe's inverted CMYK is left as stored). Returns false
// with a log line, and *output cleared, on a corrupt, truncated or oversized JPEG. The out
// parameters width, height and components may be null.
bool KPPDFDecodeDCT(const uint8_t* input, size_t length, std::string* output, int* width,
                    int* height, int* components);

// Reads only the header of a JPEG (a baseline or progressive JFIF/Adobe image): true, with its
// size and number of components, when the bytes start a JPEG that libjpeg can read; false for
// anything else (with a log line when it starts like a JPEG but is damaged). The out
// parameters may be null.
bool KPPDFReadJPEGHeader(const uint8_t* input, size_t length, int* width, int* height,
                         int* components);

// Compresses interleaved 8-bit samples (1 gray, 3 RGB or 4 CMYK components) into a baseline JPEG
// at quality 1..100 (clamped). Returns false with a log line on invalid arguments or failure.
bool KPPDFEncodeJPEG(const uint8_t* pixels, int width, int height, int components, int quality,
                     std::string* output);
