#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kppdf/document/KPPDFSearchResult.h"
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFGeometry.h"

class KPPDFObjectArray;
class KPPDFObjectDictionary;
class KPPDFObjectStream;
class KPPDFTrailer;
class KPPDFWriteSession;
class KPPDFCompressedObjects;
class KPPDFPage;
class KPPDFOutline;
class KPPDFDestination;
class KPPDFFont;

// Results of opening a document.
enum : int32_t {
    KPPDFDocumentOpened = 0,
    KPPDFDocumentPasswordNeeded = 1, // encrypted; the empty user password does not open it
    KPPDFDocumentNotPDF = 2,         // header or cross-reference chain unusable
    KPPDFDocumentUnsupportedSecurity = 3,
};

// The 32-byte password padding of the Standard security handler (ISO 32000-1, 7.6.3.3,
// algorithm 2, step a).
extern const uint8_t KPPDFDocumentStandardEncryptPad[32];

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

    // ---- Opening (KPPDFDocumentOpening.cpp) ----
    // Opens a document from bytes. *result (may be null) gets one of the codes above. Null for
    // result 2; for results 1 and 3 the document is returned, not opened beyond the trailer.
    // Empty data gives an empty document and result 0.
    static KPPDFRef<KPPDFDocument> documentWithData(const KPPDFData& data, int32_t* result);
    // The same for a file (memory-mapped); a file that cannot be read gives null and result 2.
    static KPPDFRef<KPPDFDocument> documentWithContentsOfFile(const std::string& path,
                                                              int32_t* result);
    // Runs the opening sequence on this (freshly constructed) document; returns the result code.
    int32_t initWithData(const KPPDFData& data);
    // Header check; learns the version and the line end. False when it is not a PDF header.
    bool versionAndEOF();
    // Reads the cross-reference chain and fills the object table. False when unusable.
    bool workTrailer();
    // After docData has been replaced by a writer: reads header, trailer chain and pages again.
    void refreshDocData();
    const KPPDFRef<KPPDFTrailer>& trailer() const { return trailer_; }
    const KPPDFRef<KPPDFObjectDictionary>& rootObject() const { return rootObject_; }
    void setRootObject(KPPDFRef<KPPDFObjectDictionary> root) { rootObject_ = std::move(root); }
    const KPPDFRef<KPPDFObjectDictionary>& pagesObject() const { return pagesObject_; }
    void setPagesObject(KPPDFRef<KPPDFObjectDictionary> pages) { pagesObject_ = std::move(pages); }
    uint64_t startxref() const { return startxref_; }
    float elapsed() const { return elapsed_; }
    const KPPDFRef<KPPDFObjectArray>& docID() const { return docID_; }
    // True when the cross-reference data was unusable and objects were found by scanning.
    bool isRepaired() const { return repaired_; }
    // Loads an object kept in an object stream (ISO 32000-1, 7.5.7); null when it cannot be had.
    // References call it for table entries that are compressed.
    KPPDFRef<KPPDFObject> compressedObject(uint32_t number);
    // While the page-tree walk reads most of the object streams, a second thread inflates them
    // ahead of it (not in encrypted files, nor in small ones).
    void startInflatingAhead();
    void stopInflatingAhead();

    // ---- Pages, names, destinations, outline (KPPDFDocumentPageTree.cpp) ----
    // Deeper page tree nodes, name tree nodes and outline items are skipped with a log line.
    static constexpr int kMaxPageTreeDepth = 1024;
    static constexpr int kMaxNameTreeDepth = 1024;
    static constexpr int kMaxOutlineDepth = 256;
    // Rebuilds the page list from the page tree; true when a page's imprint set-up changed it.
    bool prepPages();
    // The page tree root's Count, when it is a number of at least 0.
    bool declaredPageCount(uint32_t* count);
    // The object streams a walk of the page tree will inflate, in the order it first needs
    // them: the tree's nodes are read (and their streams inflated), the pages are not; a kid of
    // a node whose Count says it has pages alone is taken for a page unread. With each stream,
    // how many of its first objects the walk reads there (its kids' highest index, plus one).
    std::vector<std::pair<uint32_t, uint32_t>> forecastObjectStreams();
    // The object stream that holds the first page, found down the first kids of the page tree
    // without reading the page; 0 when the way down leaves the object streams or is not plain.
    uint32_t firstPageStream();
    // Appends the page tree's intermediate nodes and leaf page dictionaries below kids.
    void processKids(const KPPDFRef<KPPDFObjectArray>& kids, KPPDFObjectList& pagesObjects,
                     std::vector<KPPDFRef<KPPDFObjectDictionary>>& pageObjects);
    // Reads the named destinations now (dests() reads them on its first call otherwise).
    void processDests();
    void processNameTree(const KPPDFRef<KPPDFObjectDictionary>& node, KPPDFObjectMap& into);
    // Named destinations (name or string key to object); empty when the document has none.
    // Read from the catalog on the first call: a hyperref file holds thousands of them, which
    // most users of a document never look at.
    KPPDFObjectMap& dests() {
        if (!destsRead_)
            processDests();
        return dests_;
    }
    // A destination name (string or name) turned into its destination array; other objects
    // are returned unchanged; null for an unknown name.
    KPPDFRef<KPPDFObject> resolveDestination(const KPPDFRef<KPPDFObject>& object);
    // Reads the outline now unless it has been read (outlines() reads it on its first call).
    void processOutline();
    void processOutlineLevel(const KPPDFRef<KPPDFObjectDictionary>& first,
                             const KPPDFRef<KPPDFOutline>& parent);
    // The outline's root item; null when the document has no outline. Read on the first call.
    const KPPDFRef<KPPDFOutline>& outlines() {
        if (!outlineRead_)
            processOutline();
        return outlines_;
    }
    // The page whose dictionary the object (a reference, or an object with a number) names.
    KPPDFRef<KPPDFPage> pageForReference(const KPPDFRef<KPPDFObject>& object);
    uint32_t pageCount() const { return static_cast<uint32_t>(pages_.size()); }
    // Null when index is out of range.
    KPPDFRef<KPPDFPage> pageAtIndex(uint32_t index) const;
    std::vector<KPPDFRef<KPPDFPage>>& pages() { return pages_; }
    void insertPage(KPPDFRef<KPPDFPage> page, uint32_t index);
    void removePageAtIndex(uint32_t index);
    void setPagesFromArray(std::vector<KPPDFRef<KPPDFPage>> pages);
    // True when some page has a form widget among its imprints.
    bool hasFields();
    // Visible size of a page (crop box, else media box), swapped for 90 and 270 degrees.
    static KPPDFSize pageSizeForPage(KPPDFPage& page);
    static KPPDFAffineTransform pageTransformForRotation(float rotation, KPPDFSize size);

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
    void setDocData(const KPPDFData& data) {
        docData_ = data;
        decryptedAtOpening_ = false;
    }
    // True while the working bytes are the plain complete file made when an encrypted file was
    // opened with its password: saved without encryption and unchanged, the document writes
    // those very bytes again. Says nothing of changes made to the objects since.
    bool decryptedAtOpening() const { return decryptedAtOpening_; }
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
    // Runs RC4 in place over bytes from offset on, with the key of one object. False without
    // a key.
    bool cryptBytes(std::string& bytes, uint32_t number, uint32_t generation,
                    size_t offset = 0) const;

    // ---- Text search (KPPDFDocumentSearch.cpp) ----
    // Every occurrence of text (UTF-8) on the page at pageIndex, in page-string order, not
    // overlapping. A run of white space in text matches any run of white space, the line break
    // between two lines included. options: KPPDFSearch... flags. The page is prepared for
    // selection first, so positions stay valid. Empty for empty text or a page out of range.
    std::vector<KPPDFSearchResult> findStringOnPage(std::string_view text, uint32_t pageIndex,
                                                    uint32_t options = 0);
    // The same on every page, page after page.
    std::vector<KPPDFSearchResult> findString(std::string_view text, uint32_t options = 0);

    // ---- Fonts shared by the pages (KPPDFDocumentFonts.cpp) ----
    // Adds a font to the document's list (null is ignored); the list keeps it.
    void addFont(const KPPDFRef<KPPDFFont>& font);
    // The first listed font whose font dictionary is the same object; null when none is.
    KPPDFRef<KPPDFFont> lookupFont(const KPPDFRef<KPPDFObjectDictionary>& fontDictionary) const;
    const std::vector<KPPDFRef<KPPDFFont>>& docFonts() const { return docFonts_; }

    // ---- Writing (KPPDFDocumentWriter.cpp, KPPDFDocumentTransplant.cpp) ----
    // The bytes of a complete new file with every page's imprints written in (imprints true),
    // numbered from 1 and encrypted when the document is to be; or (imprints false) the
    // working bytes with one update section appended that holds the pages without overlays.
    // compression is passed on to image handling. Empty when the document has no catalog.
    std::string currentDataWithImprints(bool imprints, int32_t compression = 0);
    // The complete new file of currentDataWithImprints(true, compression) handed to sink a
    // piece at a time as it is written, so that it is never whole in memory (or, when whole
    // is not null, appended to *whole instead). False when there is no catalog or the sink
    // returned false (writing stops there).
    bool writeDataWithImprints(const std::function<bool(std::string_view)>& sink,
                               int32_t compression = 0, std::string* whole = nullptr);
    // Writes currentDataWithImprints(true, options "compression") to a new file as it is
    // made, which then replaces path (path may be the file the document was opened from);
    // false, with a log line, when there is nothing to write or the file cannot be written,
    // and path is left as it was.
    bool writeUpdatedDocument(const std::string& path,
                              const std::map<std::string, double>& options = {});
    // The object table as one flat file, each object under its own number.
    std::string changedDocData();
    // Collapses the update sections of the working bytes into one file.
    void updateDocData();
    // 16 bytes of a new UUID.
    static std::string uuidData();
    // True when the file at path is a JPEG image (its header reads as one); false for a file
    // that cannot be opened or is anything else. A content imprint whose dictionary names such
    // a file under "filename" has its image written as the file's bytes.
    static bool isJPEG(const std::string& path);
    // The first element of the file identifier as text, or empty.
    std::string permanentID();
    // Copies one page for a complete new file into session: its dictionary with its inherited
    // attributes, contents without earlier overlays, its imprints written in; references to
    // the old page lead to the copy from then on. Returns the copy (not yet in the page tree).
    KPPDFRef<KPPDFObjectDictionary> transplantPage(KPPDFPage& page, bool withImprints,
                                                   KPPDFWriteSession& session,
                                                   const KPPDFRef<KPPDFObjectDictionary>& newPagesObject,
                                                   float compression);

    // ---- Security (KPPDFDocumentSecurity.cpp) ----
    const KPPDFRef<KPPDFObjectDictionary>& encryptDictionary() const { return encryptDictionary_; }
    bool isOwner() const { return isOwner_; }
    int32_t accessPermissions() const { return accessPermissions_; }
    // The password as 32 bytes (ISO 32000-1, 7.6.3.3, algorithm 2, step a): its first 32 bytes
    // in Latin-1 (UTF-8 when it has other characters), then the standard padding.
    static std::string fixPassword(std::string_view password);
    // The file key for a password (algorithm 2, without the metadata step); padded: password is
    // already 32 padded bytes. Empty without an encryption dictionary.
    std::string computeKeyForPassword(std::string_view password, int32_t revision,
                                      bool padded = false);
    // The 32 bytes of "O" for an owner and a user password (algorithm 3).
    std::string ownerValueFor(std::string_view ownerPassword, std::string_view userPassword,
                              int32_t revision);
    // The 32 bytes of "U" for a password (algorithms 4 and 5; revision 3 fills the last 16 with
    // zeros, which are never compared); 32 zero bytes for other revisions.
    std::string userValueFor(std::string_view password, int32_t revision, bool padded = false);
    // Checks a password as owner, then as user password, of the Standard security handler with
    // V 1 or 2. 0: accepted (the key is set, strings and streams decrypt themselves when read);
    // 1: refused, nothing changed.
    int32_t validatePassword(const std::string& password);
    // New passwords for saving (RC4). An owner giving two empty passwords removes encryption;
    // otherwise the kept encryption dictionary (or a new 40-bit one) gets new O, U and P and the
    // document is saved encrypted.
    void setUserPassword(const std::string& userPassword, const std::string& ownerPassword,
                         int32_t permissions);
    // The document is saved without encryption from now on.
    void removeEncryption();

