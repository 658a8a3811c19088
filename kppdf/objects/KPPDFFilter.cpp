#include "kppdf/objects/KPPDFFilter.h"

#include "kppdf/platform/KPPDFLog.h"

#include <algorithm>
#include <climits>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <new>

#include <jpeglib.h>
// After jpeglib.h, which it needs; gives the message codes.
#include <jerror.h>
#include <zlib.h>

namespace {

// Small streams (fonts' widths arrays, short content streams) get this much room up front, so
// they finish in one pass instead of growing from a few bytes.
constexpr size_t kFlateMinBuffer = 16 * 1024;
// A pixel of a predictor row holds at most this many colour components.
constexpr int kPredictorMaxColors = 32;
// Longest predictor row accepted; larger values only come from broken parameters.
constexpr uint64_t kPredictorMaxRowLength = uint64_t(1) << 30;
// libjpeg decodes every scan of a progressive JPEG over the whole image; thousands of tiny scans
// would make a small file take minutes.
constexpr int kDCTMaxScans = 500;

// ------------------------------------------------------------------------------------------------
// Flate

struct InflateOutcome {
    int status = Z_OK; // Z_STREAM_END when complete
    size_t produced = 0;
    bool capped = false;
};

// Inflates into *output, doubling it when full, so a stream that compresses a thousandfold costs
// a few reallocations rather than a restart per step. *output ends up at least `produced` long.
InflateOutcome inflateGrowing(const uint8_t* input, uint32_t inputLength, int windowBits,
                              size_t maxOutput, std::string* output) {
    InflateOutcome outcome;
    z_stream stream{};
    outcome.status = inflateInit2(&stream, windowBits);
    if (outcome.status != Z_OK)
        return outcome;
    const size_t initial = std::min(std::max(size_t(inputLength) * 3, kFlateMinBuffer), maxOutput);
    if (output->size() < initial)
        output->resize(initial);
    stream.next_in = const_cast<Bytef*>(input);
    stream.avail_in = inputLength;
    for (;;) {
        if (outcome.produced == output->size()) {
            if (output->size() >= maxOutput) {
                // The stream may end exactly at the limit; only more data means it was cut.
                Bytef probe[1];
                stream.next_out = probe;
                stream.avail_out = sizeof probe;
                int status = inflate(&stream, Z_NO_FLUSH);
                outcome.capped = stream.avail_out == 0;
                outcome.status = outcome.capped ? Z_OK : status;
                break;
            }
            output->resize(output->size() > maxOutput / 2 ? maxOutput : output->size() * 2);
        }
        size_t room = std::min<size_t>(output->size() - outcome.produced, UINT_MAX);
        stream.next_out = reinterpret_cast<Bytef*>(output->data() + outcome.produced);
        stream.avail_out = static_cast<uInt>(room);
        outcome.status = inflate(&stream, Z_NO_FLUSH);
        outcome.produced += room - stream.avail_out;
        // Z_OK means zlib stopped for lack of room or of input; the next call tells which.
        if (outcome.status != Z_OK)
            break;
    }
    inflateEnd(&stream);
    return outcome;
}

// Empties *output and inflates input into it as a zlib stream; false, with nothing done, for
// null arguments. Throws std::bad_alloc.
bool inflateZlib(const uint8_t* input, uint32_t inputLength, size_t maxOutput, std::string* output,
                 InflateOutcome* outcome) {
    if (!output)
        return false;
    output->clear();
    if (!input && inputLength)
        return false;
    *outcome = inflateGrowing(input, inputLength, MAX_WBITS, maxOutput, output);
    return true;
}

// Cuts the working buffer down to the bytes produced. It may be up to twice the result, and
// decoded object streams and contents are kept: a right-sized copy costs less than the slack
// it gives back.
void fitOutput(std::string* output, size_t produced) {
    output->resize(produced);
    if (output->capacity() - output->size() > 4096)
        output->shrink_to_fit();
}

// ------------------------------------------------------------------------------------------------
// Predictors

void undoPNGPredictor(std::string* data, size_t rowLength, size_t pixelLength) {
    // Decoded rows are one byte shorter than encoded ones, so they are written in place behind
    // the reading position; the previous decoded row stays intact for Up, Average and Paeth.
    uint8_t* bytes = reinterpret_cast<uint8_t*>(data->data());
    const size_t size = data->size();
    size_t in = 0;
    size_t out = 0;
    size_t row = 0;
    bool loggedType = false;
    while (in < size) {
        const unsigned type = bytes[in++];
        const size_t n = std::min(rowLength, size - in);
        const uint8_t* src = bytes + in;
        uint8_t* dst = bytes + out;
        const uint8_t* up = row > 0 ? dst - rowLength : nullptr;
        switch (type) {
        case 1: // Sub
            for (size_t i = 0; i < n; ++i)
                dst[i] =
                    static_cast<uint8_t>(src[i] + (i >= pixelLength ? dst[i - pixelLength] : 0));
            break;
        case 2: // Up
            for (size_t i = 0; i < n; ++i)
                dst[i] = static_cast<uint8_t>(src[i] + (up ? up[i] : 0));
            break;
        case 3: // Average
            for (size_t i = 0; i < n; ++i) {
                unsigned left = i >= pixelLength ? dst[i - pixelLength] : 0;
                unsigned above = up ? up[i] : 0;
                dst[i] = static_cast<uint8_t>(src[i] + ((left + above) >> 1));
            }
            break;
        case 4: // Paeth
            for (size_t i = 0; i < n; ++i) {
                int a = i >= pixelLength ? dst[i - pixelLength] : 0;
                int b = up ? up[i] : 0;
                int c = up && i >= pixelLength ? up[i - pixelLength] : 0;
                int p = a + b - c;
                int pa = std::abs(p - a);
                int pb = std::abs(p - b);
                int pc = std::abs(p - c);
                int predicted = pa <= pb && pa <= pc ? a : (pb <= pc ? b : c);
                dst[i] = static_cast<uint8_t>(src[i] + predicted);
            }
            break;
        default:
            // An unknown type byte is taken as None, so one damaged row does not lose the image.
            if (type != 0 && !loggedType) {
                KPPDFLog("Predictor: unknown PNG filter type %u in row %zu", type, row);
                loggedType = true;
            }
            for (size_t i = 0; i < n; ++i)
                dst[i] = src[i];
            break;
        }
        in += n;
        out += n;
        ++row;
    }
    data->resize(out);
}

void undoTIFFPredictor(std::string* data, size_t rowLength, int colors, int bitsPerComponent,
                       int columns) {
    uint8_t* bytes = reinterpret_cast<uint8_t*>(data->data());
    const size_t size = data->size();
    const size_t step = static_cast<size_t>(colors);
    for (size_t start = 0; start < size; start += rowLength) {
        const size_t n = std::min(rowLength, size - start);
        uint8_t* row = bytes + start;
        if (bitsPerComponent == 8) {
            for (size_t i = step; i < n; ++i)
                row[i] = static_cast<uint8_t>(row[i] + row[i - step]);
        } else if (bitsPerComponent == 16) {
            // Samples are big-endian (ISO 32000-1, section 7.4.4.4: components of more than
            // 8 bits are stored most significant byte first).
            for (size_t i = 2 * step; i + 1 < n; i += 2) {
                unsigned value = (unsigned(row[i]) << 8 | row[i + 1]) +
                                 (unsigned(row[i - 2 * step]) << 8 | row[i - 2 * step + 1]);
                row[i] = static_cast<uint8_t>(value >> 8);
                row[i + 1] = static_cast<uint8_t>(value);
            }
        } else {
            const unsigned bits = static_cast<unsigned>(bitsPerComponent);
            const unsigned mask = (1u << bits) - 1;
            const size_t samples = std::min(step * static_cast<size_t>(columns), n * 8 / bits);
            auto shiftOf = [bits](size_t index) {
                return static_cast<unsigned>(8 - bits - (index * bits) % 8);
            };
            for (size_t j = step; j < samples; ++j) {
                uint8_t& byte = row[j * bits / 8];
                unsigned shift = shiftOf(j);
                unsigned left = row[(j - step) * bits / 8] >> shiftOf(j - step) & mask;
                unsigned value = ((byte >> shift & mask) + left) & mask;
                byte = static_cast<uint8_t>((byte & ~(mask << shift)) | value << shift);
            }
        }
    }
}

// ------------------------------------------------------------------------------------------------
// JPEG

struct JPEGErrorManager {
    jpeg_error_mgr manager; // first, so libjpeg's pointer to it leads back here
    jmp_buf jump;
    const char* operation;
};

[[noreturn]] void jpegErrorExit(j_common_ptr info) {
    auto* errors = reinterpret_cast<JPEGErrorManager*>(info->err);
    char message[JMSG_LENGTH_MAX];
    (*info->err->format_message)(info, message);
    KPPDFLog("%s: %s", errors->operation, message);
    std::longjmp(errors->jump, 1);
}

void jpegEmitMessage(j_common_ptr info, int level) {
    jpeg_error_mgr* err = info->err;
    if (level < 0) {
        // libjpeg pads a truncated file with grey and carries on; take that as a failure
        // instead of returning a half-made image. Other damage is tolerated, logged once.
        if (err->msg_code == JWRN_JPEG_EOF)
            jpegErrorExit(info);
        if (err->num_warnings++ == 0) {
            char message[JMSG_LENGTH_MAX];
            (*err->format_message)(info, message);
            KPPDFLog("%s: %s", reinterpret_cast<JPEGErrorManager*>(err)->operation, message);
        }
        return;
    }
    // Trace messages come once per scan among others, which makes this the place to stop a
    // progressive JPEG with an absurd number of scans.
    if (info->is_decompressor &&
        reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > kDCTMaxScans) {
        KPPDFLog("%s: more than %d scans", reinterpret_cast<JPEGErrorManager*>(err)->operation,
                 kDCTMaxScans);
        std::longjmp(reinterpret_cast<JPEGErrorManager*>(err)->jump, 1);
    }
}

void installErrorManager(JPEGErrorManager* errors, const char* operation) {
    jpeg_std_error(&errors->manager);
    errors->manager.error_exit = jpegErrorExit;
    errors->manager.emit_message = jpegEmitMessage;
    errors->operation = operation;
}

// Everything libjpeg touches lives here, in memory, so nothing is left in a register that
// longjmp would restore stale.
struct JPEGDecoding {
    jpeg_decompress_struct info;
    JPEGErrorManager errors;
    int width = 0;
    int height = 0;
    int components = 0;
};

// Without output, only the markers up to the first scan are read: what the image is.
bool decodeDCT(JPEGDecoding* d, const uint8_t* input, size_t length, std::string* output) {
    d->info.err = &d->errors.manager;
    jpeg_create_decompress(&d->info);
    if (setjmp(d->errors.jump)) {
        jpeg_destroy_decompress(&d->info);
        return false;
    }
    jpeg_mem_src(&d->info, input, static_cast<unsigned long>(length));
    bool found = jpeg_read_header(&d->info, TRUE) == JPEG_HEADER_OK;
    if (!output) {
        d->width = static_cast<int>(d->info.image_width);
        d->height = static_cast<int>(d->info.image_height);
        d->components = d->info.num_components;
        jpeg_destroy_decompress(&d->info);
        return found && d->width > 0 && d->height > 0;
    }
    jpeg_calc_output_dimensions(&d->info);
    const int components = d->info.output_components;
    const uint64_t samples =
        uint64_t(d->info.output_width) * d->info.output_height * static_cast<uint64_t>(components);
    if (components != 1 && components != 3 && components != 4) {
        KPPDFLog("DCTDecode: %d components not supported", components);
        jpeg_destroy_decompress(&d->info);
        return false;
    }
    if (samples > kKPPDFFilterDCTMaxSamples) {
        KPPDFLog("DCTDecode: image of %ux%u with %d components too large", d->info.output_width,
                 d->info.output_height, components);
        jpeg_destroy_decompress(&d->info);
        return false;
    }
    try {
        output->resize(static_cast<size_t>(samples));
    } catch (const std::bad_alloc&) {
        KPPDFLog("DCTDecode: out of memory");
        jpeg_destroy_decompress(&d->info);
        return false;
    }
    jpeg_start_decompress(&d->info);
    const size_t stride = size_t(d->info.output_width) * static_cast<size_t>(components);
    while (d->info.output_scanline < d->info.output_height) {
        JSAMPROW row =
            reinterpret_cast<JSAMPROW>(output->data()) + size_t(d->info.output_scanline) * stride;
        // A memory source never suspends, so no progress would mean a broken library state.
        if (jpeg_read_scanlines(&d->info, &row, 1) != 1) {
            KPPDFLog("DCTDecode: no scanline decoded");
            jpeg_destroy_decompress(&d->info);
            return false;
        }
    }
    // All rows are in; whatever follows them (a missing EOI, trailing bytes) does not matter.
    d->width = static_cast<int>(d->info.output_width);
    d->height = static_cast<int>(d->info.output_height);
    d->components = components;
    jpeg_destroy_decompress(&d->info);
    return true;
}

// Compressed bytes go straight into the caller's string, a chunk at a time.
struct JPEGDestination {
    jpeg_destination_mgr manager; // first, so libjpeg's pointer to it leads back here
    std::string* output;
    JOCTET chunk[16384];
};

// An append that throws cannot unwind through libjpeg's C frames; it becomes a libjpeg error.
void appendChunk(j_compress_ptr info, size_t length) {
    auto* destination = reinterpret_cast<JPEGDestination*>(info->dest);
    bool appended = true;
    try {
        destination->output->append(reinterpret_cast<const char*>(destination->chunk), length);
    } catch (const std::bad_alloc&) {
        appended = false;
    }
    if (!appended)
        ERREXIT1(info, JERR_OUT_OF_MEMORY, 0);
    destination->manager.next_output_byte = destination->chunk;
    destination->manager.free_in_buffer = sizeof destination->chunk;
}

void initDestination(j_compress_ptr info) {
    auto* destination = reinterpret_cast<JPEGDestination*>(info->dest);
    destination->manager.next_output_byte = destination->chunk;
    destination->manager.free_in_buffer = sizeof destination->chunk;
}

boolean emptyOutputBuffer(j_compress_ptr info) {
    appendChunk(info, sizeof JPEGDestination::chunk);
    return TRUE;
}

void termDestination(j_compress_ptr info) {
    appendChunk(info, sizeof JPEGDestination::chunk - info->dest->free_in_buffer);
}

struct JPEGEncoding {
    jpeg_compress_struct info;
    JPEGErrorManager errors;
    JPEGDestination destination;
};

bool encodeJPEG(JPEGEncoding* e, const uint8_t* pixels, int width, int height, int components,
                int quality) {
    e->info.err = &e->errors.manager;
    jpeg_create_compress(&e->info);
    if (setjmp(e->errors.jump)) {
        jpeg_destroy_compress(&e->info);
        return false;
    }
    e->destination.manager.init_destination = initDestination;
    e->destination.manager.empty_output_buffer = emptyOutputBuffer;
    e->destination.manager.term_destination = termDestination;
    e->info.dest = &e->destination.manager;
    e->info.image_width = static_cast<JDIMENSION>(width);
    e->info.image_height = static_cast<JDIMENSION>(height);
    e->info.input_components = components;
    e->info.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&e->info);
    jpeg_set_quality(&e->info, std::clamp(quality, 1, 100), TRUE);
    jpeg_start_compress(&e->info, TRUE);
    const size_t stride = size_t(width) * static_cast<size_t>(components);
    while (e->info.next_scanline < e->info.image_height) {
        // libjpeg's row type is not const, but compression only reads the rows.
        JSAMPROW row = const_cast<JSAMPROW>(pixels) + size_t(e->info.next_scanline) * stride;
        jpeg_write_scanlines(&e->info, &row, 1);
    }
    jpeg_finish_compress(&e->info);
    jpeg_destroy_compress(&e->info);
    return true;
}

} // namespace

