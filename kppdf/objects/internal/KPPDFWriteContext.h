#pragma once
#include <cstdint>
#include <string>
#include <string_view>

class KPPDFData;
class KPPDFDocument;
class KPPDFObject;

// While a document writer serialises objects into a new file, objects get new numbers. The
// writer installs a context for the time it writes; references then write the new numbers of
// their targets, untouched objects copied as they stand get their references renumbered, and
// strings and streams are encrypted with the key of the object being written.
class KPPDFWriteContext {
public:
    virtual ~KPPDFWriteContext() = default;
    // The new number of an object (a reference's resolved target); false when it is not
    // written, and the reference is written as null.
    virtual bool numberForObject(const KPPDFObject* target, uint32_t* number,
                                 uint32_t* generation) = 0;
    // The same for "N G R" found in the bytes of an object of document.
    virtual bool numberForReference(KPPDFDocument* document, uint32_t number,
                                    uint32_t generation, uint32_t* newNumber,
                                    uint32_t* newGeneration) = 0;
    // The new number of the object numbered number in document when the writer knows it
    // without reading the object (one it copies straight from the file); false: look the
    // target up and ask numberForObject.
    virtual bool numberWithoutReading(KPPDFDocument*, uint32_t, uint32_t*, uint32_t*) {
        return false;
    }

    // Number and generation of the indirect object being written (0 for the trailer): the key
    // of its strings and streams when the file is encrypted.
    uint32_t currentNumber = 0;
    uint32_t currentGeneration = 0;
    // The document whose key encrypts output; null writes plain.
    KPPDFDocument* encryptingDocument = nullptr;
    // The line end of the file being written (zero-terminated).
    const char* eol = "\n";

    // The context in force on this thread, or null outside a writer.
    static KPPDFWriteContext* current();
    // Installs a context for the life of the guard.
    class Scope {
    public:
        explicit Scope(KPPDFWriteContext* context);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        KPPDFWriteContext* previous_;
    };
};

// Appends the bytes of an untouched object (length bytes of data at offset), with its
// references renumbered when a writer's context is in force, and its strings decrypted or
// encrypted as the object's document and the writer require.
void KPPDFAppendUntouchedObject(KPPDFObject& object, const KPPDFData& data, uint64_t offset,
                                uint64_t length, std::string& out);
