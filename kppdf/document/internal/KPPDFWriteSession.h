#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"

class KPPDFDocument;
class KPPDFObjectReference;

// The objects of a file being written, numbered from 1 in the order they are added. Adding an
// object and then following its references numbers everything it reaches, once; untouched
// objects are followed by scanning their bytes, so they are never parsed. Objects of the
// document that nothing had read are numbered by their old number alone: they are read for a
// moment to follow their references and again to be copied, and are let go in between, so a
// large file is never all in memory. While the session is the writers' context, every
// reference is written with its target's new number.
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

    bool numberForObject(const KPPDFObject* target, uint32_t* number,
                         uint32_t* generation) override;
    bool numberForReference(KPPDFDocument* document, uint32_t number, uint32_t generation,
                            uint32_t* newNumber, uint32_t* newGeneration) override;
    bool numberWithoutReading(KPPDFDocument* document, uint32_t number, uint32_t* newNumber,
                              uint32_t* newGeneration) override;

    // Takes the bytes written so far, in order; false stops the writing.
    using Sink = std::function<bool(std::string_view)>;
    // Header, objects, cross-reference table, trailer (whose entries are given; Size is set),
    // with the document's line end, appended to out. encryptDictionary (when not null) is
    // written plain. With a sink, out is handed to it whenever it holds a megabyte or more and
    // at the end, so the file is never whole in memory; false when the sink refused bytes.
    bool write(KPPDFObjectDictionary& trailer, const KPPDFObject* encryptDictionary,
               std::string& out, const Sink* sink = nullptr);

private:
    // Adds the targets of the references that object holds.
    void followObject(KPPDFObject* object);
    KPPDFRef<KPPDFObject> targetOf(KPPDFDocument* document, uint32_t number);
    // Adds the object numbered number in document (by its number alone when it is unread).
    void addNumber(KPPDFDocument* document, uint32_t number);
    // The new number of the document's object numbered number when it was added by its number
    // or is that entry's object; 0 otherwise.
    uint32_t tableNumber(uint32_t number) const {
        return number < tableNumbers_.size() ? tableNumbers_[number] : 0;
    }
    uint32_t tableNumberOf(const KPPDFObject* object) const;

    KPPDFDocument& document_;
    // Number i is objects_[i - 1], or, when that is null, the document's object numbered
    // oldNumbers_[i - 1].
    std::vector<KPPDFRef<KPPDFObject>> objects_;
    std::vector<uint32_t> oldNumbers_;
    // Old number -> new number of the document's objects added by number.
    std::vector<uint32_t> tableNumbers_;
    // Bytes the objects added by number take where they are (known once followed).
    size_t unreadLength_ = 0;
    std::unordered_map<const KPPDFObject*, uint32_t> numbers_;
    std::unordered_map<const KPPDFObject*, KPPDFRef<KPPDFObject>> substitutes_;
    std::unordered_set<const KPPDFObject*> deferred_;
    size_t followed_ = 0;
    std::string eolText_;
    std::vector<KPPDFRef<KPPDFObjectReference>> madeReferences_;
};