// ------------------------------------------------------------------------------------------------

int32_t KPPDFInflate(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                     uint32_t* outputLength) {
    if (!outputLength || !output || (!input && inputLength))
        return Z_STREAM_ERROR;
    z_stream stream{};
    int status = inflateInit(&stream);
    if (status != Z_OK)
        return status;
    stream.next_in = const_cast<Bytef*>(input);
    stream.avail_in = inputLength;
    stream.next_out = output;
    stream.avail_out = *outputLength;
    status = inflate(&stream, Z_FINISH);
    if (status == Z_STREAM_END) {
        status = inflateEnd(&stream);
        if (status != Z_OK)
            return status;
        *outputLength = static_cast<uint32_t>(stream.total_out);
        return 1;
    }
    // zlib reports a full output and an input that ran out alike; only the first is cured by a
    // bigger buffer, so callers that grow on -5 must not see the second.
    if (status == Z_BUF_ERROR && stream.avail_out != 0)
        status = Z_DATA_ERROR;
    inflateEnd(&stream);
    return status;
}

int32_t KPPDFDeflate(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                     uint32_t* outputLength) {
    if (!outputLength || !output || (!input && inputLength))
        return 0;
    z_stream stream{};
    if (deflateInit(&stream, Z_DEFAULT_COMPRESSION) != Z_OK)
        return 0;
    stream.next_in = const_cast<Bytef*>(input);
    stream.avail_in = inputLength;
    stream.next_out = output;
    stream.avail_out = *outputLength;
    int status = deflate(&stream, Z_FINISH);
    int endStatus = deflateEnd(&stream);
    if (status != Z_STREAM_END || endStatus != Z_OK)
        return 0;
    *outputLength = static_cast<uint32_t>(stream.total_out);
    return 1;
}

