// The Standard security handler on files that qpdf encrypted (tests/data/open/make_fixtures.sh):
// owner password "owner", user password "" or "user", RC4 with 40-bit keys (V 1, R 2) and
// 128-bit keys (V 2, R 3), and AES (V 4), which is refused.
#include <gtest/gtest.h>

#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "support/LogCapture.h"

namespace {
KPPDFRef<KPPDFDocument> openFixture(const std::string& name, int32_t* result) {
    return KPPDFDocument::documentWithContentsOfFile(std::string(KPPDF_TEST_DATA) + "/open/" + name,
                                                     result);
}

std::string infoString(KPPDFDocument& document, const char* key) {
    auto info =
        document.trailer()->trailerDictionary()->resolvedObjectForKey<KPPDFObjectDictionary>(
            "Info");
    auto value = info ? info->resolvedObjectForKey<KPPDFObjectString>(key) : nullptr;
    return value ? value->stringValue() : std::string("<none>");
}

// The text drawn on the first page, as its (decrypted, inflated) content stream holds it.
std::string firstPageContent(KPPDFDocument& document) {
    auto kids = document.pagesObject()->resolvedObjectForKey<KPPDFObjectArray>("Kids");
    auto page = kids ? KPPDFCast<KPPDFObjectDictionary>(kids->resolvedObjectAtIndex(0)) : nullptr;
    KPPDFRef<KPPDFObject> contents = page ? page->resolvedObjectForKey("Contents") : nullptr;
    // A single stream, or (as this system writes pages) an array of them.
    if (auto array = KPPDFCast<KPPDFObjectArray>(contents))
        contents = array->resolvedObjectAtIndex(0);
    auto content = KPPDFCast<KPPDFObjectStream>(contents);
    return content ? content->decodedData().string() : std::string();
}

std::string dictionaryString(KPPDFDocument& document, const char* key) {
    auto value = document.encryptDictionary()->resolvedObjectForKey<KPPDFObjectString>(key);
    return value ? value->stringData() : std::string();
}

int32_t permissionWord(KPPDFDocument& document) {
    auto p = document.encryptDictionary()->resolvedObjectForKey("P");
    return p ? static_cast<int32_t>(p->longLongValue()) : 0;
}
} // namespace

TEST(KPPDFDocumentSecurity, EmptyUserPasswordOpensWithoutAsking) {
    struct Case {
        const char* file;
        size_t keyLength;
        int32_t revision;
    };
    for (const Case& c : {Case{"rc4_40_empty.pdf", 5, 2}, Case{"rc4_128_empty.pdf", 16, 3}}) {
        SCOPED_TRACE(c.file);
        int32_t result = -1;
        auto document = openFixture(c.file, &result);
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(result, KPPDFDocumentOpened);
        EXPECT_EQ(document->encryptionStatus(), 2);
        EXPECT_EQ(document->encryptKey().size(), c.keyLength);
        EXPECT_FALSE(document->isOwner());
        EXPECT_EQ(document->accessPermissions(), permissionWord(*document));
        EXPECT_EQ(infoString(*document, "Title"), "Fixture base document");
        EXPECT_EQ(infoString(*document, "Author"), "KPPDF test data");
        EXPECT_NE(firstPageContent(*document).find("Opening a File"), std::string::npos);
        // The encryption dictionary's own strings are never decrypted, so the key computed
        // from them again is the same.
        EXPECT_EQ(document->computeKeyForPassword("", c.revision), document->encryptKey());
        // The owner password recomputes the O entry qpdf wrote.
        EXPECT_EQ(document->ownerValueFor("owner", "", c.revision),
                  dictionaryString(*document, "O"));
        std::string u = dictionaryString(*document, "U");
        EXPECT_EQ(document->userValueFor("", c.revision).substr(0, 16), u.substr(0, 16));
    }
}

