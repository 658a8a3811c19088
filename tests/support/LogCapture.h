#pragma once
#include <string>
#include <utility>
#include <vector>

#include "kppdf/platform/KPPDFLog.h"

// Collects the library's log lines for the life of the object (and keeps them off stderr).
class LogCapture {
public:
    LogCapture() {
        previous_ = KPPDFSetLogHandler([this](const std::string& line) { lines_.push_back(line); });
    }
    ~LogCapture() { KPPDFSetLogHandler(std::move(previous_)); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<std::string>& lines() const { return lines_; }
    bool contains(const std::string& fragment) const {
        for (const auto& line : lines_)
            if (line.find(fragment) != std::string::npos)
                return true;
        return false;
    }
    void clear() { lines_.clear(); }
    // The lines so far, leaving none.
    std::vector<std::string> take() { return std::exchange(lines_, {}); }

private:
    std::vector<std::string> lines_;
    KPPDFLogHandler previous_;
};
