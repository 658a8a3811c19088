#include "kppdf/platform/KPPDFTextEncoding.h"

#include <gtest/gtest.h>

namespace {

// "A", the euro sign (U+20AC), "é" (U+00E9) and a face (U+1F600, a surrogate pair in UTF-16).
const std::string kMixedUTF8 = "A\xE2\x82\xAC\xC3\xA9\xF0\x9F\x98\x80";
const std::string kMixedBE("\x00\x41\x20\xAC\x00\xE9\xD8\x3D\xDE\x00", 10);
const std::string kMixedLE("\x41\x00\xAC\x20\xE9\x00\x3D\xD8\x00\xDE", 10);

std::string utf16ToUTF8(std::string_view bytes, bool bigEndian = true) {
    std::string out = "stale";
    EXPECT_TRUE(KPPDFTextEncoding::utf16ToUTF8(bytes, &out, bigEndian));
    return out;
}

} // namespace

TEST(KPPDFTextEncodingTest, UTF16BothOrdersWithAndWithoutMark) {
    EXPECT_EQ(utf16ToUTF8(kMixedBE), kMixedUTF8);
    EXPECT_EQ(utf16ToUTF8(kMixedLE, false), kMixedUTF8);
    // The mark overrides the caller's order and is dropped.
    EXPECT_EQ(utf16ToUTF8("\xFE\xFF" + kMixedBE, false), kMixedUTF8);
    EXPECT_EQ(utf16ToUTF8("\xFF\xFE" + kMixedLE, true), kMixedUTF8);
    // An odd trailing byte is ignored; empty input gives empty text.
    EXPECT_EQ(utf16ToUTF8(kMixedBE + "\x41"), kMixedUTF8);
    EXPECT_EQ(utf16ToUTF8(""), "");
    EXPECT_EQ(utf16ToUTF8("\xFE\xFF"), "");
    EXPECT_FALSE(KPPDFTextEncoding::utf16ToUTF8(kMixedBE, nullptr));

    EXPECT_EQ(KPPDFTextEncoding::utf8ToUTF16(kMixedUTF8, false, true), "\xFF\xFE" + kMixedLE);

    std::u16string units = KPPDFTextEncoding::utf8ToUTF16Units(kMixedUTF8);
    EXPECT_EQ(units, (std::u16string{u'A', 0x20AC, 0xE9, 0xD83D, 0xDE00}));
    EXPECT_EQ(KPPDFTextEncoding::utf16UnitsToUTF8(units), kMixedUTF8);
}

TEST(KPPDFTextEncodingTest, BrokenUTF16AndUTF8BecomeReplacementCharacters) {
    const std::string replacement = "\xEF\xBF\xBD";
    // A lone high surrogate, a lone low surrogate, a high one at the very end.
    EXPECT_EQ(utf16ToUTF8(std::string("\xD8\x3D\x00\x41", 4)), replacement + "A");
    EXPECT_EQ(utf16ToUTF8(std::string("\x00\x41\xDE\x00", 4)), "A" + replacement);
    EXPECT_EQ(utf16ToUTF8(std::string("\x00\x41\xD8\x3D", 4)), "A" + replacement);
    EXPECT_EQ(KPPDFTextEncoding::utf16UnitsToUTF8(std::u16string{0xDC00, 0xD800}),
              replacement + replacement);
    // Truncated, overlong and surrogate-coding UTF-8 are not text.
    for (std::string bad : {"\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"}) {
        EXPECT_FALSE(KPPDFTextEncoding::isValidUTF8(bad)) << bad.size();
        EXPECT_EQ(KPPDFTextEncoding::utf8ToUTF16Units(bad + "A").back(), u'A');
    }
    EXPECT_TRUE(KPPDFTextEncoding::isValidUTF8(kMixedUTF8));
    EXPECT_TRUE(KPPDFTextEncoding::isValidUTF8("plain ascii text, longer than eight bytes"));
}

TEST(KPPDFTextEncodingTest, Latin1RoundTripsAndRefusals) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all.push_back(static_cast<char>(byte));
    std::string utf8 = KPPDFTextEncoding::latin1ToUTF8(all);
    EXPECT_EQ(utf8.size(), 128u + 2 * 128u);
    EXPECT_TRUE(KPPDFTextEncoding::isValidUTF8(utf8));
    std::string back;
    ASSERT_TRUE(KPPDFTextEncoding::utf8ToLatin1(utf8, &back));
    EXPECT_EQ(back, all);
    EXPECT_EQ(KPPDFTextEncoding::latin1ToUTF8("caf\xE9"), "caf\xC3\xA9");

    EXPECT_FALSE(KPPDFTextEncoding::utf8ToLatin1(kMixedUTF8, &back)); // the euro sign
    EXPECT_FALSE(KPPDFTextEncoding::utf8ToLatin1("caf\xE9", &back));  // not UTF-8
    EXPECT_FALSE(KPPDFTextEncoding::utf8ToLatin1("x", nullptr));
}

TEST(KPPDFTextEncodingTest, DecodeAndEncodeByCode) {
    std::string out;
    EXPECT_FALSE(KPPDFTextEncoding::decode("ab\xE9", KPPDFASCIIStringEncoding, &out));
    EXPECT_FALSE(KPPDFTextEncoding::decode("\xE9", KPPDFUTF8StringEncoding, &out));
    // Unicode is big-endian unless a mark says otherwise.
    EXPECT_TRUE(KPPDFTextEncoding::decode(kMixedBE, KPPDFUnicodeStringEncoding, &out));
    EXPECT_EQ(out, kMixedUTF8);
    EXPECT_FALSE(KPPDFTextEncoding::decode("abc", 2, &out));

    std::string bytes;
    EXPECT_TRUE(KPPDFTextEncoding::encode(kMixedUTF8, KPPDFUnicodeStringEncoding, &bytes));
    EXPECT_EQ(bytes, "\xFE\xFF" + kMixedBE);
    EXPECT_TRUE(
        KPPDFTextEncoding::encode(kMixedUTF8, KPPDFUTF16LittleEndianStringEncoding, &bytes));
    EXPECT_EQ(bytes, kMixedLE);
    EXPECT_FALSE(KPPDFTextEncoding::encode(kMixedUTF8, KPPDFISOLatin1StringEncoding, &bytes));
    EXPECT_FALSE(KPPDFTextEncoding::encode("\xE9", KPPDFUnicodeStringEncoding, &bytes));
}
