#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFFilter.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {

using namespace std::string_literals;

// Parses the stream object at offset 1 of "\n" + text, as the body of an indirect object.
KPPDFRef<KPPDFObjectStream> parseStream(KPPDFDocument& doc, const std::string& text) {
    doc.setDocData(KPPDFData::dataWithString("\n" + text));
    return KPPDFCast<KPPDFObjectStream>(doc.objectAtOffset(1));
}

std::string streamText(const std::string& entries, const std::string& bytes,
                       const std::string& eol = "\n") {
    return "<< " + entries + " >>" + eol + "stream" + eol + bytes + eol + "endstream" + eol +
           "endobj" + eol;
}

// ASCII85 as this system decodes it: each group of five digits stands for four bytes taken
// least significant first. The input is padded with zero bytes to whole groups (zlib ignores
// what follows the end of its stream).
std::string encode85(std::string bytes) {
    while (bytes.size() % 4)
        bytes.push_back('\0');
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 4) {
        uint32_t value = 0;
        for (int k = 3; k >= 0; k--)
            value = value << 8 | static_cast<uint8_t>(bytes[i + k]);
        char digits[5];
        for (int k = 4; k >= 0; k--) {
            digits[k] = static_cast<char>('!' + value % 85);
            value /= 85;
        }
        out.append(digits, 5);
    }
    return out + "~>";
}

} // namespace

TEST(KPPDFObjectStream, LengthDirectOrIndirect) {
    for (const char* eol : {"\n", "\r\n"}) {
        SCOPED_TRACE(eol[1] ? "CR LF" : "LF");
        TestPDFBuilder builder(eol);
        builder.addStream(1, "/Type /Test", "hello\nworld");
        builder.add(2, "<< /Length 3 0 R >>" + std::string(eol) + "stream\n" + "abc)def" +
                           std::string(eol) + "endstream");
        builder.add(3, "7");
        std::string pdf = builder.build("");
        KPPDFDocument doc;
        LogCapture log;
        fillTable(doc, builder, pdf, {1, 2, 3});

        auto direct = KPPDFResolve<KPPDFObjectStream>(doc.objectWithNumber(1));
        ASSERT_TRUE(direct);
        EXPECT_EQ(direct->rawData().string(), "hello\nworld");
        // The stream's text runs from "<<" to just past "endstream".
        size_t start = bodyPosition(pdf, builder, 1);
        EXPECT_EQ(direct->dataRange().location, start);
        EXPECT_EQ(pdf.substr(start + direct->rawLength() - 9, 9), "endstream");

        auto indirect = KPPDFResolve<KPPDFObjectStream>(doc.objectWithNumber(2));
        ASSERT_TRUE(indirect);
        EXPECT_EQ(indirect->rawData().string(), "abc)def");
        EXPECT_TRUE(log.lines().empty()) << log.lines().front();
    }

    // A stream whose Length is its own reference cannot know its length before being read: the
    // keyword is searched for instead of recursing.
    TestPDFBuilder builder;
    builder.add(1, "<< /Length 1 0 R >>\nstream\nxyz\nendstream");
    std::string pdf = builder.build("");
    KPPDFDocument doc;
    LogCapture log;
    fillTable(doc, builder, pdf, {1});
    auto selfish = KPPDFResolve<KPPDFObjectStream>(doc.objectWithNumber(1));
    ASSERT_TRUE(selfish);
    EXPECT_EQ(selfish->rawData().string(), "xyz");
    EXPECT_TRUE(log.contains("endstream expected but not found"));
}

TEST(KPPDFObjectStream, WrongLengthsAreRepairedBySearching) {
    const std::string searched = "endstream expected but not found";
    const std::pair<std::string, std::string> cases[] = {
        // Too small, too large, missing, negative, a dangling reference.
        {streamText("/Length 2", "abc"), searched},
        {streamText("/Length 100", "abc"), searched},
        {streamText("", "abc"), searched},
        {streamText("/Length -4", "abc"), searched},
        {streamText("/Length 9 0 R", "abc"), searched},
        // No "endstream" anywhere: the data runs to the end of the bytes.
        {"<< /Length 50 >>\nstream\nabc", searched},
        // A CR alone after the keyword is logged and skipped.
        {"<< /Length 3 >>\nstream\rabc\nendstream", "CR alone not allowed after 'stream'"},
        // Line ends before "endstream" are not data; with a right Length nothing is logged.
        {"<< /Length 3 >>\nstream\r\nabc\r\nendstream", ""},
        {"<< /Length 3 >>\nstream\nabc\rendstream", ""},
        {"<< /Length 3 >>\nstream\nabcendstream", ""},
        {"<</Length 3>>stream\nabc\nendstream", ""},
    };
    for (const auto& [text, line] : cases) {
        SCOPED_TRACE(text);
        LogCapture log;
        KPPDFDocument doc;
        KPPDFRef<KPPDFObjectStream> stream = parseStream(doc, text);
        ASSERT_TRUE(stream);
        EXPECT_EQ(stream->rawData().string(), "abc");
        if (line.empty()) {
            EXPECT_TRUE(log.lines().empty());
        } else {
            EXPECT_TRUE(log.contains(line));
        }
    }
}