uint32_t KPPDFDeflateBound(uint32_t inputLength) {
    // Without a stream zlib gives its bound for any parameters, which covers the default level.
    uLong bound = deflateBound(nullptr, inputLength);
    return bound > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bound);
}

bool KPPDFStreamDecode85(const uint8_t* input, size_t length, std::string* output) {
    static constexpr uint32_t kPow85[5] = {85u * 85 * 85 * 85, 85u * 85 * 85, 85u * 85, 85u, 1u};
    if (!output)
        return false;
    output->clear();
    if (!input && length)
        return false;
    try {
        output->reserve(length - length / 5);
        // The accumulator is 32 bits wide and wraps on groups above "s8W-!", as it always has.
        uint32_t tuple = 0;
        int count = 0;
        bool failed = false;
        for (size_t i = 0; i < length; ++i) {
            const uint8_t c = input[i];
            switch (c) {
            case 0:
            case '\b':
            case '\t':
            case '\n':
            case '\f':
            case '\r':
            case ' ':
            case 127:
                break;
            case 'z':
                if (count != 0) {
                    KPPDFLog("ASCII85Decode: z inside ascii85 5-tuple");
                    failed = true;
                } else {
                    output->append(4, '\0');
                }
                break;
            case '~':
                if (i + 1 >= length || input[i + 1] != '>') {
                    KPPDFLog("ASCII85Decode: ~ without > in ascii85 section");
                    output->clear();
                    return false;
                }
                if (failed) {
                    output->clear();
                    return false;
                }
                if (count > 0) {
                    // Adding the weight of the last digit present rounds up the way padding
                    // with "u" does, so the bytes kept come out right.
                    tuple += kPow85[count - 1];
                    for (int k = 0; k < count - 1; ++k)
                        output->push_back(static_cast<char>(tuple >> (8 * k)));
                }
                return true;
            default:
                if (c >= '!' && c <= 'u') {
                    tuple += uint32_t(c - '!') * kPow85[count];
                    if (++count == 5) {
                        // Least significant byte first: the order this system's readers expect.
                        for (int k = 0; k < 4; ++k)
                            output->push_back(static_cast<char>(tuple >> (8 * k)));
                        tuple = 0;
                        count = 0;
                    }
                } else {
                    KPPDFLog("ASCII85Decode: bad character in ascii85 region: %#o", unsigned(c));
                    failed = true;
                }
                break;
            }
        }
        if (failed) {
            output->clear();
            return false;
        }
        return true;
    } catch (const std::bad_alloc&) {
        KPPDFLog("ASCII85Decode: out of memory");
        output->clear();
        return false;
    }
}

