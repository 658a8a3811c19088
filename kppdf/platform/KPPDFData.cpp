#include "kppdf/platform/KPPDFData.h"

#include <fcntl.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

struct KPPDFData::Storage {
    std::string owned;
    void* map = nullptr;
    size_t mapLength = 0;
    ~Storage() {
        if (map)
            munmap(map, mapLength);
    }
};

KPPDFData::KPPDFData(std::string&& bytes) {
    auto storage = std::make_shared<Storage>();
    storage->owned = std::move(bytes);
    bytes_ = reinterpret_cast<const uint8_t*>(storage->owned.data());
    length_ = storage->owned.size();
    storage_ = std::move(storage);
}

KPPDFData KPPDFData::dataWithBytes(const void* bytes, size_t length) {
    return KPPDFData(std::string(static_cast<const char*>(bytes), length));
}

KPPDFData KPPDFData::dataWithString(std::string_view bytes) {
    return KPPDFData(std::string(bytes));
}

KPPDFData KPPDFData::dataWithContentsOfFile(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return KPPDFData();
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        // Not a regular file (a pipe, say): read it through.
        std::string bytes;
        char buffer[65536];
        ssize_t n;
        while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
            bytes.append(buffer, static_cast<size_t>(n));
        ::close(fd);
        if (n < 0)
            return KPPDFData();
        return KPPDFData(std::move(bytes));
    }
    if (st.st_size == 0) {
        ::close(fd);
        return KPPDFData(std::string());
    }
    size_t length = static_cast<size_t>(st.st_size);
    void* map = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fd, 0);
    ::close(fd);
    if (map == MAP_FAILED)
        return KPPDFData();
    auto storage = std::make_shared<Storage>();
    storage->map = map;
    storage->mapLength = length;
    KPPDFData data;
    data.bytes_ = static_cast<const uint8_t*>(map);
    data.length_ = length;
    data.storage_ = std::move(storage);
    return data;
}

void KPPDFData::releaseResidentPages() const {
    if (storage_ && storage_->map)
        madvise(storage_->map, storage_->mapLength, MADV_DONTNEED);
}

KPPDFData KPPDFData::subdata(size_t location, size_t length) const {
    KPPDFData data;
    data.storage_ = storage_;
    if (location > length_)
        location = length_;
    if (length > length_ - location)
        length = length_ - location;
    data.bytes_ = bytes_ ? bytes_ + location : nullptr;
    data.length_ = length;
    return data;
}

void KPPDFReturnFreeMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}
