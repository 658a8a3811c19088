#include "kppdf/platform/KPPDFArchiver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/LogCapture.h"

namespace {

using Kind = KPPDFPropertyList::Kind;

const std::string kBytes{'\0', '\xff', '\x01', 'a', 'b'};

KPPDFPropertyList everyKind() {
    KPPDFPropertyList inner = KPPDFPropertyList::dictionary();
    inner.setObject(KPPDFPropertyList::integer(-7), "minus seven");
    KPPDFPropertyList list = KPPDFPropertyList::array(
        {KPPDFPropertyList::string("first"), KPPDFPropertyList::real(0.1), inner,
         KPPDFPropertyList::array(), KPPDFPropertyList::dictionary()});
    KPPDFPropertyList root;
    root.setObject(KPPDFPropertyList::string("picture.jpg"), "filename");
    root.setObject(KPPDFPropertyList::integer(INT64_MIN), "smallest");
    root.setObject(KPPDFPropertyList::integer(INT64_MAX), "largest");
    root.setObject(KPPDFPropertyList::real(-1.0e300), "real");
    root.setObject(KPPDFPropertyList::real(1.0 / 3.0), "third");
    root.setObject(KPPDFPropertyList::boolean(true), "yes");
    root.setObject(KPPDFPropertyList::boolean(false), "no");
    root.setObject(KPPDFPropertyList::date(KPPDFDate::dateWithTimeIntervalSince1970(1.0e9, {})),
                   "when");
    root.setObject(KPPDFPropertyList::data(kBytes), "bytes");
    root.setObject(KPPDFPropertyList::data(""), "no bytes");
    root.setObject(KPPDFPropertyList::string(""), "empty");
    root.setObject(list, "list");
    return root;
}

std::optional<KPPDFPropertyList> roundTrip(const KPPDFPropertyList& value) {
    return KPPDFArchiver::unarchiveObject(KPPDFArchiver::archive(value));
}

std::string plist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body +
           "</plist>\n";
}

} // namespace

TEST(KPPDFArchiver, EveryKindSurvivesARoundTrip) {
    KPPDFPropertyList original = everyKind();
    std::string xml = KPPDFArchiver::archive(original);
    EXPECT_TRUE(
        xml.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC "
                        "\"-//Apple//DTD PLIST 1.0//EN\""));
    EXPECT_NE(xml.find("<key>filename</key>\n\t<string>picture.jpg</string>"), std::string::npos);
    EXPECT_NE(xml.find("<integer>-9223372036854775808</integer>"), std::string::npos);
    EXPECT_NE(xml.find("<date>2001-09-09T01:46:40Z</date>"), std::string::npos);
    EXPECT_NE(xml.find("<data>\n\tAP8BYWI=\n\t</data>"), std::string::npos) << xml;

    std::optional<KPPDFPropertyList> back = KPPDFArchiver::unarchive(xml);
    ASSERT_TRUE(back);
    // Dates come back in UTC, so their instants are compared and the rest as a whole.
    EXPECT_EQ(back->objectForKey("when")->dateValue().timeIntervalSince1970(), 1.0e9);
    EXPECT_TRUE(back->objectForKey("when")->dateValue().hasTimeZone());
    KPPDFPropertyList withoutDates = *back, originalWithoutDates = original;
    withoutDates.removeObjectForKey("when");
    originalWithoutDates.removeObjectForKey("when");
    EXPECT_TRUE(withoutDates == originalWithoutDates) << xml;
}

