#pragma once
#include "kppdf/objects/KPPDFObject.h"

// A PDF string (type code 3), literal "(...)" or hexadecimal "<...>", written back in the form
// it was read in. Strings of an encrypted document decrypt themselves on first access and
// encrypt themselves when written while the document is saving encrypted.
class KPPDFObjectString : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeString; }
    enum : int32_t { kStringTypeLiteral = 1, kStringTypeHex = 2, kStringTypeDetect = 3 };

    KPPDFObjectString();
    // Reads a string at offset: from the document's bytes when document is given (the string
    // then belongs to it and may be decrypted), else from data. dataOnly keeps the value as
    // bytes instead of text. Null when no string starts there.
    static KPPDFRef<KPPDFObjectString> stringAtOffset(uint64_t offset, KPPDFDocument* document,
                                                      const KPPDFData& data, int32_t stringType,
                                                      bool dataOnly = false);
    // A literal string holding text (UTF-8); UTF-16 when it is not Latin-1.
    static KPPDFRef<KPPDFObjectString> stringWithString(std::string_view text);
    // A hexadecimal string holding bytes.
    static KPPDFRef<KPPDFObjectString> stringWithData(std::string_view bytes);

    // The value: text (UTF-8) when valueIsText(), else bytes. Decrypts on first access.
    const std::string& value();
    bool valueIsText();
    // The value as text: bytes with a byte-order mark are UTF-16, other bytes Latin-1.
    std::string stringValue();
    // The raw bytes (escapes resolved): as read, or made from the text.
    std::string stringData();
    bool isLiteral() const { return literal_; }
    void setLiteral(bool literal) { literal_ = literal; }
    uint32_t encoding() const { return encoding_; }
    void setEncoding(uint32_t encoding) { encoding_ = encoding; }
    bool isDecrypted() const { return decrypted_; }

    bool appendDirectObject(std::string& out) override;
    KPPDFRef<KPPDFObject> copy() const override;
    std::string description() const override;

protected:
    void copyInto(KPPDFObjectString& copy) const;
    // Number and generation of this string or of its nearest numbered ancestor.
    bool keyNumbers(uint32_t* number, uint32_t* generation) const;
    void decryptIfNeeded();
    void setTextValue(std::string text);

    bool literal_ = true;
    uint32_t encoding_ = 5;
    std::string stringData_;
    bool hasStringData_ = false;
    bool decrypted_ = true;
    std::string value_;
    bool valueIsText_ = false;
    // Pairs of bytes follow a nested "(" with a byte-order mark (two-byte mode).
    bool twoByteMode_ = false;
};
