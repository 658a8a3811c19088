#include "kppdf/platform/KPPDFPropertyList.h"

namespace {
const std::string kEmptyText;
const KPPDFPropertyList::Array kEmptyArray;
const KPPDFPropertyList::Dictionary kEmptyDictionary;
} // namespace

KPPDFPropertyList::KPPDFPropertyList() = default;
KPPDFPropertyList::~KPPDFPropertyList() = default;
KPPDFPropertyList::KPPDFPropertyList(KPPDFPropertyList&& other) noexcept = default;
KPPDFPropertyList& KPPDFPropertyList::operator=(KPPDFPropertyList&& other) noexcept = default;

KPPDFPropertyList::KPPDFPropertyList(const KPPDFPropertyList& other)
    : kind_(other.kind_), text_(other.text_), integer_(other.integer_), real_(other.real_),
      boolean_(other.boolean_), date_(other.date_),
      array_(other.array_ ? std::make_unique<Array>(*other.array_) : nullptr),
      dictionary_(other.dictionary_ ? std::make_unique<Dictionary>(*other.dictionary_) : nullptr) {}

KPPDFPropertyList& KPPDFPropertyList::operator=(const KPPDFPropertyList& other) {
    if (this != &other) {
        // Through a temporary: other may live inside this value's own containers.
        KPPDFPropertyList copy(other);
        *this = std::move(copy);
    }
    return *this;
}

void KPPDFPropertyList::reset(Kind kind) {
    kind_ = kind;
    text_.clear();
    integer_ = 0;
    real_ = 0;
    boolean_ = false;
    date_ = KPPDFDate();
    array_.reset();
    dictionary_.reset();
}

KPPDFPropertyList KPPDFPropertyList::string(std::string_view text) {
    KPPDFPropertyList value;
    value.kind_ = Kind::String;
    value.text_.assign(text);
    return value;
}

KPPDFPropertyList KPPDFPropertyList::integer(int64_t integer) {
    KPPDFPropertyList value;
    value.kind_ = Kind::Integer;
    value.integer_ = integer;
    return value;
}

KPPDFPropertyList KPPDFPropertyList::real(double real) {
    KPPDFPropertyList value;
    value.kind_ = Kind::Real;
    value.real_ = real;
    return value;
}

KPPDFPropertyList KPPDFPropertyList::boolean(bool boolean) {
    KPPDFPropertyList value;
    value.kind_ = Kind::Boolean;
    value.boolean_ = boolean;
    return value;
}

KPPDFPropertyList KPPDFPropertyList::date(const KPPDFDate& date) {
    KPPDFPropertyList value;
    value.kind_ = Kind::Date;
    value.date_ = date;
    return value;
}

KPPDFPropertyList KPPDFPropertyList::data(std::string_view bytes) {
    KPPDFPropertyList value;
    value.kind_ = Kind::Data;
    value.text_.assign(bytes);
    return value;
}

KPPDFPropertyList KPPDFPropertyList::array(Array elements) {
    KPPDFPropertyList value;
    value.kind_ = Kind::Array;
    value.array_ = std::make_unique<Array>(std::move(elements));
    return value;
}

KPPDFPropertyList KPPDFPropertyList::dictionary(Dictionary entries) {
    KPPDFPropertyList value;
    value.dictionary_ = std::make_unique<Dictionary>(std::move(entries));
    return value;
}

const std::string& KPPDFPropertyList::stringValue() const {
    return kind_ == Kind::String ? text_ : kEmptyText;
}

int64_t KPPDFPropertyList::integerValue() const {
    if (kind_ == Kind::Integer)
        return integer_;
    // Only values that fit convert; anything else (NaN included) reads as 0.
    if (kind_ == Kind::Real && real_ > -9.2e18 && real_ < 9.2e18)
        return static_cast<int64_t>(real_);
    return 0;
}

double KPPDFPropertyList::realValue() const {
    if (kind_ == Kind::Real)
        return real_;
    return kind_ == Kind::Integer ? static_cast<double>(integer_) : 0;
}

bool KPPDFPropertyList::boolValue() const {
    return kind_ == Kind::Boolean && boolean_;
}

KPPDFDate KPPDFPropertyList::dateValue() const {
    return kind_ == Kind::Date ? date_ : KPPDFDate();
}

const std::string& KPPDFPropertyList::dataValue() const {
    return kind_ == Kind::Data ? text_ : kEmptyText;
}

const KPPDFPropertyList::Array& KPPDFPropertyList::arrayValue() const {
    return kind_ == Kind::Array && array_ ? *array_ : kEmptyArray;
}

const KPPDFPropertyList::Dictionary& KPPDFPropertyList::dictionaryValue() const {
    return kind_ == Kind::Dictionary && dictionary_ ? *dictionary_ : kEmptyDictionary;
}

KPPDFPropertyList::Array& KPPDFPropertyList::mutableArray() {
    if (kind_ != Kind::Array)
        reset(Kind::Array);
    if (!array_)
        array_ = std::make_unique<Array>();
    return *array_;
}

KPPDFPropertyList::Dictionary& KPPDFPropertyList::mutableDictionary() {
    if (kind_ != Kind::Dictionary)
        reset(Kind::Dictionary);
    if (!dictionary_)
        dictionary_ = std::make_unique<Dictionary>();
    return *dictionary_;
}

const KPPDFPropertyList* KPPDFPropertyList::objectForKey(std::string_view key) const {
    if (kind_ != Kind::Dictionary || !dictionary_)
        return nullptr;
    auto found = dictionary_->find(key);
    return found == dictionary_->end() ? nullptr : &found->second;
}

void KPPDFPropertyList::setObject(KPPDFPropertyList value, std::string_view key) {
    mutableDictionary().insert_or_assign(std::string(key), std::move(value));
}

void KPPDFPropertyList::removeObjectForKey(std::string_view key) {
    if (kind_ != Kind::Dictionary || !dictionary_)
        return;
    if (auto found = dictionary_->find(key); found != dictionary_->end())
        dictionary_->erase(found);
}

bool KPPDFPropertyList::hasString(std::string_view key, std::string_view text) const {
    const KPPDFPropertyList* value = objectForKey(key);
    return value && value->isString() && value->text_ == text;
}

bool KPPDFPropertyList::operator==(const KPPDFPropertyList& other) const {
    if (kind_ != other.kind_)
        return false;
    switch (kind_) {
    case Kind::String:
    case Kind::Data:
        return text_ == other.text_;
    case Kind::Integer:
        return integer_ == other.integer_;
    case Kind::Real:
        return real_ == other.real_;
    case Kind::Boolean:
        return boolean_ == other.boolean_;
    case Kind::Date:
        return date_ == other.date_;
    case Kind::Array:
        return arrayValue() == other.arrayValue();
    case Kind::Dictionary:
        return dictionaryValue() == other.dictionaryValue();
    }
    return false;
}