bool KPPDFFlateDecodePrefix(const uint8_t* input, uint32_t inputLength, std::string* output,
                            size_t maxOutput, const KPPDFFlateWanted& wanted, bool* complete) {
    *complete = false;
    if (!output)
        return false;
    output->clear();
    if (!input && inputLength)
        return false;
    // The zlib header is checked here and the deflate data inflated raw, so that no checksum
    // is computed: it cost a tenth of the inflating, and decides nothing here (a part has none
    // to check, and the bytes of a whole stream are the ones KPPDFFlateDecode keeps, checksum
    // right or wrong).
    if (inputLength < 2)
        return false;
    const unsigned method = input[0], flags = input[1];
    if ((method & 0x0f) != Z_DEFLATED || (method >> 4) > 7 || ((method << 8) | flags) % 31 != 0 ||
        (flags & 0x20))
        return false;
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        return false;
    // Everything up to maxOutput, and one byte more to tell a stream cut at the bound.
    const size_t bound = maxOutput == SIZE_MAX ? maxOutput : maxOutput + 1;
    size_t produced = 0;
    bool sound = false;
    try {
        size_t want = std::min(wanted ? wanted(nullptr, 0) : SIZE_MAX, bound);
        output->resize(std::min(std::max(size_t(inputLength) * 3, kFlateMinBuffer), want));
        stream.next_in = const_cast<Bytef*>(input + 2);
        stream.avail_in = inputLength - 2;
        for (;;) {
            if (produced >= want) {
                // What came so far may tell how much more is wanted.
                size_t more =
                    want < bound && wanted
                        ? wanted(reinterpret_cast<const uint8_t*>(output->data()), produced)
                        : produced;
                if (more <= produced) {
                    sound = produced <= maxOutput;
                    break;
                }
                want = std::min(more, bound);
            }
            if (produced == output->size())
                output->resize(std::min(std::max(output->size() * 2, kFlateMinBuffer), want));
            size_t room = std::min<size_t>({output->size() - produced, want - produced, UINT_MAX});
            stream.next_out = reinterpret_cast<Bytef*>(output->data() + produced);
            stream.avail_out = static_cast<uInt>(room);
            int status = inflate(&stream, Z_NO_FLUSH);
            produced += room - stream.avail_out;
            if (status == Z_STREAM_END) {
                // The stream is whole, whatever more was wanted.
                sound = produced <= maxOutput;
                *complete = sound;
                break;
            }
            // Z_OK with room left means the input ran out; the next call says Z_BUF_ERROR.
            if (status != Z_OK)
                break;
        }
    } catch (const std::bad_alloc&) {
        sound = false;
    }
    inflateEnd(&stream);
    if (!sound) {
        *complete = false;
        output->clear();
        return false;
    }
    fitOutput(output, produced);
    return true;
}

