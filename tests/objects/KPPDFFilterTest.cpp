#include "kppdf/objects/KPPDFFilter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/LogCapture.h"
#include "support/TestHelpers.h"

using namespace std::string_literals;

namespace {

std::string fixture(const char* name) {
    return readFile(dataPath(std::string("filters/") + name));
}

const uint8_t* bytes(const std::string& s) {
    return reinterpret_cast<const uint8_t*>(s.data());
}

// Text that compresses about fourfold, like a content stream.
std::string sampleText(size_t size) {
    std::string text;
    unsigned seed = 1;
    while (text.size() < size) {
        seed = seed * 1103515245 + 12345;
        text += std::to_string(seed >> 16 & 0x3ff) + " " + std::to_string(seed % 97) +
                (seed & 0x10000 ? " Td\n" : " Tj\n");
    }
    text.resize(size);
    return text;
}

std::string decode85(const std::string& text, bool* ok = nullptr) {
    std::string out;
    bool result = KPPDFStreamDecode85(bytes(text), text.size(), &out);
    if (ok)
        *ok = result;
    return out;
}

bool flate(const std::string& in, std::string* out, size_t max = kKPPDFFilterFlateMaxOutput) {
    return KPPDFFlateDecode(bytes(in), static_cast<uint32_t>(in.size()), out, max);
}

} // namespace

TEST(KPPDFFilterFlate, OneShotStatuses) {
    std::string text = sampleText(5000);
    std::string packed = deflated(text);
    uint32_t packedLength = static_cast<uint32_t>(packed.size());
    std::string out(5001, '\0');
    uint32_t length = 5001;
    auto* outBytes = reinterpret_cast<uint8_t*>(out.data());
    ASSERT_EQ(KPPDFInflate(bytes(packed), packedLength, outBytes, &length), 1);
    EXPECT_EQ(out.substr(0, length), text);
    // Too small an output is -5 and leaves the length alone; a truncated input is not -5, so
    // a caller that grows its buffer on -5 stops.
    length = 4999;
    EXPECT_EQ(KPPDFInflate(bytes(packed), packedLength, outBytes, &length), -5);
    EXPECT_EQ(length, 4999u);
    EXPECT_EQ(KPPDFInflate(bytes(packed), packedLength / 2, outBytes, &length), -3);
    EXPECT_EQ(KPPDFInflate(bytes(text), 100, outBytes, &length), -3);
    EXPECT_EQ(KPPDFInflate(nullptr, 10, outBytes, &length), -2);
    uint32_t small = 10;
    EXPECT_EQ(KPPDFDeflate(bytes(text), 5000, outBytes, &small), 0);
    EXPECT_EQ(small, 10u);
}

TEST(KPPDFFilterFlate, GrowsFarBeyondThreeTimesTheInput) {
    LogCapture log;
    // A blank 8-bit image: deflate's best case, near its limit of 1032 to 1.
    std::string pattern(size_t(24) << 20, '\xff');
    std::string packed = deflated(pattern);
    std::string out;
    ASSERT_GT(pattern.size(), 1000 * packed.size());
    EXPECT_TRUE(flate(packed, &out));
    EXPECT_TRUE(out == pattern);
    EXPECT_TRUE(log.take().empty());

    // The ceiling cuts the output and says so; a stream ending exactly at it is complete.
    EXPECT_TRUE(flate(packed, &out, 100000));
    EXPECT_EQ(out, pattern.substr(0, 100000));
    EXPECT_EQ(log.take(), std::vector<std::string>{"FlateDecode: output cut at 100000 bytes"});
    EXPECT_TRUE(flate(packed, &out, pattern.size()));
    EXPECT_TRUE(out == pattern);
    EXPECT_TRUE(log.take().empty());
}

