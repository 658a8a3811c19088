// Object parser throughput over a synthetic file body, and the number readers and writers that
// every parse and every save goes through, against the C library.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
constexpr size_t kBodyBytes = 20u << 20;
// Values per batch of the number benchmarks: large enough to defeat branch prediction on a
// repeating pattern, small enough to stay in the first-level cache.
constexpr size_t kNumberBatch = 4096;

// Deterministic so that every run measures the same bytes.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint32_t next() {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state_ >> 33);
    }
    uint32_t below(uint32_t bound) { return next() % bound; }

private:
    uint64_t state_;
};

// A file body of the objects a real document is made of: pages, resources, fonts with widths,
// annotations, outline items, small content streams. The offsets are those of each object's
// first byte after "obj", where the cross-reference table would point.
struct SyntheticBody {
    KPPDFData data;
    std::vector<uint64_t> offsets;
};

void appendReal(std::string& out, Random& random, int range) {
    char text[32];
    int whole = static_cast<int>(random.below(static_cast<uint32_t>(2 * range))) - range;
    std::snprintf(text, sizeof text, "%d.%u", whole, random.below(1000));
    out += text;
}

void appendObject(std::string& out, uint32_t number, Random& random) {
    auto ref = [&](uint32_t n) { out += std::to_string(n) + " 0 R"; };
    auto another = [&] { return 1 + random.below(number + 10); };
    switch (random.below(6)) {
    case 0:
        out += "<< /Type /Page /Parent ";
        ref(another());
        out += " /MediaBox [0 0 612 792] /CropBox [";
        for (int i = 0; i < 4; i++) {
            appendReal(out, random, 800);
            out += i < 3 ? " " : "]";
        }
        out += "\n   /Resources << /Font << /F1 ";
        ref(another());
        out += " /F2 ";
        ref(another());
        out += " >> /XObject << /Im0 ";
        ref(another());
        out += " >> /ProcSet [/PDF /Text /ImageB /ImageC] >>\n   /Contents ";
        ref(another());
        out += " /Annots [";
        ref(another());
        out += " ";
        ref(another());
        out += "] /Rotate 0 >>";
        break;
    case 1:
        out += "<< /Type /Font /Subtype /TrueType /BaseFont /ABCDEF+Helvetica-Bold /FirstChar 32 "
               "/LastChar 126 /Widths [";
        for (int i = 32; i <= 126; i++)
            out += std::to_string(200 + random.below(800)) + (i < 126 ? " " : "]");
        out += "\n   /FontDescriptor ";
        ref(another());
        out += " /Encoding /WinAnsiEncoding >>";
        break;
    case 2:
        out += "<< /Type /Annot /Subtype /Link /Rect [";
        for (int i = 0; i < 4; i++) {
            appendReal(out, random, 600);
            out += i < 3 ? " " : "]";
        }
        out += " /Border [0 0 0] /C [0 0 1]\n   /A << /S /URI /URI (https://example.com/docs/"
               "page\\(";
        out += std::to_string(random.below(1000));
        out += "\\).html) >> /P ";
        ref(another());
        out += " /F 4 >>";
        break;
    case 3:
        out += "<< /Title (Chapter ";
        out += std::to_string(number);
        out += ": Parsing \\(and\\) writing objects) /Parent ";
        ref(another());
        out += " /Prev ";
        ref(another());
        out += " /Next ";
        ref(another());
        out += "\n   /Dest [";
        ref(another());
        out += " /XYZ 0 792 null] /Count -3 /C [0.2 0.4 0.6] /F 2 >>";
        break;
    case 4: {
        std::string content = "BT /F1 12 Tf 72 712 Td (Line of text) Tj ET\n"
                              "q 1 0 0 1 0 0 cm 0 0 612 792 re W n /Im0 Do Q\n";
        out += "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
               "\nendstream";
        break;
    }
    default:
        out += "<< /Type /FontDescriptor /FontName /ABCDEF+Helvetica-Bold /Flags 32 /FontBBox "
               "[-166 -225 1000 931] /ItalicAngle 0 /Ascent 718 /Descent -207 /CapHeight 718 "
               "/StemV 140 /FontFile2 ";
        ref(another());
        out += "\n   /CIDSet <0F3C7A9E11D2E4B5> /Style << /Panose <0801020B0604020202020204> >> >>";
        break;
    }
}