bool KPPDFFlateDecode(const uint8_t* input, uint32_t inputLength, std::string* output,
                      size_t maxOutput) {
    InflateOutcome outcome;
    try {
        if (!inflateZlib(input, inputLength, maxOutput, output, &outcome))
            return false;
        if (outcome.status == Z_MEM_ERROR) {
            KPPDFLog("FlateDecode: out of memory");
            output->clear();
            return false;
        }
        if (outcome.status != Z_STREAM_END && outcome.produced == 0 && !outcome.capped) {
            // Some writers omit the zlib header or write a wrong one; the data may still be a
            // valid raw deflate stream.
            InflateOutcome raw = inflateGrowing(input, inputLength, -MAX_WBITS, maxOutput, output);
            if (raw.status == Z_STREAM_END || raw.produced > 0 || raw.capped)
                outcome = raw;
        }
        fitOutput(output, outcome.produced);
        if (outcome.capped) {
            KPPDFLog("FlateDecode: output cut at %zu bytes", outcome.produced);
            return true;
        }
        if (outcome.status == Z_STREAM_END)
            return true;
        if (outcome.produced == 0) {
            KPPDFLog("FlateDecode: corrupt data, nothing inflated");
            return false;
        }
        KPPDFLog("FlateDecode: corrupt data, kept %u bytes",
                 static_cast<unsigned>(outcome.produced));
        return true;
    } catch (const std::bad_alloc&) {
        KPPDFLog("FlateDecode: out of memory");
        output->clear();
        return false;
    }
}