TEST(KPPDFDocumentSecurity, UserPasswordIsAskedFor) {
    for (const char* file : {"rc4_40_user.pdf", "rc4_128_user.pdf"}) {
        SCOPED_TRACE(file);
        int32_t result = -1;
        auto document = openFixture(file, &result);
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(result, KPPDFDocumentPasswordNeeded);
        EXPECT_EQ(document->encryptionStatus(), 0);
        EXPECT_TRUE(document->encryptKey().empty());

        // A wrong password changes nothing.
        EXPECT_EQ(document->validatePassword("wrong"), 1);
        EXPECT_EQ(document->validatePassword(""), 1);
        EXPECT_EQ(document->encryptionStatus(), 0);
        EXPECT_TRUE(document->encryptKey().empty());
        EXPECT_FALSE(document->isOwner());

        EXPECT_EQ(document->validatePassword("user"), 0);
        EXPECT_EQ(document->encryptionStatus(), 2);
        EXPECT_FALSE(document->isOwner());
        EXPECT_EQ(document->accessPermissions(), permissionWord(*document));
        EXPECT_EQ(infoString(*document, "Title"), "Fixture base document");
        EXPECT_NE(firstPageContent(*document).find("Opening a File"), std::string::npos);
    }

    // The owner password opens it too, with every permission.
    int32_t result = -1;
    auto document = openFixture("rc4_128_user.pdf", &result);
    ASSERT_NE(document, nullptr);
    std::string o = dictionaryString(*document, "O");
    EXPECT_EQ(document->ownerValueFor("owner", "user", 3), o);
    EXPECT_EQ(document->validatePassword("owner"), 0);
    EXPECT_TRUE(document->isOwner());
    EXPECT_EQ(document->accessPermissions(), -4);
    EXPECT_EQ(document->encryptKey().size(), 16u);
    EXPECT_EQ(document->computeKeyForPassword("user", 3), document->encryptKey());
    EXPECT_EQ(infoString(*document, "Title"), "Fixture base document");

    auto older = openFixture("rc4_40_user.pdf", &result);
    ASSERT_NE(older, nullptr);
    EXPECT_EQ(older->ownerValueFor("owner", "user", 2), dictionaryString(*older, "O"));
    EXPECT_EQ(older->validatePassword("owner"), 0);
    EXPECT_TRUE(older->isOwner());
    EXPECT_EQ(older->encryptKey().size(), 5u);
    EXPECT_NE(firstPageContent(*older).find("Opening a File"), std::string::npos);
}

TEST(KPPDFDocumentSecurity, OtherHandlersAreRefused) {
    LogCapture log;
    int32_t result = -1;
    auto document = openFixture("aes_128.pdf", &result);
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(result, KPPDFDocumentUnsupportedSecurity);
    EXPECT_TRUE(log.contains("Parvel does not support the Standard-4 security handler. "));
    EXPECT_EQ(document->encryptionStatus(), 0);
    EXPECT_EQ(document->validatePassword(""), 1);
    EXPECT_EQ(document->validatePassword("owner"), 1);
    EXPECT_TRUE(document->encryptKey().empty());
}

TEST(KPPDFDocumentSecurity, PaddingAndPerObjectKeys) {
    std::string pad(reinterpret_cast<const char*>(KPPDFDocumentStandardEncryptPad), 32);
    EXPECT_EQ(KPPDFDocument::fixPassword(""), pad);
    EXPECT_EQ(KPPDFDocument::fixPassword("user"), "user" + pad.substr(0, 28));
    std::string forty(40, 'p');
    EXPECT_EQ(KPPDFDocument::fixPassword(forty), std::string(32, 'p'));
    // Text is turned into Latin-1 bytes where it can be.
    EXPECT_EQ(KPPDFDocument::fixPassword("caf\xC3\xA9").substr(0, 5), "caf\xE9" + pad.substr(0, 1));

    // Without an encryption dictionary there is no key and no user value to match.
    KPPDFDocument empty;
    EXPECT_TRUE(empty.computeKeyForPassword("", 2).empty());
    EXPECT_EQ(empty.userValueFor("", 3), std::string(32, '\0'));
    EXPECT_EQ(empty.validatePassword(""), 1);

    // Object 1 generation 0 with a 5-byte key: a 10-byte RC4 key; 16 bytes at most.
    empty.setEncryptKey("\x01\x02\x03\x04\x05");
    EXPECT_EQ(empty.newRC4KeyForObjectNumber(1, 0).size(), 10u);
    empty.setEncryptKey(std::string(16, 'k'));
    EXPECT_EQ(empty.newRC4KeyForObjectNumber(1, 0).size(), 16u);
    std::string bytes = "secret";
    ASSERT_TRUE(empty.cryptBytes(bytes, 7, 0));
    EXPECT_NE(bytes, "secret");
    ASSERT_TRUE(empty.cryptBytes(bytes, 7, 0));
    EXPECT_EQ(bytes, "secret");
}
