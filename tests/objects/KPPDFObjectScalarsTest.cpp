#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "support/LogCapture.h"

namespace {

// Parses text as it would stand after "N 0 obj" in a file (body mode) or in a content stream
// (direct mode). A line feed goes first: offset 0 of a file never holds an object.
KPPDFRef<KPPDFObject> parse(KPPDFDocument& doc, const std::string& text, bool directOnly) {
    doc.setDocData(KPPDFData::dataWithString("\n" + text));
    return doc.objectAtOffset(1, doc.docData(), directOnly, directOnly);
}

std::string written(float value) {
    return KPPDFObjectReal::realWithFloat(value)->directObject();
}
std::string written(long long value) {
    return KPPDFObjectInteger::integerWithLongLong(value)->directObject();
}

} // namespace

TEST(KPPDFObjectScalars, NumbersReadFromText) {
    struct Case {
        const char* text;
        int32_t type;
        double value;
        uint32_t rawLength;
    };
    const Case cases[] = {
        {"-.5", KPPDFObjectTypeReal, -0.5, 3},
        {"+7", KPPDFObjectTypeInteger, 7, 2},
        {"5-3", KPPDFObjectTypeInteger, 5, 1}, // the numeric run is longer than the number
        {"0", KPPDFObjectTypeInteger, 0, 1},
        {"-17 ", KPPDFObjectTypeInteger, -17, 3},
        {"4294967296", KPPDFObjectTypeInteger, 4294967296.0, 10},
        {"612.0]", KPPDFObjectTypeReal, 612, 5},
        {"1.2.3", KPPDFObjectTypeReal, 1.2f, 3},
        {"3.5e2 ", KPPDFObjectTypeReal, 350, 5},
        {"12 0 obj", KPPDFObjectTypeInteger, 12, 2}, // a header is not a reference
    };
    for (const Case& c : cases) {
        for (bool directOnly : {false, true}) {
            SCOPED_TRACE(std::string(c.text) + (directOnly ? " direct" : " body"));
            KPPDFDocument doc;
            KPPDFRef<KPPDFObject> object = parse(doc, c.text, directOnly);
            ASSERT_TRUE(object);
            EXPECT_EQ(object->objectType(), c.type);
            if (c.type == KPPDFObjectTypeInteger)
                EXPECT_EQ(object->longLongValue(), static_cast<long long>(c.value));
            else
                EXPECT_FLOAT_EQ(object->realValue(), static_cast<float>(c.value));
            EXPECT_EQ(object->rawLength(), c.rawLength);
            EXPECT_EQ(object->dataRange().location, 1u);
        }
    }

    // Saturation instead of overflow for absurd digit runs.
    KPPDFDocument doc;
    KPPDFRef<KPPDFObject> huge = parse(doc, "99999999999999999999999 ", true);
    ASSERT_TRUE(huge);
    EXPECT_EQ(huge->longLongValue(), LLONG_MAX);
    EXPECT_EQ(huge->rawLength(), 23u);
    KPPDFRef<KPPDFObject> tiny = parse(doc, "-99999999999999999999999 ", true);
    ASSERT_TRUE(tiny);
    EXPECT_EQ(tiny->longLongValue(), LLONG_MIN);

    // A sign alone is no number.
    EXPECT_FALSE(parse(doc, "- 1", true));
    EXPECT_FALSE(parse(doc, "+-5", true));
}

TEST(KPPDFObjectScalars, NumbersWrittenInTheirFixedForms) {
    // Reals: integral values as integers, everything else with six decimals.
    // Nothing that is not a number may reach a file.
    const std::pair<float, const char*> reals[] = {
        {2.0f, "2"},
        {2.5f, "2.500000"},
        {-0.0f, "0"},
        {-0.5f, "-0.500000"},
        {0.1f, "0.100000"},
        {-612.0f, "-612"},
        {16777216.0f, "16777216"},
        {1e10f, "10000000000.000000"},
        {1e-7f, "0.000000"},
        {std::nanf(""), "0"},
        {INFINITY, "0"},
    };
    for (const auto& [value, text] : reals)
        EXPECT_EQ(written(value), text) << value;
    EXPECT_EQ(written(3e38f).find_first_not_of("0123456789.-"), std::string::npos);

    // Integers: only the low 32 bits, as a signed decimal.
    for (const auto& [value, text] : {std::pair{4294967296LL, "0"},
                                      {4294967295LL, "-1"},
                                      {2147483648LL, "-2147483648"},
                                      {2147483647LL, "2147483647"},
                                      {-5LL, "-5"},
                                      {0LL, "0"}})
        EXPECT_EQ(written(value), text) << value;

    // Numbers read from a file are written in the fixed form, not as they stood.
    KPPDFDocument doc;
    EXPECT_EQ(parse(doc, "+007", false)->directObject(), "7");
    EXPECT_EQ(parse(doc, "3.0", false)->directObject(), "3");
    EXPECT_EQ(parse(doc, ".25", false)->directObject(), "0.250000");

    // The indirect form wraps the direct one; without a document the line end is LF.
    auto numbered = KPPDFObjectReal::realWithFloat(0.5f);
    numbered->setObjectNumber(12);
    numbered->setGeneration(3);
    EXPECT_EQ(numbered->indirectObject(), "12 3 obj\n0.500000\nendobj\n");
}