TEST(KPPDFObjectStream, FilterChains) {
    std::string text;
    for (int i = 0; i < 400; i++)
        text += "BT /F1 12 Tf 72 " + std::to_string(700 - i) + " Td (line " + std::to_string(i) +
                ") Tj ET\n";
    std::string flate = deflated(text);
    ASSERT_LT(flate.size() * 3, text.size()); // inflating must grow the buffer more than once

    // A predictor given in DecodeParms is undone after FlateDecode; with a chain the parameters
    // are matched to the filters by position.
    std::string rows = "\x02\x01\x02\x03"
                       "\x02\x04\x03\x02"
                       "\x02\xFB\xFB\xFA"s;
    std::string pixels = "\x01\x02\x03\x05\x05\x05\x00\x00\xFF"s;
    const std::string parms = "<< /Predictor 12 /Columns 3 >>";
    struct Case {
        std::string entries, bytes, decoded;
        const char* unsupported = nullptr; // the filter logged as unsupported
    };
    const Case cases[] = {
        {"/Filter /FlateDecode", flate, text},
        {"/Filter [/ASCII85Decode /FlateDecode]", encode85(flate), text},
        {"/Filter 5 0 R", flate, text},
        {"", text, text},
        {"/Filter /FlateDecode /DecodeParms " + parms, deflated(rows), pixels},
        {"/Filter [/ASCII85Decode /FlateDecode] /DecodeParms [null " + parms + "]",
         encode85(deflated(rows)), pixels},
        // Unknown filters give empty bytes, and so does every filter after them.
        {"/Filter [/Foo /FlateDecode]", flate, "", "Foo"},
        {"/Filter [/FlateDecode /JBIG2Decode]", flate, "", "JBIG2Decode"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.entries);
        LogCapture log;
        TestPDFBuilder builder;
        builder.addStream(1, c.entries, c.bytes);
        builder.add(5, "/FlateDecode");
        KPPDFRef<KPPDFDocument> doc = tableDocument(builder, 5);
        auto stream = KPPDFResolve<KPPDFObjectStream>(doc->objectWithNumber(1));
        ASSERT_TRUE(stream);
        EXPECT_EQ(stream->rawData().string(), c.bytes);
        KPPDFData decoded = stream->decodedData();
        EXPECT_EQ(decoded.string(), c.decoded);
        if (c.unsupported) {
            EXPECT_TRUE(log.contains(std::string("Unsupported filter: ") + c.unsupported));
        } else { // the result is kept
            EXPECT_TRUE(stream->decodedData().sharesStorageWith(decoded));
        }
    }
}

TEST(KPPDFObjectStream, WrittenFormAlwaysUsesCRLFAfterTheKeyword) {
    KPPDFDocument doc;
    auto stream = parseStream(doc, streamText("/Length 5", "hello"));
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->directObject(), "<< /Length 5>>\nstream\r\nhello\nendstream");
    stream->setObjectNumber(4);
    EXPECT_EQ(stream->indirectObject(),
              "4 0 obj\n<< /Length 5>>\nstream\r\nhello\nendstream\nendobj\n");

    // Line ends elsewhere follow the document's.
    KPPDFDocument crlf;
    crlf.setEOL("\r\n", 2);
    stream = parseStream(crlf, streamText("/Length 5", "hello", "\r\n"));
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->directObject(), "<< /Length 5>>\r\nstream\r\nhello\r\nendstream");

    // Without a document, line feeds.
    KPPDFRef<KPPDFObjectStream> made =
        KPPDFObjectStream::streamWithData(KPPDFData::dataWithString("xxabcxx"), {2, 3});
    EXPECT_EQ(made->rawData().string(), "abc");
    made->dictionary()->setObject(KPPDFObjectInteger::integerWithLongLong(3), "Length");
    EXPECT_EQ(made->directObject(), "<< /Length 3>>\nstream\r\nabc\nendstream");

    // A range outside the bytes falls back to all of them.
    made = KPPDFObjectStream::streamWithData(KPPDFData::dataWithString("abc"), {2, 30});
    EXPECT_EQ(made->rawData().string(), "abc");
}

