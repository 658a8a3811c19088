#pragma once
#include <span>
#include <string_view>

#include "kppdf/objects/KPPDFObject.h"

// A dictionary (type code 6). One read from a file body at top level is parsed only when its
// entries are first asked for; until then it is written back byte for byte.
class KPPDFObjectDictionary : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeDictionary; }
    KPPDFObjectDictionary();
    explicit KPPDFObjectDictionary(KPPDFObjectMap map);
    ~KPPDFObjectDictionary() override;
    // Binds a dictionary to "<<" at offset in data; parses at once when directOnly or contained,
    // lazily otherwise. Null when no "<<" is there.
    static KPPDFRef<KPPDFObjectDictionary> dictionaryAtOffset(uint64_t offset,
                                                              KPPDFDocument* document,
                                                              const KPPDFData& data,
                                                              bool directOnly, bool contained);
    // Holds the map and becomes the container of its entries.
    static KPPDFRef<KPPDFObjectDictionary> dictionaryWithDictionary(KPPDFObjectMap map);

    // The entries, parsed on first call. Edit the map to edit the dictionary.
    KPPDFObjectMap& value();
    void setValue(KPPDFObjectMap map);
    bool parse();
    bool isParsed() const { return parsed_; }
    // The source bytes while the object is still unparsed (written back as they are); empty
    // once it has been parsed or when it was made in memory.
    std::string_view untouchedBytes() const;
    // Where an unparsed dictionary read from a file can be parsed from again: the document's
    // own buffer is shared; any other (a decoded object stream) is copied down to the
    // dictionary's bytes, so that it can go. Empty (null data) once parsed or when made in
    // memory.
    struct Source {
        KPPDFData data;
        uint64_t offset = 0;
        uint32_t length = 0;
    };
    Source source() const;
    // Forgets the parsed entries and goes back to being unparsed, bound to source (taken with
    // source() before parsing), when nothing but this dictionary holds an entry; false, and
    // nothing changed, otherwise. Only for a dictionary that was read, never edited: an edit
    // would be lost. An unparsed dictionary is bound to source instead of the bytes it was read
    // from (its own copy of them, say, instead of a whole decoded object stream).
    bool unparse(Source source);
    bool isDirectOnly() const { return directOnly_; }
    uint64_t offset() const { return offset_; }
    const KPPDFData& objectData() const { return objectData_; }

    // The raw entry for key (not resolved), or null.
    KPPDFRef<KPPDFObject> objectForKey(std::string_view key);
    // Stores an entry and becomes its container; a null object removes the key.
    void setObject(KPPDFRef<KPPDFObject> object, std::string_view key);
    void removeObjectForKey(std::string_view key);
    KPPDFRef<KPPDFObject> resolvedObjectForKey(std::string_view key) override;
    template <class T> KPPDFRef<T> resolvedObjectForKey(std::string_view key) {
        return KPPDFCast<T>(resolvedObjectForKey(key));
    }
    // The entry for key here or in the nearest "Parent" that has it (inherited attributes); an
    // entry without a value (KPPDFObject::hasValue) is no entry, and the lookup goes on past it.
    KPPDFRef<KPPDFObject> objectFromAncestorsForKey(std::string_view key);
    // True when the entry for key has a value (KPPDFObject::hasValue).
    bool hasValueForKey(std::string_view key);
    // The same lookup from parent up, for a dictionary (child) whose own entry is absent.
    static KPPDFRef<KPPDFObject> objectFromParentsForKey(KPPDFRef<KPPDFObjectDictionary> parent,
                                                         std::string_view key,
                                                         const KPPDFObjectDictionary* child);
    // For a dictionary not parsed yet: the raw entries for keys alone, read without parsing the
    // rest, when the dictionary is plain (see KPPDFPlainDictionaryEntries); values[i] stays null
    // for a key it does not have. False, with nothing read, when it is parsed already or is not
    // plain (objectForKey parses it).
    bool peekEntries(std::span<const std::string_view> keys, KPPDFRef<KPPDFObject>* values);
    // Raw "Type" and "Subtype" entries.
    KPPDFRef<KPPDFObject> type() { return objectForKey("Type"); }
    KPPDFRef<KPPDFObject> subtype() { return objectForKey("Subtype"); }
    // True when the resolved entry is the name given.
    bool hasName(std::string_view key, std::string_view name);
    // Resolves every entry (so that all references it holds cache their targets). Resolving
    // the dictionary itself (KPPDFObject::resolve) does not do this: it would parse every
    // dictionary that a reference leads to, and untouched objects must stay untouched.
    void resolveEntries();
    // A new dictionary: this one's entries with other's merged in (nested dictionaries merged,
    // arrays concatenated, other kinds kept from this one; keys only other has are added).
    KPPDFRef<KPPDFObjectDictionary> mergeWithDictionary(KPPDFObjectDictionary& other);

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
    bool parsed_ = false;
    KPPDFObjectMap map_;
};
