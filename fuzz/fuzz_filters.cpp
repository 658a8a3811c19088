// Feeds arbitrary bytes to the stream filters. The first byte picks the filter (and, for the
// predictor, the next five bytes its parameters); the rest is the stream. Besides looking for
// crashes, leaks and hangs, it checks the filters against each other where their results must
// agree.
#include "kppdf/objects/KPPDFFilter.h"
#include "kppdf/platform/KPPDFLog.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Small enough to keep runs fast; a selector bit also tries the tiny ceiling that forces cuts.
constexpr size_t kFuzzFlateMaxOutput = size_t(64) << 20;
constexpr size_t kFuzzFlateSmallMaxOutput = 1000;
constexpr uint32_t kOneShotOutput = 1 << 20;
// Re-encoding decoded JPEGs is only worth it for small ones.
constexpr int kReencodeMaxPixels = 1 << 16;

void check(bool condition) {
    if (!condition)
        abort();
}

KPPDFPredictorParams predictorParams(const uint8_t* p) {
    static constexpr int kPredictors[] = {1, 2, 10, 11, 12, 13, 14, 15, 0, 3, 16, -1};
    static constexpr int kBits[] = {1, 2, 4, 8, 16, 0, 3, 32};
    KPPDFPredictorParams params;
    params.predictor = kPredictors[p[0] % (sizeof kPredictors / sizeof *kPredictors)];
    params.colors = p[1] % 35 - 1;
    params.bitsPerComponent = kBits[p[2] % (sizeof kBits / sizeof *kBits)];
    unsigned columns = unsigned(p[3]) << 8 | p[4];
    params.columns = columns >= 0xff00 ? INT_MAX - int(columns & 0xff) : int(columns) - 1;
    return params;
}

void fuzzFlate(const uint8_t* data, uint32_t size, size_t maxOutput) {
    std::string out;
    bool ok = KPPDFFlateDecode(data, size, &out, maxOutput);
    check(out.size() <= maxOutput && (ok || out.empty()));

    // Whatever the one-shot call inflates completely, the growing decoder must give too.
    std::string oneShot(kOneShotOutput, '\0');
    uint32_t length = kOneShotOutput;
    if (KPPDFInflate(data, size, reinterpret_cast<uint8_t*>(oneShot.data()), &length) == 1 &&
        length <= maxOutput) {
        oneShot.resize(length);
        check(ok && out == oneShot);
    }

    // The head-only decoder gives the bytes the usual one keeps, up to where it stops: all of
    // them when it says the stream is complete, the first so many otherwise. The point wanted
    // is read from the stream's own first bytes, as an object stream's header gives it.
    // (An empty stream with a wrong checksum is the one difference: the usual decoder, with
    // nothing inflated, takes it for damage.)
    std::string head;
    bool complete = false;
    if (KPPDFFlateDecodePrefix(data, size, &head, maxOutput, nullptr, &complete))
        check(complete && (head.empty() || (ok && head == out)));
    else
        check(head.empty() && !complete);
    auto wanted = [](const uint8_t* bytes, size_t length) -> size_t {
        return length == 0 ? 4 : length == 4 ? 4 + (size_t(bytes[0]) << 8 | bytes[1]) : length;
    };
    if (KPPDFFlateDecodePrefix(data, size, &head, maxOutput, wanted, &complete)) {
        check(head.empty() || (ok && out.compare(0, head.size(), head) == 0));
        if (complete)
            check(head.empty() || head == out);
        else
            check(head.size() >= 4 &&
                  head.size() == 4 + (size_t(uint8_t(head[0])) << 8 | uint8_t(head[1])));
    } else {
        check(head.empty() && !complete);
    }

    std::string packed(KPPDFDeflateBound(size), '\0');
    uint32_t packedLength = static_cast<uint32_t>(packed.size());
    check(KPPDFDeflate(data, size, reinterpret_cast<uint8_t*>(packed.data()), &packedLength) == 1);
    check(KPPDFFlateDecode(reinterpret_cast<const uint8_t*>(packed.data()), packedLength, &out));
    check(out.size() == size && (size == 0 || std::memcmp(out.data(), data, size) == 0));
}

void fuzzPredictor(const KPPDFPredictorParams& params, std::string data) {
    const size_t before = data.size();
    if (KPPDFApplyPredictor(params, &data))
        check(params.predictor == 2 || params.predictor == 1 ? data.size() == before
                                                             : data.size() < before || before == 0);
    else
        check(data.size() == before);
}

void fuzzDCT(const uint8_t* data, size_t size) {
    std::string pixels;
    int width = 0, height = 0, components = 0;
    // A header that reads is what the decoder reads first; a decoded image had one.
    int headerWidth = 0, headerHeight = 0;
    bool header = KPPDFReadJPEGHeader(data, size, &headerWidth, &headerHeight, nullptr);
    check(!header || (headerWidth > 0 && headerHeight > 0));
    if (!KPPDFDecodeDCT(data, size, &pixels, &width, &height, &components)) {
        check(pixels.empty());
        return;
    }
    check(width > 0 && height > 0 && (components == 1 || components == 3 || components == 4));
    check(!header || (headerWidth == width && headerHeight == height));
    check(pixels.size() == size_t(width) * size_t(height) * size_t(components));
    if (int64_t(width) * height > kReencodeMaxPixels)
        return;
    std::string jpeg;
    check(KPPDFEncodeJPEG(reinterpret_cast<const uint8_t*>(pixels.data()), width, height,
                          components, 50, &jpeg));
    int width2 = 0, height2 = 0, components2 = 0;
    check(KPPDFDecodeDCT(reinterpret_cast<const uint8_t*>(jpeg.data()), jpeg.size(), &pixels,
                         &width2, &height2, &components2));
    check(width2 == width && height2 == height && components2 == components);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The filters log every flaw they meet, and a fuzzer feeds nothing but flaws.
    KPPDFSetLogHandler([](const std::string&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > UINT32_MAX)
        return 0;
    const uint8_t selector = data[0];
    const uint8_t* rest = data + 1;
    const size_t restSize = size - 1;
    const size_t maxOutput = selector & 0x80 ? kFuzzFlateSmallMaxOutput : kFuzzFlateMaxOutput;
    switch (selector % 5) {
    case 0:
        fuzzFlate(rest, static_cast<uint32_t>(restSize), maxOutput);
        break;
    case 1: {
        std::string out;
        if (KPPDFStreamDecode85(rest, restSize, &out))
            check(out.size() <= 4 * restSize);
        else
            check(out.empty());
        break;
    }
    case 2:
        if (restSize >= 5)
            fuzzPredictor(predictorParams(rest),
                          std::string(reinterpret_cast<const char*>(rest + 5), restSize - 5));
        break;
    case 3:
        fuzzDCT(rest, restSize);
        break;
    case 4: {
        // The chain as streams use it: FlateDecode, then the predictor of its DecodeParms.
        if (restSize < 5)
            break;
        std::string out;
        if (KPPDFFlateDecode(rest + 5, static_cast<uint32_t>(restSize - 5), &out, maxOutput))
            fuzzPredictor(predictorParams(rest), std::move(out));
        break;
    }
    }
    return 0;
}