const SyntheticBody& syntheticBody() {
    static const SyntheticBody body = [] {
        SyntheticBody result;
        std::string text = "%PDF-1.4\n";
        text.reserve(kBodyBytes + 4096);
        Random random(20240611);
        for (uint32_t number = 1; text.size() < kBodyBytes; number++) {
            text += std::to_string(number) + " 0 obj\n";
            result.offsets.push_back(text.size());
            appendObject(text, number, random);
            text += "\nendobj\n";
        }
        result.data = KPPDFData(std::move(text));
        return result;
    }();
    return body;
}

void silenceLog() { KPPDFSetLogHandler([](const std::string&) {}); }

// Every object of the body parsed completely, as when each is asked for its contents.
void BM_ParseBodyContained(benchmark::State& state) {
    silenceLog();
    const SyntheticBody& body = syntheticBody();
    KPPDFDocument document;
    document.setDocData(body.data);
    size_t objects = 0;
    for (auto _ : state) {
        for (uint64_t offset : body.offsets) {
            KPPDFRef<KPPDFObject> object =
                KPPDFDocument::parseObject(&document, offset, body.data, false, true);
            benchmark::DoNotOptimize(object.get());
            objects += object != nullptr;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.data.length()));
    state.counters["objects"] = static_cast<double>(body.offsets.size());
    state.counters["parsed"] = static_cast<double>(objects / state.iterations());
}
BENCHMARK(BM_ParseBodyContained)->Unit(benchmark::kMillisecond);

// The top-level pass of opening: each object bound to its bytes, contents left unparsed.
void BM_ParseBodyLazy(benchmark::State& state) {
    silenceLog();
    const SyntheticBody& body = syntheticBody();
    KPPDFDocument document;
    document.setDocData(body.data);
    for (auto _ : state) {
        for (uint64_t offset : body.offsets) {
            KPPDFRef<KPPDFObject> object =
                KPPDFDocument::parseObject(&document, offset, body.data, false, false);
            benchmark::DoNotOptimize(object.get());
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.data.length()));
}
BENCHMARK(BM_ParseBodyLazy)->Unit(benchmark::kMillisecond);

// Integers as they occur in files: mostly small (coordinates, widths, object numbers), some
// large (offsets), a few negative.
std::vector<int32_t> sampleIntegers() {
    std::vector<int32_t> values(kNumberBatch);
    Random random(7);
    for (auto& value : values) {
        switch (random.below(4)) {
        case 0: value = static_cast<int32_t>(random.below(10)); break;
        case 1: value = static_cast<int32_t>(random.below(1000)); break;
        case 2: value = static_cast<int32_t>(random.below(100000000)); break;
        default: value = -static_cast<int32_t>(random.below(100000)); break;
        }
    }
    return values;
}

// Reals as written by a saving document: three quarters with a fraction, the rest integral
// (which appendReal writes as integers).
std::vector<float> sampleReals() {
    std::vector<float> values(kNumberBatch);
    Random random(11);
    for (auto& value : values) {
        float whole = static_cast<float>(static_cast<int>(random.below(2000)) - 1000);
        value = random.below(4) == 0 ? whole : whole + static_cast<float>(random.below(1000)) / 1000;
    }
    return values;
}

