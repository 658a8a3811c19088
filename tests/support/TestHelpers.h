#pragma once
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFFilter.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/platform/KPPDFData.h"
#include "support/TestPDFBuilder.h"

// Small helpers shared by the tests: files, fixtures, parsed objects and object tables.

// The whole file, or "" when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The text's words: its runs of non-space characters.
inline std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string word; in >> word;)
        result.push_back(word);
    return result;
}

// A fixture below tests/data, for example dataPath("open/base.pdf").
inline std::string dataPath(const std::string& name) {
    return std::string(KPPDF_TEST_DATA) + "/" + name;
}

// The document in the bytes, or in the file at path; a result other than opened fails the test.
inline KPPDFRef<KPPDFDocument> openBytes(std::string bytes) {
    int32_t result = -1;
    auto document = KPPDFDocument::documentWithData(KPPDFData(std::move(bytes)), &result);
    EXPECT_EQ(result, KPPDFDocumentOpened);
    return document;
}
inline KPPDFRef<KPPDFDocument> openFile(const std::string& path) {
    int32_t result = -1;
    auto document = KPPDFDocument::documentWithContentsOfFile(path, &result);
    EXPECT_EQ(result, KPPDFDocumentOpened) << path;
    return document;
}

// The document in the file at path, opened with the password it asks for; null (and a failure)
// when either step fails.
inline KPPDFRef<KPPDFDocument> openEncrypted(const std::string& path, const std::string& password) {
    int32_t result = -1;
    auto document = KPPDFDocument::documentWithContentsOfFile(path, &result);
    EXPECT_EQ(result, KPPDFDocumentPasswordNeeded) << path;
    if (!document || result != KPPDFDocumentPasswordNeeded || document->validatePassword(password))
        return nullptr;
    return document;
}

// A direct dictionary parsed from its text, outside any document; null when it is none.
inline KPPDFRef<KPPDFObjectDictionary> dictionaryFromText(const std::string& text) {
    return KPPDFCast<KPPDFObjectDictionary>(
        KPPDFDocument::parseObject(nullptr, 0, KPPDFData(std::string(text)), true, true));
}

// The bytes zlib-compressed, as a FlateDecode stream holds them.
inline std::string deflated(const std::string& bytes) {
    uint32_t length = KPPDFDeflateBound(static_cast<uint32_t>(bytes.size()));
    std::string out(length, '\0');
    EXPECT_EQ(KPPDFDeflate(reinterpret_cast<const uint8_t*>(bytes.data()),
                           static_cast<uint32_t>(bytes.size()),
                           reinterpret_cast<uint8_t*>(out.data()), &length),
              1);
    out.resize(length);
    return out;
}

// Offset of the first byte after "n 0 obj" and its line end.
inline uint32_t bodyPosition(const std::string& pdf, TestPDFBuilder& builder, unsigned number) {
    size_t p = pdf.find("obj", builder.offsetOf(number)) + 3;
    while (p < pdf.size() && (pdf[p] == '\n' || pdf[p] == '\r' || pdf[p] == ' '))
        p++;
    return static_cast<uint32_t>(p);
}

// Puts a placeholder reference into the table for each listed object the builder wrote.
inline void fillTable(KPPDFDocument& doc, TestPDFBuilder& builder, const std::string& pdf,
                      std::initializer_list<unsigned> numbers) {
    doc.setDocData(KPPDFData::dataWithString(pdf));
    for (unsigned n : numbers)
        doc.setObject(KPPDFObjectReference::referenceWithObjectNumber(
                          n, 0, &doc, bodyPosition(pdf, builder, n)),
                      n, 0);
}

// A document whose object table holds every object of the built file up to highest (as the
// cross-reference table would put them there), without the rest of opening.
inline KPPDFRef<KPPDFDocument> tableDocument(TestPDFBuilder& builder, unsigned highest) {
    auto document = std::make_shared<KPPDFDocument>();
    document->setDocData(builder.buildData("/Root 1 0 R"));
    for (unsigned number = 1; number <= highest; number++) {
        size_t offset;
        try {
            offset = builder.offsetOf(number);
        } catch (const std::out_of_range&) {
            continue;
        }
        size_t position = offset + std::to_string(number).size() + std::strlen(" 0 obj\n");
        document->setObject(KPPDFObjectReference::referenceWithObjectNumber(
                                number, 0, document.get(), static_cast<uint32_t>(position)),
                            number, 0);
    }
    return document;
}

// The table's object number as a dictionary, or null.
inline KPPDFRef<KPPDFObjectDictionary> tableDictionary(KPPDFDocument& document, uint32_t number) {
    return KPPDFResolve<KPPDFObjectDictionary>(document.objectWithNumber(number));
}