TEST(KPPDFObjectScalars, StrToFloatAccumulatesInSinglePrecision) {
    const char* end = nullptr;
    // Plain decimals are summed digit by digit in float: 0.35 comes out one unit in the last
    // place above the correctly rounded value.
    EXPECT_EQ(KPPDFObjectStrToFloat("0.35", &end), 3 * 0.1f + 5 * (0.1f * 0.1f));
    EXPECT_NE(KPPDFObjectStrToFloat("0.35"), static_cast<float>(std::strtod("0.35", nullptr)));

    // Decimals take the fast path; anything else is handed whole, sign included, to the C
    // library. A limit bounds both paths: no byte at or past it is looked at.
    struct Case {
        const char* text;
        size_t limit; // 0: none
        float value;
        size_t consumed;
    };
    const Case cases[] = {
        {"+.5/Name", 0, 0.5f, 3}, {"-2.5E-1 ", 0, -0.25f, 7}, {"1.2.3", 0, float(1.2), 3},
        {"12345", 3, 123.0f, 3},  {"1e5", 2, 1.0f, 1},
    };
    for (const Case& c : cases) {
        const char* limit = c.limit ? c.text + c.limit : nullptr;
        EXPECT_EQ(KPPDFObjectStrToFloat(c.text, &end, limit), c.value) << c.text;
        EXPECT_EQ(end, c.text + c.consumed) << c.text;
    }
    // A long run that needs the fallback is cut rather than copied past a small buffer.
    std::string longText = "1." + std::string(200, '1') + "e";
    float longValue = KPPDFObjectStrToFloat(longText.c_str(), &end);
    EXPECT_NEAR(longValue, 1.1111111f, 1e-6f);
    EXPECT_LE(end, longText.c_str() + longText.size());
}

TEST(KPPDFObjectScalars, NumberWritersLeaveTheCursorOnTheTerminator) {
    char buffer[64];
    std::memset(buffer, 'x', sizeof buffer);
    char* p = buffer;
    KPPDFObjectSignedToStringInPlace(INT32_MIN, &p);
    // Text appended at the cursor continues the same string.
    auto append = [&p](auto write, auto value) {
        *p++ = ' ';
        write(value, &p);
    };
    append(KPPDFObjectUnsignedToStringInPlace, UINT32_MAX);
    append(KPPDFObjectSignedToStringInPlace, INT32_MAX);
    append(KPPDFObjectSignedToStringInPlace, 0);
    append(KPPDFObjectUnsignedToStringInPlace, 0u);
    append(KPPDFObjectSignedToStringInPlace, -1);
    EXPECT_STREQ(buffer, "-2147483648 4294967295 2147483647 0 0 -1");
    EXPECT_EQ(p, buffer + std::strlen(buffer));

    p = buffer;
    KPPDFObjectUnsigned64ToStringInPlace(UINT64_MAX, &p);
    EXPECT_STREQ(buffer, "18446744073709551615");
    EXPECT_EQ(p, buffer + 20);
}

TEST(KPPDFObjectScalars, NamesKeepTheirEscapes) {
    // A name ends at whitespace or any delimiter; digits and signs belong to it.
    struct Case {
        const char* text;
        const char* value;
        uint32_t rawLength;
    };
    const Case cases[] = {
        {"/A#20B ", "A#20B", 6}, {"/Type/Page", "Type", 5},
        {"/a(b)", "a", 2},       {"/x-1.5+y]", "x-1.5+y", 8},
        {"/ ", "", 1},           {"/A<<", "A", 2},
        {"/n%c\n", "n", 2},      {"/\xE9t\xE9", "\xE9t\xE9", 4},
    };
    KPPDFDocument doc;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        KPPDFRef<KPPDFObject> name = parse(doc, c.text, true);
        ASSERT_TRUE(name && name->asName());
        EXPECT_EQ(name->asName()->value(), c.value);
        EXPECT_EQ(name->rawLength(), c.rawLength);
    }

    // Escapes are decoded on request, broken ones left alone; a name is written as it is held.
    EXPECT_EQ(KPPDFObjectName::nameWithString("A#20B")->decodedValue(), "A B");
    EXPECT_EQ(KPPDFObjectName::nameWithString("A#2")->decodedValue(), "A#2");
    EXPECT_EQ(KPPDFObjectName::nameWithString("A#zz#41")->decodedValue(), "A#zzA");
    EXPECT_EQ(KPPDFObjectName::nameWithString("Parvel#20Imprint")->directObject(),
              "/Parvel#20Imprint");
}

TEST(KPPDFObjectScalars, KeywordsNullAndBooleans) {
    for (bool directOnly : {false, true}) {
        SCOPED_TRACE(directOnly ? "direct" : "body");
        KPPDFDocument doc;
        for (const auto& [text, written] :
             {std::pair{"true", "true"}, {"false]", "false"}, {"null", "null"}}) {
            KPPDFRef<KPPDFObject> object = parse(doc, text, directOnly);
            ASSERT_TRUE(object && (object->asBoolean() || object->asNull())) << text;
            if (object->asBoolean()) {
                EXPECT_EQ(object->asBoolean()->boolValue(), written[0] == 't');
            }
            EXPECT_EQ(object->rawLength(), std::strlen(written));
            EXPECT_EQ(object->directObject(), written);
        }

        // Keywords cut short, at the end of the bytes or not, give nothing at all.
        LogCapture log;
        for (const char* text : {"tru", "fals", "nul", "tru e", "fALSE", "nil"}) {
            SCOPED_TRACE(text);
            EXPECT_FALSE(parse(doc, text, directOnly));
        }
        EXPECT_TRUE(log.lines().empty());
    }
}
