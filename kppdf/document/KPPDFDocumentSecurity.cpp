// The Standard security handler with RC4 (ISO 32000-1, 7.6.3, revisions 2 and 3): file keys,
// the "O" and "U" values, password checks and per-object keys.
// OpenSSL 3 deprecates the low-level MD5 and RC4 calls; they are exactly what this file needs.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>
#include <openssl/rc4.h>

#include <cstring>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFTextEncoding.h"

const uint8_t KPPDFDocumentStandardEncryptPad[32] = {
    0x28, 0xBF, 0x4E, 0x5E, 0x4E, 0x75, 0x8A, 0x41, 0x64, 0x00, 0x4E, 0x56, 0xFF, 0xFA, 0x01, 0x08,
    0x2E, 0x2E, 0x00, 0xB6, 0xD0, 0x68, 0x3E, 0x80, 0x2F, 0x0C, 0xA9, 0xFE, 0x64, 0x53, 0x69, 0x7A};

namespace {
constexpr size_t kPaddedLength = 32;
constexpr size_t kDigestLength = MD5_DIGEST_LENGTH;
// Revision 3 hashes its digests this many more times, and runs RC4 this many more passes with
// the key XORed with the pass number (algorithms 2, 3 and 5).
constexpr int kRevision3HashRounds = 50;
constexpr int kRevision3CipherPasses = 19;
// RC4 key lengths of revision 2, and the most that revision 3 allows, in bytes.
constexpr int kRevision2KeyLength = 5;
constexpr int kMaxKeyLength = 16;

std::string md5(std::initializer_list<std::string_view> parts) {
    unsigned char digest[kDigestLength];
    MD5_CTX context;
    MD5_Init(&context);
    for (std::string_view part : parts)
        MD5_Update(&context, part.data(), part.size());
    MD5_Final(digest, &context);
    return std::string(reinterpret_cast<char*>(digest), kDigestLength);
}

void rc4(std::string_view key, std::string& bytes, size_t offset = 0) {
    RC4_KEY state;
    RC4_set_key(&state, static_cast<int>(key.size()),
                reinterpret_cast<const unsigned char*>(key.data()));
    if (bytes.size() > offset)
        RC4(&state, bytes.size() - offset,
            reinterpret_cast<const unsigned char*>(bytes.data() + offset),
            reinterpret_cast<unsigned char*>(bytes.data() + offset));
}

std::string xorKey(std::string_view key, int value) {
    std::string result(key);
    for (char& c : result)
        c = static_cast<char>(c ^ value);
    return result;
}

// The raw bytes of a string entry; empty when it is missing or not a string.
std::string stringBytes(KPPDFObjectDictionary* dictionary, std::string_view key) {
    auto string = dictionary ? dictionary->resolvedObjectForKey<KPPDFObjectString>(key) : nullptr;
    return string ? string->stringData() : std::string();
}

bool integerEntry(KPPDFObjectDictionary* dictionary, std::string_view key, long long* value) {
    KPPDFRef<KPPDFObject> entry = dictionary ? dictionary->resolvedObjectForKey(key) : nullptr;
    if (!entry || entry->objectType() != KPPDFObjectTypeInteger)
        return false;
    *value = entry->longLongValue();
    return true;
}

// "P" as the 32-bit word it is, whether written signed or unsigned.
int32_t permissions(KPPDFObjectDictionary* dictionary) {
    long long value = 0;
    integerEntry(dictionary, "P", &value);
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

// "Length" in bytes, capped at 16; fallback when absent or below the 40 bits ISO 32000-1 allows.
int keyLengthFromLength(KPPDFObjectDictionary* dictionary, int fallback) {
    long long bits = 0;
    if (!integerEntry(dictionary, "Length", &bits) || bits / 8 < kRevision2KeyLength)
        return fallback;
    return static_cast<int>(std::min<long long>(bits / 8, kMaxKeyLength));
}

// The RC4 key of the owner password (algorithm 3, steps a to d).
std::string ownerKey(KPPDFObjectDictionary* dictionary, std::string_view ownerPassword,
                     int32_t revision) {
    std::string digest = md5({KPPDFDocument::fixPassword(ownerPassword)});
    if (revision == 3)
        for (int i = 0; i < kRevision3HashRounds; i++)
            digest = md5({digest});
    digest.resize(static_cast<size_t>(keyLengthFromLength(dictionary, kRevision2KeyLength)));
    return digest;
}
} // namespace

std::string KPPDFDocument::fixPassword(std::string_view password) {
    std::string bytes;
    if (!KPPDFTextEncoding::utf8ToLatin1(password, &bytes))
        bytes.assign(password);
    if (bytes.size() > kPaddedLength)
        bytes.resize(kPaddedLength);
    bytes.append(reinterpret_cast<const char*>(KPPDFDocumentStandardEncryptPad),
                 kPaddedLength - bytes.size());
    return bytes;
}

std::string KPPDFDocument::computeKeyForPassword(std::string_view password, int32_t revision,
                                                 bool padded) {
    KPPDFObjectDictionary* dictionary = encryptDictionary_.get();
    if (!dictionary)
        return {};
    std::string paddedPassword =
        padded ? std::string(password.substr(0, kPaddedLength)) : fixPassword(password);
    uint32_t p = static_cast<uint32_t>(permissions(dictionary));
    char pBytes[4] = {static_cast<char>(p), static_cast<char>(p >> 8), static_cast<char>(p >> 16),
                      static_cast<char>(p >> 24)};
    std::string id;
    if (docID_ && docID_->count() > 0)
        if (auto first = KPPDFCast<KPPDFObjectString>(docID_->resolvedObjectAtIndex(0)))
            id = first->stringData();
    std::string digest =
        md5({paddedPassword, stringBytes(dictionary, "O"), std::string_view(pBytes, 4), id});
    int keyLength = kRevision2KeyLength;
    if (revision == 3) {
        // All 16 bytes are hashed again even when the key is shorter.
        for (int i = 0; i < kRevision3HashRounds; i++)
            digest = md5({digest});
        keyLength = keyLengthFromLength(dictionary, kRevision2KeyLength);
    }
    digest.resize(static_cast<size_t>(keyLength));
    return digest;
}

std::string KPPDFDocument::ownerValueFor(std::string_view ownerPassword,
                                         std::string_view userPassword, int32_t revision) {
    // Without an owner password the user password stands in (algorithm 3, step a).
    std::string key = ownerKey(encryptDictionary_.get(),
                               ownerPassword.empty() ? userPassword : ownerPassword, revision);
    std::string value = fixPassword(userPassword);
    rc4(key, value);
    if (revision == 3)
        for (int i = 1; i <= kRevision3CipherPasses; i++)
            rc4(xorKey(key, i), value);
    return value;
}

std::string KPPDFDocument::userValueFor(std::string_view password, int32_t revision, bool padded) {
    std::string key = computeKeyForPassword(password, revision, padded);
    if (key.empty() || (revision != 2 && revision != 3))
        return std::string(kPaddedLength, '\0');
    std::string padding(reinterpret_cast<const char*>(KPPDFDocumentStandardEncryptPad),
                        kPaddedLength);
    if (revision == 2) {
        rc4(key, padding);
        return padding;
    }
    std::string id;
    if (docID_ && docID_->count() > 0)
        if (auto first = KPPDFCast<KPPDFObjectString>(docID_->resolvedObjectAtIndex(0)))
            id = first->stringData();
    std::string value = md5({padding, id});
    rc4(key, value);
    for (int i = 1; i <= kRevision3CipherPasses; i++)
        rc4(xorKey(key, i), value);
    value.resize(kPaddedLength, '\0');
    return value;
}

bool KPPDFDocument::isStandardSecurity(int32_t* revision) {
    KPPDFObjectDictionary* dictionary = encryptDictionary_.get();
    long long v = 0, r = 2;
    if (!dictionary || !dictionary->hasName("Filter", "Standard") ||
        !integerEntry(dictionary, "V", &v) || (v != 1 && v != 2))
        return false;
    integerEntry(dictionary, "R", &r);
    *revision = static_cast<int32_t>(std::clamp<long long>(r, INT32_MIN, INT32_MAX));
    return true;
}

int32_t KPPDFDocument::setUpSecurity() {
    encryptDictionary_ =
        trailer_
            ? trailer_->trailerDictionary()->resolvedObjectForKey<KPPDFObjectDictionary>("Encrypt")
            : nullptr;
    if (!encryptDictionary_) {
        isOwner_ = true;
        return KPPDFDocumentOpened;
    }
    int32_t revision = 2;
    if (!isStandardSecurity(&revision)) {
        auto filter = encryptDictionary_->resolvedObjectForKey<KPPDFObjectName>("Filter");
        long long v = 0;
        integerEntry(encryptDictionary_.get(), "V", &v);
        KPPDFLog("Parvel does not support the %s-%d security handler. Please ask for it by mail "
                 "to the support address of your KPPDF distribution, with a note of the file's "
                 "producer.",
                 filter ? filter->value().c_str() : "(none)", static_cast<int>(v));
        return KPPDFDocumentUnsupportedSecurity;
    }
    // The empty user password opens most encrypted files without asking.
    std::string u = stringBytes(encryptDictionary_.get(), "U");
    size_t compared = revision == 3 ? 16 : kPaddedLength;
    std::string computed = userValueFor("", revision);
    if (u.size() < compared || std::memcmp(u.data(), computed.data(), compared) != 0)
        return KPPDFDocumentPasswordNeeded;
    isOwner_ = false;
    encryptKey_ = computeKeyForPassword("", revision);
    encryptionStatus_ = 1;
    accessPermissions_ = permissions(encryptDictionary_.get());
    reloadForDecryption();
    return KPPDFDocumentOpened;
}

int32_t KPPDFDocument::validatePassword(const std::string& password) {
    int32_t revision = 2;
    if (!isStandardSecurity(&revision))
        return 1;
    constexpr size_t kCompared = 16;
    std::string u = stringBytes(encryptDictionary_.get(), "U");
    std::string o = stringBytes(encryptDictionary_.get(), "O");
    if (u.size() < kCompared)
        return 1;
    // As the owner password: O decrypts to the padded user password (algorithm 7).
    std::string key = ownerKey(encryptDictionary_.get(), password, revision);
    std::string userPassword = o;
    if (revision == 2) {
        rc4(key, userPassword);
    } else {
        for (int i = kRevision3CipherPasses; i >= 0; i--)
            rc4(xorKey(key, i), userPassword);
    }
    bool owner = false;
    std::string keyPassword;
    bool padded = false;
    if (std::string value = userValueFor(userPassword, revision, true);
        std::memcmp(value.data(), u.data(), kCompared) == 0) {
        owner = true;
        keyPassword = userPassword;
        padded = true;
    } else if (value = userValueFor(password, revision);
               std::memcmp(value.data(), u.data(), kCompared) == 0) {
        keyPassword = password;
    } else {
        return 1;
    }
    bool alreadyDecrypted = encryptionStatus_ == 2;
    isOwner_ = owner;
    // The owner has every permission; the two low bits are reserved and clear.
    accessPermissions_ = owner ? -4 : permissions(encryptDictionary_.get());
    if (alreadyDecrypted)
        return 0; // opened before (with the empty password): only the rights change
    encryptKey_ = computeKeyForPassword(keyPassword, revision, padded);
    encryptionStatus_ = 1;
    reloadForDecryption();
    processStructure();
    return 0;
}

void KPPDFDocument::reloadForDecryption() {
    // Decrypted once and for all: with the key known (status 1) every string and stream is read
    // decrypted, and the complete rewrite writes them plain. The document then works on those
    // plain bytes and encrypts again only when it is saved (status 2).
    KPPDFRef<KPPDFObjectDictionary> encryption = encryptDictionary_;
    KPPDFRef<KPPDFObjectArray> id = docID_;
    std::string key = encryptKey_;
    int32_t rights = accessPermissions_;
    bool owner = isOwner_;
    // The catalog and the page-tree root were read (or, in an object stream, left unread)
    // before the key was known, so they are read again, decrypting.
    workTrailer();
    std::string version = pdfVersion_;
    prepPages();
    std::string plain = currentDataWithImprints(true, 0);
    pages_.clear();
    dests_.clear();
    outlines_.reset();
    // The encrypted file's objects are done with: the document goes on with the plain bytes.
    // Only the encryption dictionary stays, for saving encrypted again.
    uint32_t encryptionNumber = encryption ? encryption->objectNumber() : 0;
    if (encryptionNumber && encryptionNumber < table_.size() && table_[encryptionNumber] == encryption)
        table_[encryptionNumber].reset();
    disconnectObjects();
    for (auto& object : retiredObjects_)
        if (object && object != encryption)
            object->disconnect();
    retiredObjects_.clear();
    encryptionStatus_ = 0;
    encryptKey_.clear();
    if (plain.empty() || (setDocData(KPPDFData(std::move(plain))), !versionAndEOF()) ||
        !workTrailer()) {
        KPPDFLog("Could not decrypt the document");
    } else {
        decryptedAtOpening_ = true;
    }
    // The plain file has no "Encrypt": the kept dictionary is what saving encrypts with.
    encryptDictionary_ = encryption;
    docID_ = id;
    // Still the version of the file that was opened, not that of its plain rewrite.
    pdfVersion_ = version;
    encryptKey_ = key;
    accessPermissions_ = rights;
    isOwner_ = owner;
    encryptionStatus_ = 2;
}

std::string KPPDFDocument::newRC4KeyForObjectNumber(uint32_t number, uint32_t generation) const {
    if (encryptKey_.empty())
        return {};
    char extra[5] = {static_cast<char>(number), static_cast<char>(number >> 8),
                     static_cast<char>(number >> 16), static_cast<char>(generation),
                     static_cast<char>(generation >> 8)};
    std::string digest = md5({encryptKey_, std::string_view(extra, sizeof extra)});
    digest.resize(std::min<size_t>(encryptKey_.size() + 5, kMaxKeyLength));
    return digest;
}

bool KPPDFDocument::cryptBytes(std::string& bytes, uint32_t number, uint32_t generation,
                               size_t offset) const {
    std::string key = newRC4KeyForObjectNumber(number, generation);
    if (key.empty())
        return false;
    rc4(key, bytes, offset);
    return true;
}

void KPPDFDocument::setUserPassword(const std::string& userPassword,
                                    const std::string& ownerPassword, int32_t permissionBits) {
    if (isOwner_ && userPassword.empty() && ownerPassword.empty()) {
        removeEncryption();
        return;
    }
    if (!docID_ || docID_->count() == 0)
        makeDocID();
    int32_t revision = 2;
    if (encryptDictionary_) {
        long long r = 2;
        if (integerEntry(encryptDictionary_.get(), "R", &r) && (r == 2 || r == 3))
            revision = static_cast<int32_t>(r);
        // A copy of its own, so the dictionary read from the file is left as it was.
        auto copy = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
        for (auto& [key, entry] : encryptDictionary_->value())
            if (entry)
                copy->setObject(entry->copy(), key);
        encryptDictionary_ = copy;
        encryptDictionary_->setObject(KPPDFObjectInteger::integerWithLongLong(permissionBits), "P");
        accessPermissions_ = static_cast<int32_t>(
            (static_cast<uint32_t>(permissionBits) | 0xFFFFF0C0u) & 0xFFFFFFFCu);
    } else {
        // A new handler: RC4 with 40-bit keys; its P is the one written here, whatever was asked.
        encryptDictionary_ = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
        encryptDictionary_->setObject(KPPDFObjectName::nameWithString("Standard"), "Filter");
        encryptDictionary_->setObject(KPPDFObjectInteger::integerWithLongLong(1), "V");
        encryptDictionary_->setObject(KPPDFObjectInteger::integerWithLongLong(2), "R");
        encryptDictionary_->setObject(KPPDFObjectInteger::integerWithLongLong(40), "Length");
        encryptDictionary_->setObject(KPPDFObjectInteger::integerWithLongLong(-1028), "P");
        accessPermissions_ =
            static_cast<int32_t>((static_cast<uint32_t>(permissionBits) & 0xFCu) | 0xC0u);
    }
    // O first: the key depends on it.
    encryptDictionary_->setObject(
        KPPDFObjectString::stringWithData(ownerValueFor(ownerPassword, userPassword, revision)),
        "O");
    encryptDictionary_->setObject(KPPDFObjectString::stringWithData(std::string(32, '\0')), "U");
    encryptKey_ = computeKeyForPassword(userPassword, revision);
    encryptDictionary_->setObject(
        KPPDFObjectString::stringWithData(userValueFor(userPassword, revision)), "U");
    encryptionStatus_ = 2;
}

void KPPDFDocument::removeEncryption() {
    encryptDictionary_.reset();
    encryptKey_.clear();
    encryptionStatus_ = 0;
    isOwner_ = true;
    accessPermissions_ = -4;
}