bool KPPDFApplyPredictor(const KPPDFPredictorParams& params, std::string* data) {
    if (!data)
        return false;
    if (params.predictor == 1)
        return true;
    const bool png = params.predictor >= 10 && params.predictor <= 15;
    if (!png && params.predictor != 2) {
        KPPDFLog("Predictor: unsupported predictor %d", params.predictor);
        return false;
    }
    if (params.colors < 1 || params.colors > kPredictorMaxColors) {
        KPPDFLog("Predictor: Colors %d out of range", params.colors);
        return false;
    }
    const int bits = params.bitsPerComponent;
    if (bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16) {
        KPPDFLog("Predictor: BitsPerComponent %d not supported", bits);
        return false;
    }
    if (params.columns < 1) {
        KPPDFLog("Predictor: Columns %d out of range", params.columns);
        return false;
    }
    const uint64_t rowBits = uint64_t(params.colors) * unsigned(bits) * unsigned(params.columns);
    const uint64_t rowLength = (rowBits + 7) / 8;
    if (rowLength > kPredictorMaxRowLength) {
        KPPDFLog("Predictor: rows of %llu bytes too long",
                 static_cast<unsigned long long>(rowLength));
        return false;
    }
    if (png) {
        const size_t pixelLength =
            std::max<size_t>(1, (size_t(params.colors) * unsigned(bits) + 7) / 8);
        undoPNGPredictor(data, static_cast<size_t>(rowLength), pixelLength);
    } else {
        undoTIFFPredictor(data, static_cast<size_t>(rowLength), params.colors, bits,
                          params.columns);
    }
    return true;
}

