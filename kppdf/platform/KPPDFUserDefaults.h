#pragma once
#include <map>
#include <mutex>
#include <string>

// Boolean settings by key. A value the application set wins; otherwise the environment
// variable "KPPDF_" + the key in upper snake case ("spaceGap" -> KPPDF_SPACE_GAP) decides,
// true for "1", "true" or "yes" in any case. Thread-safe.
class KPPDFUserDefaults {
public:
    static KPPDFUserDefaults& standardUserDefaults();

    KPPDFUserDefaults() = default;
    KPPDFUserDefaults(const KPPDFUserDefaults&) = delete;
    KPPDFUserDefaults& operator=(const KPPDFUserDefaults&) = delete;

    // The set value, else the environment's, else false.
    bool boolForKey(const std::string& key) const;
    void setBool(bool value, const std::string& key);
    // Forgets the set value, so the environment decides again.
    void removeObjectForKey(const std::string& key);

    // "KPPDF_" + key in upper snake case: a word break before an upper-case letter that
    // follows a lower-case letter or digit, or that starts a word after an acronym
    // ("URLBase" -> URL_BASE); other characters than letters and digits become "_".
    static std::string environmentVariableForKey(const std::string& key);

private:
    mutable std::mutex mutex_;
    std::map<std::string, bool> values_;
};
