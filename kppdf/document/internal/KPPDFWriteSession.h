#pragma once
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"

class KPPDFDocument;
class KPPDFObjectReference;

// The objects of a file being written, numbered from 1 in the order they are added. Adding an
// object and then following its references numbers everything it reaches, once; untouched
// objects are followed by scanning their bytes, so they are never parsed. While the session is
// the writers' context, every reference is written with its target's new number.
class KPPDFWriteSession : public KPPDFWriteContext {
public:
    explicit KPPDFWriteSession(KPPDFDocument& document);
    // Cuts the references the writer made, which tie its new objects into cycles (a page and
    // its new parent), so that they go away with the session.
    ~KPPDFWriteSession() override;
    // A reference to an object made for the new file; the session keeps it to cut it later.
    KPPDFRef<KPPDFObjectReference> referenceTo(const KPPDFRef<KPPDFObject>& object);

    // Writes stand instead of an object wherever it is referred to (an old page by its copy).
    void substitute(const KPPDFObject* old, const KPPDFRef<KPPDFObject>& replacement);
    // An object that a substitute will stand for later (a page not copied yet): until then,
    // references to it do not add it.
    void defer(const KPPDFObject* old);
    // The object's number, adding it when new; 0 for an object deferred and not yet substituted.
    uint32_t add(const KPPDFRef<KPPDFObject>& object);
    // Adds everything the objects added so far refer to, and what that refers to, and so on.
    void follow();
    // The written objects; number i is objects()[i - 1].
    const std::vector<KPPDFRef<KPPDFObject>>& objects() const { return objects_; }

    bool numberForObject(const KPPDFObject* target, uint32_t* number,
                         uint32_t* generation) override;
    bool numberForReference(KPPDFDocument* document, uint32_t number, uint32_t generation,
                            uint32_t* newNumber, uint32_t* newGeneration) override;

    // Header, objects, cross-reference table, trailer (whose entries are given; Size is set),
    // with the document's line end. encryptDictionary (when not null) is written plain.
    std::string write(KPPDFObjectDictionary& trailer, const KPPDFObject* encryptDictionary);

private:
    // Adds the targets of the references that object holds.
    void followObject(KPPDFObject* object);
    KPPDFRef<KPPDFObject> targetOf(KPPDFDocument* document, uint32_t number);

    KPPDFDocument& document_;
    std::vector<KPPDFRef<KPPDFObject>> objects_;
    std::unordered_map<const KPPDFObject*, uint32_t> numbers_;
    std::unordered_map<const KPPDFObject*, KPPDFRef<KPPDFObject>> substitutes_;
    std::unordered_set<const KPPDFObject*> deferred_;
    size_t followed_ = 0;
    std::string eolText_;
    std::vector<KPPDFRef<KPPDFObjectReference>> madeReferences_;
};
