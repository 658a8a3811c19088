#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// An immutable, shared byte buffer. Copies share the bytes; a slice shares them too.
// A file opened by path is memory-mapped. An empty KPPDFData has bytes() == nullptr or points
// at a zero-length run; isNull() tells a missing buffer from an empty one.
class KPPDFData {
public:
    KPPDFData() = default;
    // Takes the bytes over without copying.
    explicit KPPDFData(std::string&& bytes);
    static KPPDFData dataWithBytes(const void* bytes, size_t length);
    static KPPDFData dataWithString(std::string_view bytes);
    // Maps the file read-only; a null buffer (isNull()) when it cannot be opened. An empty file
    // gives an empty, non-null buffer.
    static KPPDFData dataWithContentsOfFile(const std::string& path);

    const uint8_t* bytes() const { return bytes_; }
    const char* chars() const { return reinterpret_cast<const char*>(bytes_); }
    size_t length() const { return length_; }
    bool isNull() const { return !storage_; }
    bool empty() const { return length_ == 0; }
    std::string_view view() const { return {chars(), length_}; }
    std::string string() const { return std::string(view()); }
    // A view of [location, location+length) sharing the storage; clamped to the buffer.
    KPPDFData subdata(size_t location, size_t length) const;
    // The same storage (used to tell whether two objects share one document buffer).
    bool sharesStorageWith(const KPPDFData& other) const { return storage_ == other.storage_; }
    // For a mapped file: drops the pages read so far from the process's memory (they stay in
    // the system's file cache and come back when read again). For long sequential passes.
    void releaseResidentPages() const;

    bool operator==(const KPPDFData& other) const { return view() == other.view(); }

private:
    struct Storage;
    std::shared_ptr<const Storage> storage_;
    const uint8_t* bytes_ = nullptr;
    size_t length_ = 0;
};

// Hands the allocator's free pages back to the system (where the C library can), after many
// buffers of a few kilobytes were let go: the memory can then serve a large buffer elsewhere.
void KPPDFReturnFreeMemory();