void BM_WriteSignedInPlace(benchmark::State& state) {
    std::vector<int32_t> values = sampleIntegers();
    char buffer[16];
    for (auto _ : state) {
        for (int32_t value : values) {
            char* cursor = buffer;
            KPPDFObjectSignedToStringInPlace(value, &cursor);
            benchmark::DoNotOptimize(cursor);
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
BENCHMARK(BM_WriteSignedInPlace);

void BM_WriteSignedSnprintf(benchmark::State& state) {
    std::vector<int32_t> values = sampleIntegers();
    char buffer[16];
    for (auto _ : state) {
        for (int32_t value : values) {
            int n = std::snprintf(buffer, sizeof buffer, "%d", value);
            benchmark::DoNotOptimize(n);
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
BENCHMARK(BM_WriteSignedSnprintf);

void BM_WriteUnsignedInPlace(benchmark::State& state) {
    std::vector<int32_t> values = sampleIntegers();
    char buffer[16];
    for (auto _ : state) {
        for (int32_t value : values) {
            char* cursor = buffer;
            KPPDFObjectUnsignedToStringInPlace(static_cast<uint32_t>(value), &cursor);
            benchmark::DoNotOptimize(cursor);
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
BENCHMARK(BM_WriteUnsignedInPlace);

void BM_WriteUnsignedSnprintf(benchmark::State& state) {
    std::vector<int32_t> values = sampleIntegers();
    char buffer[16];
    for (auto _ : state) {
        for (int32_t value : values) {
            int n = std::snprintf(buffer, sizeof buffer, "%u", static_cast<uint32_t>(value));
            benchmark::DoNotOptimize(n);
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
BENCHMARK(BM_WriteUnsignedSnprintf);

void BM_WriteRealAppendReal(benchmark::State& state) {
    std::vector<float> values = sampleReals();
    std::string out;
    out.reserve(64);
    for (auto _ : state) {
        for (float value : values) {
            out.clear();
            KPPDFObjectReal::appendReal(value, out);
            benchmark::DoNotOptimize(out.data());
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
BENCHMARK(BM_WriteRealAppendReal);

void BM_WriteRealSnprintf(benchmark::State& state) {
    std::vector<float> values = sampleReals();
    char buffer[64];
    for (auto _ : state) {
        for (float value : values) {
            int n = std::snprintf(buffer, sizeof buffer, "%f", static_cast<double>(value));
            benchmark::DoNotOptimize(n);
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
BENCHMARK(BM_WriteRealSnprintf);

// Number texts as found in files, zero-terminated, packed in one buffer: integers, decimals
// with and without a leading digit, signs, and a few exponents (not PDF, but met in the wild).
struct NumberTexts {
    std::string buffer;
    std::vector<size_t> starts;
};

const NumberTexts& numberTexts() {
    static const NumberTexts texts = [] {
        NumberTexts result;
        Random random(13);
        char text[32];
        for (size_t i = 0; i < kNumberBatch; i++) {
            int whole = static_cast<int>(random.below(2000)) - 1000;
            switch (random.below(8)) {
            case 0: std::snprintf(text, sizeof text, "%d", whole); break;
            case 1: std::snprintf(text, sizeof text, ".%u", random.below(1000)); break;
            case 2: std::snprintf(text, sizeof text, "-.%02u", random.below(100)); break;
            case 3: std::snprintf(text, sizeof text, "%de%d", whole, 1 + random.below(3)); break;
            default: std::snprintf(text, sizeof text, "%d.%u", whole, random.below(100000)); break;
            }
            result.starts.push_back(result.buffer.size());
            result.buffer += text;
            result.buffer.push_back('\0');
        }
        return result;
    }();
    return texts;
}

void BM_ReadStrToFloat(benchmark::State& state) {
    const NumberTexts& texts = numberTexts();
    for (auto _ : state) {
        for (size_t start : texts.starts) {
            const char* end = nullptr;
            float value = KPPDFObjectStrToFloat(texts.buffer.data() + start, &end);
            benchmark::DoNotOptimize(value);
            benchmark::DoNotOptimize(end);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * texts.starts.size()));
}
BENCHMARK(BM_ReadStrToFloat);

void BM_ReadStrtod(benchmark::State& state) {
    const NumberTexts& texts = numberTexts();
    for (auto _ : state) {
        for (size_t start : texts.starts) {
            char* end = nullptr;
            double value = std::strtod(texts.buffer.data() + start, &end);
            benchmark::DoNotOptimize(value);
            benchmark::DoNotOptimize(end);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * texts.starts.size()));
}
BENCHMARK(BM_ReadStrtod);
} // namespace

BENCHMARK_MAIN();
