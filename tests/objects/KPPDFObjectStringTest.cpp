#include <gtest/gtest.h>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectDate.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "support/LogCapture.h"

namespace {

using namespace std::string_literals;

// Reads a string at the start of text. The bytes after the first `length` ones are kept in
// memory but lie outside the buffer the reader is given, so a read past the end shows up in
// the value.
KPPDFRef<KPPDFObjectString> readBounded(const std::string& text, size_t length, bool dataOnly) {
    KPPDFData whole = KPPDFData::dataWithString(text);
    return KPPDFObjectString::stringAtOffset(0, nullptr, whole.subdata(0, length),
                                             KPPDFObjectString::kStringTypeDetect, dataOnly);
}

KPPDFRef<KPPDFObjectString> read(const std::string& text, bool dataOnly = false) {
    return readBounded(text, text.size(), dataOnly);
}

} // namespace

TEST(KPPDFObjectString, LiteralAndHexadecimalStrings) {
    struct Case {
        std::string text;
        std::string bytes;
        uint32_t rawLength;
        std::string written = {}; // empty: not checked
    };
    // Written back with every special byte escaped, whatever it was read from.
    const Case cases[] = {
        {"(a\\)b)", "a)b", 6},
        {"(a(b)c)", "a(b)c", 7, "(a\\(b\\)c)"},
        {"(\\n\\r\\t\\b\\f\\(\\)\\\\)", "\n\r\t\b\f()\\", 18, "(\\n\\r\\t\\b\\f\\(\\)\\\\)"},
        {"(\\q\\ \\%)", "q %", 8},   // unknown escapes drop the backslash
        {"(\\101\\0x)", "A\0x"s, 9}, // octal: up to three digits
        {"(\\1234)", "S4", 7},       // the fourth digit is a byte of its own
        {"(\\777\\08)",
         "\xFF\0"
         "8"s,
         9},                                  // truncated to eight bits; 8 is no octal digit
        {"(a\\\nb\\\r\nc\\\rd)", "abcd", 13}, // backslash before LF, CR LF or CR joins lines
        {"(a\rb\r\nc\nd)", "a\nb\nc\nd", 10, "(a\\nb\\nc\\nd)"}, // CR and CR LF become LF
        {"()", "", 2},
        {"(a)trailing", "a", 3},
        {"<48 65 6c>", "Hel", 10, "<48656C>"},
        {"< 4\n8\t6 5\r\n >", "He", 13, "<4865>"},
        {"<aBcD>", "\xAB\xCD", 6, "<ABCD>"},
        {"<4>", "@", 3, "<40>"}, // an odd last digit is followed by an implied 0
        {"<>", "", 2, "<>"},
        {"<00ff>", "\0\xFF"s, 6, "<00FF>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        bool literal = c.text[0] == '(';
        // Hex strings are bytes even where literal ones would be read as text.
        KPPDFRef<KPPDFObjectString> string = read(c.text, literal);
        ASSERT_TRUE(string);
        EXPECT_EQ(string->isLiteral(), literal);
        EXPECT_FALSE(string->valueIsText());
        EXPECT_EQ(string->value(), c.bytes);
        EXPECT_EQ(string->rawLength(), c.rawLength);
        if (!c.written.empty()) {
            EXPECT_EQ(string->directObject(), c.written);
        }
    }

    // In text mode the bytes are Latin-1 text; written back they are the same bytes.
    KPPDFRef<KPPDFObjectString> text = read("(caf\\351 \xE9t\xE9)");
    EXPECT_TRUE(text->valueIsText());
    EXPECT_EQ(text->value(), "caf\xC3\xA9 \xC3\xA9t\xC3\xA9");
    EXPECT_EQ(text->directObject(), "(caf\xE9 \xE9t\xE9)");

    // In the file body the parser tells a hex string from a dictionary by the second byte.
    KPPDFDocument doc;
    doc.setDocData(KPPDFData::dataWithString("\n<414243> "));
    KPPDFRef<KPPDFObject> string = doc.objectAtOffset(1, doc.docData(), false, false);
    ASSERT_TRUE(string && string->asString());
    EXPECT_EQ(string->asString()->value(), "ABC");

    // A string built from bytes is written in hex; a text one in parentheses.
    EXPECT_EQ(KPPDFObjectString::stringWithData("\x01\x02 "s)->directObject(), "<010220>");
    EXPECT_EQ(KPPDFObjectString::stringWithString("a(b)")->directObject(), "(a\\(b\\))");
    KPPDFRef<KPPDFObjectString> flipped = KPPDFObjectString::stringWithData("AB");
    flipped->setLiteral(true);
    EXPECT_EQ(flipped->directObject(), "(AB)");
}

TEST(KPPDFObjectString, UnterminatedStringsStopAtTheEndOfTheBuffer) {
    // Each text is cut where the buffer ends; what follows must never be read.
    struct Case {
        std::string text;
        size_t length;
        std::string bytes;
    };
    const Case cases[] = {
        {"(abcdef)", 4, "abc"},    {"(abc\\)def)", 5, "abc"}, // a backslash as the last byte
        {"(a\\12)", 4, "a\x01"},                              // an octal escape cut short
        {"(a\r\nb)", 3, "a\n"},                               // a CR as the last byte
        {"(a(b)c)", 5, "a(b)"},                               // still nested when the bytes end
        {"(a\\\r\nb)", 4, "a"},                               // continuation cut after CR
        {"<4142434445>", 5, "AB"}, {"<41424>", 6, "AB@"},     {"<", 1, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text + " cut at " + std::to_string(c.length));
        KPPDFRef<KPPDFObjectString> string = readBounded(c.text, c.length, true);
        ASSERT_TRUE(string);
        EXPECT_EQ(string->value(), c.bytes);
        EXPECT_EQ(string->rawLength(), c.length);
    }
    EXPECT_FALSE(read(""));
    EXPECT_FALSE(KPPDFObjectString::stringAtOffset(3, nullptr, KPPDFData::dataWithString("(a)"),
                                                   KPPDFObjectString::kStringTypeLiteral));
    // The reader refuses bytes that do not open the kind of string asked for.
    EXPECT_FALSE(KPPDFObjectString::stringAtOffset(0, nullptr, KPPDFData::dataWithString("<41>"),
                                                   KPPDFObjectString::kStringTypeLiteral));
    EXPECT_FALSE(KPPDFObjectString::stringAtOffset(0, nullptr, KPPDFData::dataWithString("(a)"),
                                                   KPPDFObjectString::kStringTypeHex));

    // A slice of the document's bytes, parsed in body mode, is read from the slice itself.
    KPPDFDocument doc;
    doc.setDocData(KPPDFData::dataWithString("%padding\n(inner) (outer)"));
    KPPDFData slice = doc.docData().subdata(8, 8);
    KPPDFRef<KPPDFObject> fromSlice = doc.objectAtOffset(1, slice, false, true);
    ASSERT_TRUE(fromSlice && fromSlice->asString());
    EXPECT_EQ(fromSlice->asString()->stringValue(), "inner");
}

TEST(KPPDFObjectString, UTF16TextAndTwoByteMode) {
    // A byte-order mark makes the string UTF-16 text.
    KPPDFRef<KPPDFObjectString> big = read("(\xFE\xFF\x00"
                                           "A\x04\x10\\)\x00)"s);
    ASSERT_TRUE(big);
    EXPECT_EQ(big->stringValue(), "A\xD0\x90\xE2\xA4\x80"); // A, U+0410, U+2900
    // Written back big-endian with its mark; ")" is escaped wherever it falls.
    EXPECT_EQ(big->directObject(), "(\xFE\xFF\x00"
                                   "A\x04\x10\\)\x00)"s);

    KPPDFRef<KPPDFObjectString> little = read("(\xFF\xFE"
                                              "A\x00\x10\x04)"s);
    ASSERT_TRUE(little);
    EXPECT_EQ(little->stringValue(), "A\xD0\x90");
    EXPECT_EQ(little->directObject(), "(\xFE\xFF\x00"
                                      "A\x04\x10)"s);

    // Text that Latin-1 cannot hold becomes UTF-16; other text stays Latin-1.
    KPPDFRef<KPPDFObjectString> russian = KPPDFObjectString::stringWithString("\xD0\x9F\xD1\x80");
    EXPECT_EQ(russian->directObject(), "(\xFE\xFF\x04\x1F\x04\x40)");
    KPPDFRef<KPPDFObjectString> french = KPPDFObjectString::stringWithString("\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(french->directObject(), "(\xE9t\xE9)");
    // The UTF-16 form reads back as the same text.
    std::string russianText = russian->directObject();
    EXPECT_EQ(read(russianText)->stringValue(), "\xD0\x9F\xD1\x80");

    // A byte value with a mark is read as UTF-16 by stringValue, other bytes as Latin-1.
    EXPECT_EQ(read("<FEFF00410042>")->stringValue(), "AB");
    EXPECT_EQ(read("<E9>")->stringValue(), "\xC3\xA9");

    // Two-byte mode, big-endian mark: after a nested "(" and FE FF the first byte of each pair
    // is read as usual and the second is copied unexamined, so the ")" in 00 29 does not close.
    KPPDFRef<KPPDFObjectString> pairs = read("(A(\xFE\xFF\x00))x)y)"s, true);
    ASSERT_TRUE(pairs);
    EXPECT_EQ(pairs->value(), "A(\xFE\xFF\x00))x"s);
    EXPECT_EQ(pairs->rawLength(), 10u);
    // Little-endian mark: the first byte is copied and the second read.
    pairs = read("(((\xFF\xFE)\x00x)y)z)!)"s, true);
    ASSERT_TRUE(pairs);
    EXPECT_EQ(pairs->value(), "((\xFF\xFE)\x00x)y)z"s);
    EXPECT_EQ(pairs->rawLength(), 13u);
    // At the top level a mark is just two bytes: a ")" after it closes the string.
    pairs = read("(\xFE\xFF\x00)x)"s, true);
    EXPECT_EQ(pairs->value(), "\xFE\xFF\x00"s);
    EXPECT_EQ(pairs->rawLength(), 5u);
}

TEST(KPPDFObjectString, DatesWithZones) {
    struct Case {
        int32_t zone;
        const char* text;
    };
    const Case cases[] = {
        {5 * 3600 + 30 * 60, "D:20230102030405+05'30'"},
        {-8 * 3600, "D:20230102030405-08'00'"},
        {-(3 * 3600 + 30 * 60), "D:20230102030405-03'30'"},
        {0, "D:20230102030405Z00'00'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        KPPDFDate date = KPPDFDate::dateWithComponents(2023, 1, 2, 3, 4, 5, c.zone);
        KPPDFRef<KPPDFObjectDate> object = KPPDFObjectDate::dateWithDate(date);
        EXPECT_EQ(object->directObject(), std::string("(") + c.text + ")");

        // Read back from a file: the same instant and the same zone.
        std::optional<KPPDFDate> back =
            KPPDFObjectDate::dateFromPDFString(*read(std::string("(") + c.text + ")"));
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, date); // the zone is part of the comparison
    }

    // A date without a zone is written without one.
    KPPDFDate local = KPPDFDate::dateWithComponents(1999, 12, 31, 23, 59, 58, std::nullopt);
    EXPECT_EQ(KPPDFObjectDate::dateWithDate(local)->directObject(), "(D:19991231235958)");

    // Missing fields take their defaults; a field count that ends inside the zone is read as far
    // as it goes.
    // Anything but +, - or Z where the zone belongs is logged and the local zone used (-1).
    LogCapture log;
    struct Partial {
        const char* text;
        KPPDFDate::Components components;
        int32_t zone;
    };
    for (const Partial& p : {Partial{"D:2023", {2023, 1, 1, 0, 0, 0}, -1},
                             Partial{"199807", {1998, 7, 1, 0, 0, 0}, -1},
                             Partial{"D:20230102030405+05'", {2023, 1, 2, 3, 4, 5}, 5 * 3600},
                             Partial{"D:20230102030405Z", {2023, 1, 2, 3, 4, 5}, 0},
                             Partial{"D:20230102030405X05'00'", {2023, 1, 2, 3, 4, 5}, -1}}) {
        std::optional<KPPDFDate> date = KPPDFObjectDate::dateFromPDFText(p.text);
        ASSERT_TRUE(date) << p.text;
        EXPECT_EQ(date->components(), p.components) << p.text;
        EXPECT_EQ(date->hasTimeZone(), p.zone != -1) << p.text;
        if (p.zone != -1) {
            EXPECT_EQ(date->timeZoneOffset(), p.zone) << p.text;
        }
    }
    EXPECT_TRUE(log.contains("Unexpected UT offset in date string"));

    EXPECT_FALSE(KPPDFObjectDate::dateFromPDFText("D:"));
    EXPECT_FALSE(KPPDFObjectDate::dateFromPDFText("D:20x3"));
}
