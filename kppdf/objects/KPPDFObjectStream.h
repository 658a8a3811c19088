#pragma once
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"

// A stream (type code 9): a dictionary and a run of bytes. A stream read from a file keeps the
// file's bytes and the range of its data; decoding through the filter chain happens on request
// and is cached.
class KPPDFObjectStream : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeStream; }
    KPPDFObjectStream();
    // offset: the "stream" keyword in the document's bytes. Null when the keyword is not there.
    static KPPDFRef<KPPDFObjectStream> streamAtOffset(uint64_t offset, KPPDFDocument* document,
                                                      KPPDFRef<KPPDFObjectDictionary> dictionary);
    // The same in another buffer (an object stream's or a content stream's bytes).
    static KPPDFRef<KPPDFObjectStream> streamAtOffset(uint64_t offset, KPPDFDocument* document,
                                                      const KPPDFData& data,
                                                      KPPDFRef<KPPDFObjectDictionary> dictionary);
    static KPPDFRef<KPPDFObjectStream> streamWithData(const KPPDFData& data, KPPDFRange range);
    static KPPDFRef<KPPDFObjectStream> streamWithDictionary(KPPDFRef<KPPDFObjectDictionary> dictionary,
                                                            const KPPDFData& data, KPPDFRange range);
    // Where a stream's data starts: after the "stream" keyword at offset in data and its line
    // end (CR LF or LF; *crAlone tells a CR alone, which is taken for the line end too).
    static uint64_t dataStart(const KPPDFData& data, uint64_t offset, bool* crAlone = nullptr);
    // True when declared bytes from start end the data: "endstream" follows them, after an
    // optional line end; *end then gets the offset one past the keyword.
    static bool declaredLengthEnds(const KPPDFData& data, uint64_t start, uint64_t declared,
                                   uint64_t* end);
    // A FlateDecode stream holding data compressed; null when compression fails.
    static KPPDFRef<KPPDFObjectStream> streamByDeflatingData(std::string_view data);

    // The stream's bytes as stored (decrypted first when the document needs it).
    KPPDFData rawData();
    void setRawData(const KPPDFData& data);
    // New stored bytes; "Length" follows them.
    void updateRawData(const KPPDFData& data);
    KPPDFRange range() const { return streamRange_; }
    void setRange(KPPDFRange range) { streamRange_ = range; }
    const KPPDFRef<KPPDFObjectDictionary>& dictionary() const { return dictionary_; }
    void setDictionary(KPPDFRef<KPPDFObjectDictionary> dictionary);
    // The bytes after the filter chain (cached). Unknown filters give empty bytes.
    KPPDFData decodedData();
    // Drops the cached decoded bytes.
    void releaseDecodedData() { decodedData_ = KPPDFData(); }

    KPPDFRef<KPPDFObject> resolvedObjectForKey(std::string_view key) override;
    bool appendDirectObject(std::string& out) override;
    KPPDFAttributedString attributedObject() override;
    KPPDFRef<KPPDFObject> copy() const override;
    KPPDFObjectList subobjects(KPPDFVisitedSet& visited) override;
    void markSubobjects(KPPDFMarkBytes& marks) override;
    void fixReferences(const KPPDFReferenceFixMap& map) override;
    void setDocument(KPPDFDocument* document) override;
    std::string description() const override;
    void disconnect() override;

private:
    bool readAtOffset(uint64_t offset, const KPPDFData& data);
    bool needsDecryption() const;
    // The stored bytes of the range, with no decryption.
    std::string_view rangeBytes() const;

    KPPDFRef<KPPDFObjectDictionary> dictionary_;
    KPPDFData rawData_;
    KPPDFRange streamRange_;
    KPPDFData decodedData_;
    bool decrypted_ = true;
};