protected:
    friend class KPPDFTrailer;
    friend class KPPDFWriteSession;

    // Counts bytes of the file read in long passes (object streams decoded, objects followed or
    // copied by the writer); every few megabytes the file's pages are dropped from memory, as
    // each was needed for a moment only.
    void noteFileBytesRead(uint64_t length);
    // The same for a small read at offset (an object's header, say), counted once per stretch
    // of the file that a read brings in.
    void noteFileOffsetRead(uint64_t offset);
    // The file is encrypted (its trailer has "Encrypt"), whether or not the key is known yet.
    bool trailerHasEncrypt() const;
    // For the writer, which copies most of a file's objects once each: true when nothing has
    // looked the object up yet (the table holds only its place).
    bool isUnread(uint32_t number) const;
    // The object of the table's entry number, or null when the entry holds nothing read.
    const KPPDFObject* readEntry(uint32_t number) const {
        return number < table_.size() ? table_[number].get() : nullptr;
    }
    // Calls use with the object numbered number (null when there is none). An object that was
    // unread before, and that nothing took hold of meanwhile, is let go again afterwards, so
    // that objects used for a moment do not stay in memory.
    void useObject(uint32_t number, const std::function<void(KPPDFObject*)>& use);

    // The working bytes with an update section appended that holds the pages without the
    // overlays of their stored imprints (currentDataWithImprints with imprints false).
    std::string dataWithoutImprints();

    // Clears cached targets and back-links of every object the document reached.
    void disconnectObjects();
    // Records an object of the cross-reference data: position is the byte offset of its first
    // token, 0 when it is kept in an object stream. Its placeholder reference is made when the
    // number is first looked up, so that opening allocates nothing per object.
    void enterPlaceholder(uint32_t number, uint32_t generation, uint32_t position);
    // Grows the table (and its placeholder records) to hold number.
    void growTable(uint32_t number);
    // Opening steps (KPPDFDocumentOpening.cpp): the cross-reference chain into the table (false
    // when unusable), and the fresh file identifier.
    bool readCrossReferences(uint64_t offset, bool hasXref);
    void makeDocID();
    // The last step of opening: the page list; named destinations and outline to be read.
    void processStructure();
    void readOutlineBeforePageEdit();
    // Moves the table's objects aside (kept alive, disconnected with the document), so that
    // the table can be filled again from the same or new bytes.
    void retireObjects();
    // Reads the trailer chain again once the key is known, so that every string and stream is
    // parsed anew and decrypts itself; the encryption dictionary keeps its plain strings.
    void reloadForDecryption();
    // Reads the trailer's "Encrypt" and tries the empty user password; returns the opening
    // result (0, 1 password needed, 3 unsupported handler).
    int32_t setUpSecurity();
    // True for the Standard handler with V 1 or 2; revision gets "R" (2 when absent).
    bool isStandardSecurity(int32_t* revision);

    std::string pdfVersion_;
    KPPDFData docData_;
    char eol_[3] = {'\n', 0, 0};
    int32_t eolLength_ = 1;
    // The object table, by number. Entries not yet looked up are null and have their place
    // recorded in pending_ (generation kNoPlaceholder: none).
    struct PendingEntry {
        uint32_t position = 0;
        uint32_t generation = kNoPlaceholder;
    };
    static constexpr uint32_t kNoPlaceholder = UINT32_MAX;
    mutable std::vector<KPPDFRef<KPPDFObject>> table_;
    std::vector<PendingEntry> pending_;
    uint32_t objectCount_ = 0;
    uint32_t nameCount_ = 0;
    bool decryptedAtOpening_ = false;
    uint64_t fileBytesSinceRelease_ = 0;
    uint64_t lastWindowRead_ = UINT64_MAX;
    std::string encryptKey_;
    int32_t encryptionStatus_ = 0;
    std::string path_;

    KPPDFRef<KPPDFTrailer> trailer_;
    KPPDFRef<KPPDFObjectDictionary> rootObject_;
    KPPDFRef<KPPDFObjectDictionary> pagesObject_;
    uint64_t startxref_ = 0;
    float elapsed_ = 0;
    KPPDFRef<KPPDFObjectArray> docID_;
    bool repaired_ = false;

    std::vector<KPPDFRef<KPPDFPage>> pages_;
    // pageForReference's index: (number << 32 | generation) to position in pages_.
    std::unordered_map<uint64_t, uint32_t> pageIndex_;
    size_t pageIndexSize_ = SIZE_MAX;
    bool pageIndexStale_ = false;
    KPPDFObjectMap dests_;
    KPPDFRef<KPPDFOutline> outlines_;
    // Named destinations and the outline are read on first use once opening has got as far as
    // the pages (it clears these); a document not opened that far has none.
    bool destsRead_ = true;
    bool outlineRead_ = true;

    KPPDFRef<KPPDFObjectDictionary> encryptDictionary_;
    bool isOwner_ = false;
    int32_t accessPermissions_ = -4;

    // Objects kept in object streams, made when the first one is found.
    KPPDFRef<KPPDFCompressedObjects> compressedObjects_;
    // Objects of an earlier reading of the table that callers may still hold.
    std::vector<KPPDFRef<KPPDFObject>> retiredObjects_;

    std::vector<KPPDFRef<KPPDFFont>> docFonts_;
};