bool KPPDFDecodeDCT(const uint8_t* input, size_t length, std::string* output, int* width,
                    int* height, int* components) {
    if (!output)
        return false;
    output->clear();
    if (!input || length == 0) {
        KPPDFLog("DCTDecode: no data");
        return false;
    }
    JPEGDecoding decoding;
    installErrorManager(&decoding.errors, "DCTDecode");
    if (!decodeDCT(&decoding, input, length, output)) {
        output->clear();
        return false;
    }
    if (width)
        *width = decoding.width;
    if (height)
        *height = decoding.height;
    if (components)
        *components = decoding.components;
    return true;
}

bool KPPDFReadJPEGHeader(const uint8_t* input, size_t length, int* width, int* height,
                         int* components) {
    // Every JPEG starts with SOI and another marker; anything else is not worth libjpeg's time.
    if (!input || length < 4 || input[0] != 0xFF || input[1] != 0xD8 || input[2] != 0xFF)
        return false;
    JPEGDecoding decoding;
    installErrorManager(&decoding.errors, "JPEG header");
    if (!decodeDCT(&decoding, input, length, nullptr))
        return false;
    if (width)
        *width = decoding.width;
    if (height)
        *height = decoding.height;
    if (components)
        *components = decoding.components;
    return true;
}

bool KPPDFEncodeJPEG(const uint8_t* pixels, int width, int height, int components, int quality,
                     std::string* output) {
    if (!output)
        return false;
    output->clear();
    if (!pixels || width < 1 || height < 1 || width > JPEG_MAX_DIMENSION ||
        height > JPEG_MAX_DIMENSION || (components != 1 && components != 3 && components != 4)) {
        KPPDFLog("JPEG encoder: invalid image %dx%d with %d components", width, height, components);
        return false;
    }
    JPEGEncoding encoding;
    installErrorManager(&encoding.errors, "JPEG encoder");
    encoding.destination.output = output;
    if (!encodeJPEG(&encoding, pixels, width, height, components, quality)) {
        output->clear();
        return false;
    }
    return true;
}
