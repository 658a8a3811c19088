// Per-object keys of the Standard security handler (ISO 32000-1, 7.6.2, algorithm 1).
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>
#include <openssl/rc4.h>

#include "kppdf/document/KPPDFDocument.h"

std::string KPPDFDocument::newRC4KeyForObjectNumber(uint32_t number, uint32_t generation) const {
    if (encryptKey_.empty())
        return {};
    unsigned char digest[MD5_DIGEST_LENGTH];
    unsigned char extra[5] = {
        static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8),
        static_cast<unsigned char>(number >> 16), static_cast<unsigned char>(generation),
        static_cast<unsigned char>(generation >> 8)};
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, encryptKey_.data(), encryptKey_.size());
    MD5_Update(&context, extra, sizeof extra);
    MD5_Final(digest, &context);
    size_t keyLength = std::min<size_t>(encryptKey_.size() + 5, 16);
    return std::string(reinterpret_cast<char*>(digest), keyLength);
}

bool KPPDFDocument::cryptBytes(std::string& bytes, uint32_t number, uint32_t generation) const {
    std::string key = newRC4KeyForObjectNumber(number, generation);
    if (key.empty())
        return false;
    RC4_KEY state;
    RC4_set_key(&state, static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(key.data()));
    if (!bytes.empty())
        RC4(&state, bytes.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
            reinterpret_cast<unsigned char*>(bytes.data()));
    return true;
}