TEST(KPPDFObjectStream, DeflatedStreamsRoundTrip) {
    // Compressible text with a random byte in every seven.
    std::minstd_rand random(12345);
    std::string input;
    for (int i = 0; i < 100000; i++)
        input.push_back(static_cast<char>(i % 7 ? 'a' + random() % 4 : random()));
    for (const std::string& bytes : {input, std::string()}) {
        SCOPED_TRACE(bytes.size());
        KPPDFRef<KPPDFObjectStream> stream = KPPDFObjectStream::streamByDeflatingData(bytes);
        ASSERT_TRUE(stream);
        KPPDFData raw = stream->rawData();
        std::string head =
            "<< /Filter /FlateDecode /Length " + std::to_string(raw.length()) + ">>\nstream\r\n";
        EXPECT_EQ(stream->directObject().substr(0, head.size()), head);
        EXPECT_EQ(stream->decodedData().string(), bytes);

        // Written out and read back as a file's object, it decodes to the same bytes.
        KPPDFDocument doc;
        auto back = parseStream(doc, stream->directObject() + "\nendobj\n");
        ASSERT_TRUE(back);
        EXPECT_EQ(back->rawData().length(), raw.length());
        EXPECT_EQ(back->decodedData().string(), bytes);
    }
}

TEST(KPPDFObjectStream, UpdateRawDataFollowsLength) {
    // Length held in another object: that object is changed and registered again.
    TestPDFBuilder builder;
    builder.add(1, "<< /Length 2 0 R /Filter /FlateDecode >>\nstream\nabcde\nendstream");
    builder.add(2, "5");
    KPPDFRef<KPPDFDocument> doc = tableDocument(builder, 2);
    auto stream = KPPDFResolve<KPPDFObjectStream>(doc->objectWithNumber(1));
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->rawData().string(), "abcde");
    std::string fresh = deflated("fresh content");
    stream->updateRawData(KPPDFData::dataWithString(fresh));
    EXPECT_EQ(stream->rawData().string(), fresh);
    EXPECT_EQ(stream->decodedData().string(), "fresh content");
    KPPDFRef<KPPDFObject> length = doc->objectWithNumber(2);
    ASSERT_TRUE(length && length->asInteger());
    EXPECT_EQ(stream->resolvedObjectForKey("Length").get(), length.get());
    EXPECT_EQ(stream->dictionary()->objectForKey("Length")->directObject(), "2 0 R");
    EXPECT_EQ(length->indirectObject(), "2 0 obj\n" + std::to_string(fresh.size()) + "\nendobj\n");

    // A direct Length is changed in place; a missing one is added.
    KPPDFDocument other;
    stream = parseStream(other, streamText("/Length 3", "abc"));
    ASSERT_TRUE(stream);
    stream->updateRawData(KPPDFData::dataWithString("0123456789"));
    EXPECT_EQ(stream->directObject(), "<< /Length 10>>\nstream\r\n0123456789\nendstream");
    stream = KPPDFObjectStream::streamWithData(KPPDFData::dataWithString("ab"), {0, 2});
    stream->updateRawData(KPPDFData::dataWithString("abcd"));
    EXPECT_EQ(stream->directObject(), "<< /Length 4>>\nstream\r\nabcd\nendstream");
    EXPECT_EQ(stream->decodedData().string(), "abcd");
}

TEST(KPPDFObjectStream, CopiesAreIndependent) {
    KPPDFDocument doc;
    auto stream = parseStream(doc, streamText("/Length 3 /Kind /Original", "abc"));
    ASSERT_TRUE(stream);
    stream->setObjectNumber(7);
    KPPDFRef<KPPDFObject> copy = stream->copy();
    ASSERT_TRUE(copy && copy->asStream());
    EXPECT_EQ(copy->objectNumber(), 0u);
    copy->asStream()->dictionary()->setObject(KPPDFObjectName::nameWithString("Copy"), "Kind");
    copy->asStream()->updateRawData(KPPDFData::dataWithString("xy"));
    EXPECT_EQ(stream->directObject(), "<< /Kind /Original /Length 3>>\nstream\r\nabc\nendstream");
    EXPECT_EQ(copy->directObject(), "<< /Kind /Copy /Length 2>>\nstream\r\nxy\nendstream");
    EXPECT_EQ(copy->asStream()->dictionary()->directContainer(), copy.get());
}
