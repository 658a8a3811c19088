#include "kppdf/platform/KPPDFFileOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kppdf/platform/KPPDFLog.h"

namespace {
// The new file keeps the permissions a plain creation would give it.
constexpr mode_t kNewFileMode = 0666;
} // namespace

bool KPPDFWriteFileReplacing(const std::string& path,
                             const std::function<bool(const KPPDFByteSink& sink)>& write) {
    if (path.empty()) {
        KPPDFLog("Could not write a file without a path");
        return false;
    }
    std::vector<char> pattern(path.begin(), path.end());
    static constexpr char kSuffix[] = ".kppdf-XXXXXX";
    pattern.insert(pattern.end(), kSuffix, kSuffix + sizeof kSuffix);
    int fd = mkstemp(pattern.data());
    if (fd < 0) {
        KPPDFLog("Could not write %s: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    std::string temporary(pattern.data());
    // mkstemp makes the file private to its owner; a saved document is an ordinary file.
    mode_t mask = umask(0);
    umask(mask);
    struct stat existing;
    fchmod(fd, stat(path.c_str(), &existing) == 0 ? existing.st_mode & 07777
                                                   : kNewFileMode & ~mask);
    bool failedWrite = false;
    KPPDFByteSink sink = [fd, &failedWrite](std::string_view bytes) {
        while (!bytes.empty()) {
            ssize_t written = ::write(fd, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0) {
                failedWrite = true;
                return false;
            }
            bytes.remove_prefix(static_cast<size_t>(written));
        }
        return true;
    };
    bool made = write(sink);
    bool closed = ::close(fd) == 0;
    if (!made || failedWrite || !closed || std::rename(temporary.c_str(), path.c_str()) != 0) {
        if (failedWrite || !closed || made)
            KPPDFLog("Could not write %s: %s", path.c_str(), std::strerror(errno));
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}