TEST(KPPDFFilterFlate, DamagedStreamsKeepTheirHead) {
    LogCapture log;
    std::string text = sampleText(200000);
    std::string packed = deflated(text);
    std::string out;

    EXPECT_TRUE(flate(packed.substr(0, packed.size() / 2), &out));
    EXPECT_GT(out.size(), text.size() / 4);
    EXPECT_LT(out.size(), text.size());
    EXPECT_EQ(out, text.substr(0, out.size()));
    EXPECT_EQ(log.take(), std::vector<std::string>{"FlateDecode: corrupt data, kept " +
                                                   std::to_string(out.size()) + " bytes"});

    // A wrong Adler-32 checksum: every byte was inflated and is kept.
    std::string badSum = packed;
    badSum.back() = static_cast<char>(badSum.back() ^ 1);
    EXPECT_TRUE(flate(badSum, &out));
    EXPECT_EQ(out, text);
    EXPECT_EQ(log.take(), std::vector<std::string>{"FlateDecode: corrupt data, kept 200000 bytes"});

    // Raw deflate: the zlib stream without its two header bytes and four checksum bytes.
    EXPECT_TRUE(flate(packed.substr(2, packed.size() - 6), &out));
    EXPECT_EQ(out, text);
    EXPECT_TRUE(log.take().empty());

    EXPECT_FALSE(flate("not deflate at all", &out));
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(log.take(), std::vector<std::string>{"FlateDecode: corrupt data, nothing inflated"});
}

TEST(KPPDFFilterFlate, PrefixStopsWhereWanted) {
    std::string text = sampleText(300000);
    std::string packed = deflated(text);
    std::string out;
    bool complete = true;
    auto prefix = [&](const std::string& in, const KPPDFFlateWanted& wanted,
                      size_t max = kKPPDFFilterFlateMaxOutput) {
        return KPPDFFlateDecodePrefix(bytes(in), static_cast<uint32_t>(in.size()), &out, max,
                                      wanted, &complete);
    };
    // Whole, without a wanted length.
    ASSERT_TRUE(prefix(packed, nullptr));
    EXPECT_TRUE(complete);
    EXPECT_EQ(out, text);

    // Asked again each time the last answer is reached, told the bytes so far: first a head of
    // 10 bytes, then up to an offset read from it (as an object stream's header tells where
    // the objects wanted end).
    std::vector<size_t> asked;
    auto twoSteps = [&](const uint8_t* bytes, size_t length) -> size_t {
        asked.push_back(length);
        if (length < 10)
            return 10;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes), 10), text.substr(0, 10));
        return 123457;
    };
    ASSERT_TRUE(prefix(packed, twoSteps));
    EXPECT_FALSE(complete);
    EXPECT_EQ(out, text.substr(0, 123457));
    EXPECT_EQ(asked, (std::vector<size_t>{0, 10, 123457}));
    // Cut before the point wanted: false, and the caller decodes the usual way; cut after it,
    // the bytes wanted are there.
    auto at = [](size_t length) { return [length](const uint8_t*, size_t) { return length; }; };
    std::string cut = packed.substr(0, packed.size() / 2);
    EXPECT_FALSE(prefix(cut, at(text.size() - 10)));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(prefix(cut, at(1000)));
    EXPECT_EQ(out, text.substr(0, 1000));
}