TEST(KPPDFArchiver, TextIsEscapedAndComesBackByteForByte) {
    const char text[] = "a < b && c > d \"quoted\" 'single'\r\n\ttab \x01\x1f caf\xc3\xa9 \0end";
    const std::string awkward(text, sizeof text - 1);
    KPPDFPropertyList root;
    root.setObject(KPPDFPropertyList::string(awkward), "<key & more>");
    std::string xml = KPPDFArchiver::archive(root);
    EXPECT_NE(xml.find("<key>&lt;key &amp; more&gt;</key>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("&#13;\n\ttab &#1;&#31; caf\xc3\xa9 &#0;end"), std::string::npos) << xml;
    std::optional<KPPDFPropertyList> back = KPPDFArchiver::unarchive(xml);
    ASSERT_TRUE(back);
    ASSERT_TRUE(back->objectForKey("<key & more>"));
    EXPECT_EQ(back->objectForKey("<key & more>")->stringValue(), awkward);

    // What other writers produce: predefined entities, character references, CDATA, comments.
    back = KPPDFArchiver::unarchive(
        plist("<dict><key>k</key><string>&quot;&apos;&#x41;&#66;&#x20AC;&#x1F600;"
              "<![CDATA[<raw & text>]]><!-- dropped -->end</string></dict>"));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->objectForKey("k")->stringValue(),
              "\"'AB\xe2\x82\xac\xf0\x9f\x98\x80<raw & text>end");
}

TEST(KPPDFArchiver, ReadsTheFormsOtherWritersUse) {
    std::optional<KPPDFPropertyList> root = KPPDFArchiver::unarchiveObject(
        "\xEF\xBB\xBF<?xml version='1.0'?>\n<!DOCTYPE plist PUBLIC '-//Apple//DTD PLIST 1.0//EN' "
        "'http://www.apple.com/DTDs/PropertyList-1.0.dtd'>\n"
        "<plist version='1.0'><array>\n"
        "  <integer> +42 </integer><real>2.5e3</real><real>nan</real><real>-infinity</real>\n"
        "  <true></true><false/><string/><data>AAEC\n  Aw==</data><data>AAECAw</data>\n"
        "  <date>1969-12-31T23:59:59Z</date><dict/></array></plist>");
    ASSERT_TRUE(root);
    const KPPDFPropertyList::Array& list = root->arrayValue();
    ASSERT_EQ(list.size(), 11u);
    EXPECT_EQ(list[0].integerValue(), 42);
    EXPECT_EQ(list[1].realValue(), 2500.0);
    EXPECT_TRUE(std::isnan(list[2].realValue()));
    EXPECT_EQ(list[3].realValue(), -INFINITY);
    EXPECT_TRUE(list[4].boolValue());
    EXPECT_EQ(list[5].kind(), Kind::Boolean);
    EXPECT_EQ(list[6].kind(), Kind::String);
    EXPECT_EQ(list[7].dataValue(), std::string("\0\1\2\3", 4));
    EXPECT_EQ(list[8].dataValue(), std::string("\0\1\2\3", 4));
    EXPECT_EQ(list[9].dateValue().timeIntervalSince1970(), -1.0);
    EXPECT_TRUE(list[10].isDictionary());
    // A bare value without the plist element is read too; unarchive wants a dictionary.
    EXPECT_TRUE(KPPDFArchiver::unarchive("<dict><key>a</key><integer>1</integer></dict>"));
    LogCapture log;
    EXPECT_FALSE(KPPDFArchiver::unarchive(plist("<array/>")));
    EXPECT_TRUE(log.contains("not a dictionary"));

    // Non-finite reals are written so that they read back.
    std::optional<KPPDFPropertyList> nan = roundTrip(KPPDFPropertyList::real(NAN));
    ASSERT_TRUE(nan);
    EXPECT_TRUE(std::isnan(nan->realValue()));
    EXPECT_EQ(roundTrip(KPPDFPropertyList::real(INFINITY))->realValue(), INFINITY);
}

TEST(KPPDFArchiver, MalformedAndHostileInputFailsCleanly) {
    std::string deep;
    for (int i = 0; i < 100000; i++)
        deep += "<array>";
    std::string justDeepEnough, tooDeep;
    for (int i = 0; i < KPPDFArchiver::kMaxDepth; i++)
        justDeepEnough = "<array>" + justDeepEnough + "</array>";
    tooDeep = "<array>" + justDeepEnough + "</array>";
    EXPECT_TRUE(KPPDFArchiver::unarchiveObject(justDeepEnough));

    const std::string cases[] = {
        "not xml at all",
        deep,
        tooDeep,
        plist("<integer>9223372036854775808</integer>"),
        plist("<real>1e999</real>"),
        plist("<date>2024-13-01T00:00:00Z</date>"),
        plist("<data>AB=C</data>"),
        plist("<string>&#xD800;</string>"),
        plist("<string>" + std::string(100000, '&') + "</string>"),
        plist("<string>unterminated"),
        plist("<dict><string>value without key</string></dict>"),
        plist("<string>one</string><string>two</string>"),
        "<!DOCTYPE plist [<!ENTITY boom \"boom\">]><plist><string>&boom;</string></plist>",
        "<!DOCTYPE plist SYSTEM \"file:///etc/passwd\"><plist><string>&xxe;</string></plist>",
    };
    for (const std::string& input : cases) {
        LogCapture log;
        EXPECT_FALSE(KPPDFArchiver::unarchiveObject(input)) << input.substr(0, 120);
        EXPECT_TRUE(log.contains("Property list not readable")) << input.substr(0, 120);
    }

    // Writing refuses what could not be read back.
    KPPDFPropertyList nested = KPPDFPropertyList::array();
    for (int i = 0; i < KPPDFArchiver::kMaxDepth; i++)
        nested = KPPDFPropertyList::array({nested});
    LogCapture log;
    EXPECT_EQ(KPPDFArchiver::archive(nested), "");
    EXPECT_TRUE(log.contains("nested deeper"));
}
