#pragma once
#include <cstdio>
#include <map>
#include <string>

#include "kppdf/platform/KPPDFData.h"

// Writes small PDF files with a correct classic cross-reference table, for tests.
//   TestPDFBuilder b;
//   b.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
//   b.addStream(4, "<< >>", "BT ET");
//   std::string pdf = b.build("/Root 1 0 R");
// offsetOf(n) gives the byte offset of "n 0 obj" in the last build.
class TestPDFBuilder {
public:
    explicit TestPDFBuilder(std::string eol = "\n", std::string version = "1.4")
        : eol_(std::move(eol)), version_(std::move(version)) {}

    // body: the object's text between "obj" and "endobj".
    void add(unsigned number, std::string body, unsigned generation = 0) {
        objects_[number] = {std::move(body), generation};
    }
    // A stream with the given dictionary entries (without << >>) and raw bytes; Length is added.
    void addStream(unsigned number, const std::string& entries, const std::string& bytes) {
        add(number, "<< " + entries + " /Length " + std::to_string(bytes.size()) + " >>" + eol_ +
                        "stream" + eol_ + bytes + eol_ + "endstream");
    }
    // trailerEntries: the trailer's entries without << >> and without /Size (added).
    std::string build(const std::string& trailerEntries) {
        std::string out = "%PDF-" + version_ + eol_ + "%\xE2\xE3\xCF\xD3" + eol_;
        unsigned highest = 0;
        offsets_.clear();
        for (auto& [number, object] : objects_) {
            offsets_[number] = out.size();
            out += std::to_string(number) + " " + std::to_string(object.generation) + " obj" +
                   eol_ + object.body + eol_ + "endobj" + eol_;
            highest = number;
        }
        size_t xref = out.size();
        out += "xref" + eol_ + "0 " + std::to_string(highest + 1) + eol_;
        char entry[32];
        for (unsigned n = 0; n <= highest; n++) {
            auto found = objects_.find(n);
            if (found == objects_.end())
                std::snprintf(entry, sizeof entry, "%010u %05u f\r\n", 0u, n == 0 ? 65535u : 0u);
            else
                std::snprintf(entry, sizeof entry, "%010zu %05u n\r\n", offsets_[n],
                              found->second.generation);
            out += entry;
        }
        out += "trailer" + eol_ + "<< /Size " + std::to_string(highest + 1) + " " +
               trailerEntries + " >>" + eol_ + "startxref" + eol_ + std::to_string(xref) + eol_ +
               "%%EOF" + eol_;
        startxref_ = xref;
        return out;
    }
    KPPDFData buildData(const std::string& trailerEntries) {
        return KPPDFData(build(trailerEntries));
    }
    size_t offsetOf(unsigned number) const { return offsets_.at(number); }
    size_t startxref() const { return startxref_; }

private:
    struct Object {
        std::string body;
        unsigned generation;
    };
    std::string eol_, version_;
    std::map<unsigned, Object> objects_;
    std::map<unsigned, size_t> offsets_;
    size_t startxref_ = 0;
};