TEST(KPPDFFilterASCII85, DecodesGroupsLeastSignificantByteFirst) {
    bool ok = false;
    // "Hello world": each group reversed; the last group "Ebo7" rounds up to 0x726C6400 + 18
    // and gives its three low bytes, 0x12 'd' 'l'.
    EXPECT_EQ(decode85("87cURD]j7BEbo7~>", &ok), "lleHow o\x12"s + "dl");
    EXPECT_TRUE(ok);
    // "A" is "5l": 20 * 85^4 + 75 * 85^3 + 85^3 = 0x41028C30, whose low byte is '0'.
    EXPECT_EQ(decode85("5l~>"), "0");
    EXPECT_EQ(decode85("s8W-!~>"), "\xff\xff\xff\xff");
    EXPECT_EQ(decode85("z \0\b\t\n\f\r\x7f z~>"s), std::string(8, '\0'));
    EXPECT_EQ(decode85("87cUR~>ignored"), "lleH");
    // No end mark: what was decoded stands, the incomplete group is dropped.
    EXPECT_EQ(decode85("87cURD]i", &ok), "lleH");
    EXPECT_TRUE(ok);

    std::string raw = fixture("a85-random.bin");
    std::string expected;
    for (size_t i = 0; i + 4 <= raw.size(); i += 4)
        expected += {raw[i + 3], raw[i + 2], raw[i + 1], raw[i]};
    EXPECT_EQ(decode85(fixture("a85-random.txt"), &ok), expected);
    EXPECT_TRUE(ok);

    // Malformed text gives nothing and says why; scanning goes on after a bad byte, so every
    // bad byte is reported.
    LogCapture log;
    EXPECT_EQ(decode85("87z~>", &ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(log.take(), std::vector<std::string>{"ASCII85Decode: z inside ascii85 5-tuple"});
    EXPECT_EQ(decode85("87cUR\x80v~>", &ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(log.take(),
              (std::vector<std::string>{"ASCII85Decode: bad character in ascii85 region: 0200",
                                        "ASCII85Decode: bad character in ascii85 region: 0166"}));
    EXPECT_EQ(decode85("87cUR~x", &ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(log.take(),
              std::vector<std::string>{"ASCII85Decode: ~ without > in ascii85 section"});
    // The ">" lies just past the given length and must not be seen.
    std::string out;
    EXPECT_FALSE(KPPDFStreamDecode85(bytes(std::string("87cUR~>")), 6, &out));
    EXPECT_EQ(log.take().size(), 1u);
}

TEST(KPPDFFilterPredictor, FixedRows) {
    struct Case {
        KPPDFPredictorParams params; // Predictor, Colors, BitsPerComponent, Columns
        std::string in, out;
    };
    const Case cases[] = {
        // Paeth by hand, one byte per pixel. Row 1 predicts from up (150) and then upper-left
        // (p = 100 + 200 - 150 = 150); row 2 from up (100) and then left (p = 210 + 205 - 100
        // = 315, nearest to a = 210).
        {{10, 1, 8, 2}, "\x00\x96\xc8\x04\xce\x37\x04\x6e\x42"s, "\x96\xc8\x64\xcd\xd2\x14"s},
        // Sub, Up, Average: the row type byte decides, whatever the PNG predictor.
        {{11, 3, 8, 1},
         "\x01\x0a\x14\x1e\x02\x01\x02\x03\x03\x04\x04\x04"s,
         "\x0a\x14\x1e\x0b\x16\x21\x09\x0f\x14"s},
        // 16-bit samples use two-byte pixels; 1-bit ones still look one byte back.
        {{12, 1, 16, 2}, "\x01\x01\x02\x03\x04"s, "\x01\x02\x04\x06"s},
        {{15, 1, 1, 16}, "\x01\x05\x07"s, "\x05\x0c"s},
        // A short last row decodes as far as it goes.
        {{12, 1, 8, 2}, "\x02\x01\x02\x02\x03"s, "\x01\x02\x04"s},
        // TIFF: each row starts afresh.
        {{2, 3, 8, 3},
         "\x0a\x14\x1e\x01\x02\x03\xff\x01\x00"s,
         "\x0a\x14\x1e\x0b\x16\x21\x0a\x17\x21"s},
        // Two rows: 0x0100, +0x00FF, +0xFF02 (wraps to 0x0101).
        {{2, 1, 16, 3},
         "\x01\x00\x00\xff\xff\x02\x01\x00\x00\xff\xff\x02"s,
         "\x01\x00\x01\xff\x01\x01\x01\x00\x01\xff\x01\x01"s},
        // 1 bit: differences are exclusive-or; the six padding bits of each row stay as they
        // were.
        {{2, 1, 1, 10}, "\x98\xaa\x98\xaa"s, "\xef\x2a\xef\x2a"s},
        // 2 bits, two colours: (1,2) (3,3) (2,1) -> (1,2) (0,1) (2,2).
        {{2, 2, 2, 3}, "\x6f\x90"s, "\x61\xa0"s},
        {{2, 1, 4, 3}, "\xf2\x30"s, "\xf1\x40"s},
        {{2, 3, 8, 2}, "\x0a\x14\x1e\x01\x02\x03\x05\x05"s, "\x0a\x14\x1e\x0b\x16\x21\x05\x05"s},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.in));
        std::string data = c.in;
        ASSERT_TRUE(KPPDFApplyPredictor(c.params, &data));
        EXPECT_EQ(data, c.out);
    }
    // An unknown PNG row type is taken as None.
    LogCapture log;
    std::string data = "\x07\x01\x02"s;
    ASSERT_TRUE(KPPDFApplyPredictor({15, 1, 8, 2}, &data));
    EXPECT_EQ(data, "\x01\x02");
    EXPECT_EQ(log.take(),
              std::vector<std::string>{"Predictor: unknown PNG filter type 7 in row 0"});
}

TEST(KPPDFFilterPredictor, FilesOfRealEncoders) {
    struct Case {
        const char* packed;
        const char* expected;
        KPPDFPredictorParams params;
    };
    for (const Case& c : {Case{"png-rows.flate", "png-rows.rgb", {15, 3, 8, 32}},
                          Case{"tiff-rows.flate", "tiff-rows.rgb", {2, 3, 8, 32}},
                          Case{"xref-stream.flate", "xref-stream.bin", {12, 1, 8, 4}}}) {
        std::string data;
        ASSERT_TRUE(flate(fixture(c.packed), &data)) << c.packed;
        if (c.params.predictor == 15) {
            std::set<int> types;
            for (size_t i = 0; i < data.size(); i += 97)
                types.insert(data[i]);
            EXPECT_EQ(types, (std::set<int>{1, 2, 3, 4})) << "libpng chose other row filters";
        }
        ASSERT_TRUE(KPPDFApplyPredictor(c.params, &data));
        EXPECT_TRUE(data == fixture(c.expected)) << c.packed;
    }
}

TEST(KPPDFFilterPredictor, RejectsBadParameters) {
    LogCapture log;
    const std::string original = "\x01\x02\x03\x04"s;
    std::string data = original;
    // No predictor: the other values do not matter.
    EXPECT_TRUE(KPPDFApplyPredictor({1, 0, 3, 0}, &data));
    EXPECT_TRUE(log.take().empty());
    // Predictor, Colors, BitsPerComponent, Columns, and the one line each is refused with.
    const std::pair<KPPDFPredictorParams, const char*> bad[] = {
        {{3, 1, 8, 1}, "unsupported predictor 3"},
        {{12, 33, 8, 1}, "Colors 33 out of range"},
        {{2, 1, 3, 1}, "BitsPerComponent 3 not supported"},
        {{12, 1, 8, 0}, "Columns 0 out of range"},
        {{12, 32, 16, 2147483647}, "rows of 137438953408 bytes too long"},
    };
    for (const auto& [params, line] : bad) {
        EXPECT_FALSE(KPPDFApplyPredictor(params, &data)) << line;
        EXPECT_EQ(log.take(), std::vector<std::string>{std::string("Predictor: ") + line});
    }
    EXPECT_EQ(data, original);
}

namespace {

struct Decoded {
    bool ok = false;
    std::string samples;
    int width = -1, height = -1, components = -1;
};

Decoded decodeJPEG(const std::string& jpeg) {
    Decoded d;
    d.ok = KPPDFDecodeDCT(bytes(jpeg), jpeg.size(), &d.samples, &d.width, &d.height, &d.components);
    return d;
}

double meanError(const std::string& a, const std::string& b) {
    EXPECT_EQ(a.size(), b.size());
    double sum = 0;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        sum += std::abs(int(uint8_t(a[i])) - int(uint8_t(b[i])));
    return a.empty() ? 0 : sum / double(a.size());
}

} // namespace

TEST(KPPDFFilterDCT, DecodesJPEGsOfEveryKind) {
    auto size = [](const Decoded& d) { return std::tuple(d.ok, d.width, d.height, d.components); };
    Decoded d = decodeJPEG(fixture("rgb.jpg"));
    ASSERT_EQ(size(d), std::tuple(true, 13, 7, 3));
    // Pillow decodes with the same library and default settings: the samples match exactly.
    EXPECT_TRUE(d.samples == fixture("rgb.pixels"));

    d = decodeJPEG(fixture("gray.jpg"));
    ASSERT_EQ(size(d), std::tuple(true, 9, 5, 1));
    EXPECT_EQ(d.samples, std::string(9 * 5, char(77)));

    // Pillow stores CMYK inverted, the Adobe way, and the samples come back as stored.
    d = decodeJPEG(fixture("cmyk.jpg"));
    ASSERT_EQ(size(d), std::tuple(true, 8, 8, 4));
    std::string inverted;
    for (int i = 0; i < 64; ++i)
        inverted += {char(55), char(205), char(255), char(245)};
    EXPECT_LT(meanError(d.samples, inverted), 2);

    d = decodeJPEG(fixture("progressive.jpg"));
    ASSERT_EQ(size(d), std::tuple(true, 32, 32, 3));
    EXPECT_TRUE(d.samples == fixture("progressive.pixels"));
}

TEST(KPPDFFilterDCT, DamagedJPEGsFailCleanly) {
    LogCapture log;
    std::string jpeg = fixture("rgb.jpg");
    Decoded d = decodeJPEG(jpeg.substr(0, jpeg.size() * 2 / 3));
    EXPECT_FALSE(d.ok);
    EXPECT_TRUE(d.samples.empty());
    EXPECT_EQ(d.width, -1);
    EXPECT_EQ(log.take(), std::vector<std::string>{"DCTDecode: Premature end of JPEG file"});

    // Start of frame: FF C0, length, precision, then height and width.
    size_t sof = jpeg.find("\xff\xc0");
    ASSERT_NE(sof, std::string::npos);
    jpeg.replace(sof + 5, 4, "\xfd\xe8\xfd\xe8"); // 65000 x 65000
    EXPECT_FALSE(decodeJPEG(jpeg).ok);
    EXPECT_EQ(log.take(), std::vector<std::string>{
                              "DCTDecode: image of 65000x65000 with 3 components too large"});
}

TEST(KPPDFFilterDCT, EncodeRoundTrip) {
    for (int components : {1, 3, 4}) {
        std::string pixels;
        for (int y = 0; y < 30; ++y)
            for (int x = 0; x < 40; ++x)
                for (int c = 0; c < components; ++c)
                    pixels += char(x * 3 + y * 2 + c * 20);
        std::string jpeg;
        ASSERT_TRUE(KPPDFEncodeJPEG(bytes(pixels), 40, 30, components, 92, &jpeg));
        Decoded d = decodeJPEG(jpeg);
        ASSERT_TRUE(d.ok && d.width == 40 && d.height == 30 && d.components == components);
        EXPECT_LT(meanError(d.samples, pixels), 3) << components;
    }
    // Noise compresses badly: the JPEG outgrows the encoder's output chunk several times over.
    std::minstd_rand generator(7);
    std::string noise(300 * 200 * 3, '\0');
    for (char& c : noise)
        c = static_cast<char>(generator());
    std::string big;
    ASSERT_TRUE(KPPDFEncodeJPEG(bytes(noise), 300, 200, 3, 95, &big));
    EXPECT_GT(big.size(), 50000u);
    Decoded d = decodeJPEG(big);
    EXPECT_TRUE(d.ok && d.width == 300 && d.height == 200 && d.samples.size() == noise.size());
    LogCapture log;
    std::string jpeg;
    EXPECT_FALSE(KPPDFEncodeJPEG(bytes(std::string(8, 'x')), 2, 2, 2, 90, &jpeg));
    EXPECT_EQ(log.take().size(), 1u);
}
