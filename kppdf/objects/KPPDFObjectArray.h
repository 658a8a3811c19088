#pragma once
#include "kppdf/objects/KPPDFObject.h"

// An array (type code 5). One read from a file body at top level is parsed only when its
// elements are first asked for; until then it is written back byte for byte.
class KPPDFObjectArray : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeArray; }
    KPPDFObjectArray();
    explicit KPPDFObjectArray(KPPDFObjectList list);
    ~KPPDFObjectArray() override;
    // Binds an array to "[" at offset in data; parses at once when directOnly, inText or
    // contained, lazily otherwise. Null when no "[" is there.
    static KPPDFRef<KPPDFObjectArray> arrayAtOffset(uint64_t offset, KPPDFDocument* document,
                                                    const KPPDFData& data, bool directOnly,
                                                    bool inText, bool contained);
    // Holds the list as it is (element containers are left alone).
    static KPPDFRef<KPPDFObjectArray> arrayWithArray(KPPDFObjectList list);

    // The elements, parsed on first call. Edit the list to edit the array.
    KPPDFObjectList& value();
    void setValue(KPPDFObjectList list);
    // Element count, and element i resolved (null when out of range).
    size_t count() { return value().size(); }
    KPPDFRef<KPPDFObject> resolvedObjectAtIndex(size_t index);
    // Appends and makes this array the element's container.
    void addObject(KPPDFRef<KPPDFObject> object);
    bool parse();
    bool isParsed() const { return parsed_; }
    // While unparsed and plain with numbers alone (KPPDFPlainArrayNumbers): their values, as
    // the parsed elements' realValue() would give them, without parsing. False otherwise.
    bool plainNumbers(float* values, size_t capacity, size_t* count) const;
    // Still unread, takes a copy of its own bytes unless data (the buffer it was read from) is
    // its document's file: the container that read it from a decoded object stream can then
    // let that buffer go.
    void keepOwnBytes();
    // The source bytes while the object is still unparsed (written back as they are); empty
    // once it has been parsed or when it was made in memory.
    std::string_view untouchedBytes() const;
    bool isDirectOnly() const { return directOnly_; }
    bool isInText() const { return inText_; }
    uint64_t offset() const { return offset_; }

    bool appendDirectObject(std::string& out) override;
    KPPDFAttributedString attributedObject() override;
    KPPDFRef<KPPDFObject> copy() const override;
    KPPDFObjectList subobjects(KPPDFVisitedSet& visited) override;
    void markSubobjects(KPPDFMarkBytes& marks) override;
    void fixReferences(const KPPDFReferenceFixMap& map) override;
    void setDocument(KPPDFDocument* document) override;
    void setContainer(KPPDFObject* container) override;
    std::string description() const override;
    void disconnect() override;

private:
    uint64_t offset_ = 0;
    KPPDFData objectData_;
    bool directOnly_ = false;
    bool inText_ = false;
    bool parsed_ = false;
    KPPDFObjectList list_;
};
