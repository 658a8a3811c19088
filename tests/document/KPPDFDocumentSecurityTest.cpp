// The Standard security handler on files that qpdf encrypted (tests/data/open/make_fixtures.sh):
// owner password "owner", user password "" or "user", RC4 with 40-bit keys (V 1, R 2) and
// 128-bit keys (V 2, R 3), and AES (V 4), which is refused.
#include <gtest/gtest.h>

#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
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

TEST(KPPDFDocumentSecurity, RC4FilesOpenWithTheirPasswords) {
    struct Case {
        const char* file;
        const char* user;
        size_t keyLength;
        int32_t revision;
    };
    for (const Case& c :
         {Case{"rc4_40_empty.pdf", "", 5, 2}, Case{"rc4_128_empty.pdf", "", 16, 3},
          Case{"rc4_40_user.pdf", "user", 5, 2}, Case{"rc4_128_user.pdf", "user", 16, 3}}) {
        SCOPED_TRACE(c.file);
        const bool asks = *c.user != '\0';
        int32_t result = -1;
        auto document = openFixture(c.file, &result);
        ASSERT_NE(document, nullptr);
        // An empty user password opens without asking; another is asked for, and a wrong one
        // changes nothing.
        EXPECT_EQ(result, asks ? KPPDFDocumentPasswordNeeded : KPPDFDocumentOpened);
        if (asks) {
            EXPECT_EQ(document->encryptionStatus(), 0);
            EXPECT_EQ(document->validatePassword("wrong"), 1);
            EXPECT_EQ(document->validatePassword(""), 1);
            EXPECT_EQ(document->encryptionStatus(), 0);
            EXPECT_TRUE(document->encryptKey().empty());
            EXPECT_EQ(document->validatePassword(c.user), 0);
        }
        EXPECT_EQ(document->encryptionStatus(), 2);
        EXPECT_EQ(document->encryptKey().size(), c.keyLength);
        EXPECT_FALSE(document->isOwner());
        EXPECT_EQ(document->accessPermissions(), permissionWord(*document));
        // Strings and streams are decrypted.
        EXPECT_EQ(infoString(*document, "Title"), "Fixture base document");
        EXPECT_NE(firstPageContent(*document).find("Opening a File"), std::string::npos);
        // The encryption dictionary's own strings are never decrypted, so the key computed
        // from them again is the same.
        EXPECT_EQ(document->computeKeyForPassword(c.user, c.revision), document->encryptKey());
        // The owner password recomputes the O entry qpdf wrote, and the user password U.
        EXPECT_EQ(document->ownerValueFor("owner", c.user, c.revision),
                  dictionaryString(*document, "O"));
        EXPECT_EQ(document->userValueFor(c.user, c.revision).substr(0, 16),
                  dictionaryString(*document, "U").substr(0, 16));

        // The owner password opens it too, with every permission and the same key.
        if (asks) {
            auto owned = openFixture(c.file, &result);
            ASSERT_NE(owned, nullptr);
            EXPECT_EQ(owned->validatePassword("owner"), 0);
            EXPECT_TRUE(owned->isOwner());
            EXPECT_EQ(owned->accessPermissions(), -4);
            EXPECT_EQ(owned->encryptKey(), document->encryptKey());
            EXPECT_NE(firstPageContent(*owned).find("Opening a File"), std::string::npos);
        }
    }
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

TEST(KPPDFDocumentSecurity, PasswordsLongerThan32BytesOrNotASCII) {
    // No fixture has these: the password is cut to 32 bytes, and text is turned into Latin-1
    // bytes where it can be, before the padding.
    std::string pad(reinterpret_cast<const char*>(KPPDFDocumentStandardEncryptPad), 32);
    EXPECT_EQ(KPPDFDocument::fixPassword(std::string(40, 'p')), std::string(32, 'p'));
    EXPECT_EQ(KPPDFDocument::fixPassword("caf\xC3\xA9").substr(0, 5), "caf\xE9" + pad.substr(0, 1));
    // Without an encryption dictionary no password is right.
    KPPDFDocument empty;
    EXPECT_EQ(empty.validatePassword(""), 1);
}
