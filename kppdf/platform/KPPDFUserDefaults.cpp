#include "kppdf/platform/KPPDFUserDefaults.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool environmentSaysTrue(const char* value) {
    return value && (std::strcmp(value, "1") == 0 || strcasecmp(value, "true") == 0 ||
                     strcasecmp(value, "yes") == 0);
}

} // namespace

KPPDFUserDefaults& KPPDFUserDefaults::standardUserDefaults() {
    static KPPDFUserDefaults defaults;
    return defaults;
}

std::string KPPDFUserDefaults::environmentVariableForKey(const std::string& key) {
    std::string name = "KPPDF_";
    name.reserve(name.size() + key.size() * 2);
    for (size_t i = 0; i < key.size(); ++i) {
        char c = key[i];
        if (isUpper(c) && i > 0) {
            char previous = key[i - 1];
            bool afterWord = isLower(previous) || isDigit(previous);
            bool endsAcronym = isUpper(previous) && i + 1 < key.size() && isLower(key[i + 1]);
            if (afterWord || endsAcronym)
                name.push_back('_');
        }
        if (isLower(c))
            name.push_back(static_cast<char>(c - 'a' + 'A'));
        else if (isUpper(c) || isDigit(c))
            name.push_back(c);
        else
            name.push_back('_');
    }
    return name;
}

bool KPPDFUserDefaults::boolForKey(const std::string& key) const {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = values_.find(key);
        if (found != values_.end())
            return found->second;
    }
    return environmentSaysTrue(std::getenv(environmentVariableForKey(key).c_str()));
}

void KPPDFUserDefaults::setBool(bool value, const std::string& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    values_[key] = value;
}

void KPPDFUserDefaults::removeObjectForKey(const std::string& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    values_.erase(key);
}
