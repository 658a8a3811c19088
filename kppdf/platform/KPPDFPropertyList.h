#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/platform/KPPDFDate.h"

// A property-list value: a string, integer, real, boolean, date, data (bytes), array or
// dictionary (string keys, kept sorted). Values are copied deeply; the free properties of
// imprints are kept in a dictionary of these and archived as an XML property list
// (KPPDFArchiver).
class KPPDFPropertyList {
public:
    enum class Kind { String, Integer, Real, Boolean, Date, Data, Array, Dictionary };
    using Array = std::vector<KPPDFPropertyList>;
    using Dictionary = std::map<std::string, KPPDFPropertyList, std::less<>>;

    // An empty dictionary.
    KPPDFPropertyList();
    ~KPPDFPropertyList();
    KPPDFPropertyList(const KPPDFPropertyList& other);
    KPPDFPropertyList(KPPDFPropertyList&& other) noexcept;
    KPPDFPropertyList& operator=(const KPPDFPropertyList& other);
    KPPDFPropertyList& operator=(KPPDFPropertyList&& other) noexcept;

    // Text is UTF-8 by convention; any bytes are kept as given.
    static KPPDFPropertyList string(std::string_view text);
    static KPPDFPropertyList integer(int64_t value);
    static KPPDFPropertyList real(double value);
    static KPPDFPropertyList boolean(bool value);
    static KPPDFPropertyList date(const KPPDFDate& value);
    static KPPDFPropertyList data(std::string_view bytes);
    static KPPDFPropertyList array(Array elements = {});
    static KPPDFPropertyList dictionary(Dictionary entries = {});

    Kind kind() const { return kind_; }
    bool isString() const { return kind_ == Kind::String; }
    bool isDictionary() const { return kind_ == Kind::Dictionary; }
    bool isArray() const { return kind_ == Kind::Array; }

    // Each accessor answers for its own kind and gives the neutral value (empty text, 0, false,
    // the epoch, no elements) for any other; integers and reals read each other.
    const std::string& stringValue() const;
    int64_t integerValue() const;
    double realValue() const;
    bool boolValue() const;
    KPPDFDate dateValue() const;
    const std::string& dataValue() const;
    const Array& arrayValue() const;
    const Dictionary& dictionaryValue() const;
    // Mutable contents; calling them on a value of another kind turns it into an empty array
    // or dictionary first.
    Array& mutableArray();
    Dictionary& mutableDictionary();

    // Dictionary entries: the value under key, or null when there is none or this is no
    // dictionary. The pointer is valid until the dictionary changes.
    const KPPDFPropertyList* objectForKey(std::string_view key) const;
    // Turns a value of another kind into a dictionary first.
    void setObject(KPPDFPropertyList value, std::string_view key);
    void removeObjectForKey(std::string_view key);
    // True when key holds a string equal to text.
    bool hasString(std::string_view key, std::string_view text) const;

    // Same kind and value; reals by value (so NaN is unequal to itself), dates by instant and
    // zone, dictionaries by keys and values.
    bool operator==(const KPPDFPropertyList& other) const;

private:
    void reset(Kind kind);

    Kind kind_ = Kind::Dictionary;
    // The text of a string or the bytes of a data value.
    std::string text_;
    int64_t integer_ = 0;
    double real_ = 0;
    bool boolean_ = false;
    KPPDFDate date_;
    // Held by pointer so that the containers name this class while it is still incomplete.
    std::unique_ptr<Array> array_;
    std::unique_ptr<Dictionary> dictionary_;
};
