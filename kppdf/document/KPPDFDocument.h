#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/platform/KPPDFData.h"

class KPPDFObjectArray;
class KPPDFObjectDictionary;

// A PDF document: its bytes, the object table that indirect references resolve through, and
// the object parser that turns bytes at an offset into objects.
class KPPDFDocument {
public:
    // Object numbers above this are refused (the implementation limit of ISO 32000-1, Annex C).
    static constexpr uint32_t kMaxObjectNumber = 8388607;
    // Arrays and dictionaries nested deeper than this fail to parse.
    static constexpr int kMaxParseDepth = 256;

    KPPDFDocument();
    virtual ~KPPDFDocument();
    KPPDFDocument(const KPPDFDocument&) = delete;
    KPPDFDocument& operator=(const KPPDFDocument&) = delete;

    // ---- Object parser ----
    // Parses the object that starts at offset in data (after whitespace and comments).
    // directOnly: data is self-contained text (content streams, decoded buffers): references are
    // not recognised, strings are read from data and never decrypted, and an unknown first byte
    // gives null. contained: the object is nested, so arrays and dictionaries parse at once.
    // Null when nothing parsable starts there.
    KPPDFRef<KPPDFObject> objectAtOffset(uint64_t offset, const KPPDFData& data, bool directOnly,
                                         bool contained) {
        return parseObject(this, offset, data, directOnly, contained);
    }
    // The parser itself; document may be null for bytes that belong to no document (references
    // are then not recognised in the body either, since they could not resolve).
    static KPPDFRef<KPPDFObject> parseObject(KPPDFDocument* document, uint64_t offset,
                                             const KPPDFData& data, bool directOnly,
                                             bool contained);
    static KPPDFRef<KPPDFObject> parseNumber(KPPDFDocument* document, uint64_t offset,
                                             const KPPDFData& data, bool directOnly);
    KPPDFRef<KPPDFObject> objectAtOffset(uint64_t offset, const KPPDFData& data, bool directOnly) {
        return objectAtOffset(offset, data, directOnly, directOnly);
    }
    // An indirect object's body at its position in docData.
    KPPDFRef<KPPDFObject> objectAtOffset(uint64_t offset) {
        return objectAtOffset(offset, docData_, false, false);
    }
    // A number, or in the file body a reference "N G R" that starts with one.
    KPPDFRef<KPPDFObject> numberAtOffset(uint64_t offset, const KPPDFData& data, bool directOnly) {
        return parseNumber(this, offset, data, directOnly);
    }
    // A fresh resource name for imprints: "ParvelFlattened%lu" or "ParvelImprint%lu".
    std::string createName(bool flattened);
    uint32_t nameCount() const { return nameCount_; }

    // ---- Object table (keyed by object number; the generation is kept on the objects) ----
    // Stores object under number (0 is ignored) and stamps its number and generation.
    void setObject(const KPPDFRef<KPPDFObject>& object, uint32_t number, uint32_t generation);
    KPPDFRef<KPPDFObject> objectWithNumber(uint32_t number, uint32_t generation = 0) const;
    uint32_t objectCount() const { return objectCount_; }
    void setObjectCount(uint32_t count) { objectCount_ = count; }
    // One past the highest number in the table.
    uint32_t tableSize() const { return static_cast<uint32_t>(table_.size()); }

    // ---- Bytes and line ends ----
    const KPPDFData& docData() const { return docData_; }
    void setDocData(const KPPDFData& data) { docData_ = data; }
    // The line end of the file's first line (LF, CR or CR LF); writers use it.
    const char* EOL() const { return eol_; }
    int32_t EOLLength() const { return eolLength_; }
    void setEOL(const char* eol, int32_t length);
    const std::string& pdfVersion() const { return pdfVersion_; }
    void setPDFVersion(std::string version) { pdfVersion_ = std::move(version); }
    const std::string& path() const { return path_; }
    void setPath(std::string path) { path_ = std::move(path); }

    // ---- Security hooks used by strings and streams ----
    // 0 none, 1 decrypt when reading, 2 encrypt when writing.
    int32_t encryptionStatus() const { return encryptionStatus_; }
    void setEncryptionStatus(int32_t status) { encryptionStatus_ = status; }
    const std::string& encryptKey() const { return encryptKey_; }
    void setEncryptKey(std::string key) { encryptKey_ = std::move(key); }
    // The RC4 key bytes for one object (ISO 32000-1, 7.6.2, algorithm 1); empty without a key.
    std::string newRC4KeyForObjectNumber(uint32_t number, uint32_t generation) const;
    // Runs RC4 over bytes in place with the key of one object. False without a key.
    bool cryptBytes(std::string& bytes, uint32_t number, uint32_t generation) const;

protected:
    // Clears cached targets and back-links of every object the document reached.
    void disconnectObjects();

    std::string pdfVersion_;
    KPPDFData docData_;
    char eol_[3] = {'\n', 0, 0};
    int32_t eolLength_ = 1;
    std::vector<KPPDFRef<KPPDFObject>> table_;
    uint32_t objectCount_ = 0;
    uint32_t nameCount_ = 0;
    std::string encryptKey_;
    int32_t encryptionStatus_ = 0;
    std::string path_;
};
