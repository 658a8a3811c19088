#pragma once
#include <mutex>

// The one process-wide lock of the library: it guards a document's shared font table and a
// page's text lists while text is prepared. Usable with std::lock_guard and std::unique_lock.
class KPPDFPageLock {
public:
    KPPDFPageLock(const KPPDFPageLock&) = delete;
    KPPDFPageLock& operator=(const KPPDFPageLock&) = delete;

    // The process's lock, made on first use.
    static KPPDFPageLock& sharedLock();

    // Blocks until the lock is had. Not recursive: a thread that holds it must not lock again.
    void lock() { mutex_.lock(); }
    // True when the lock was free and is now held.
    bool try_lock() { return mutex_.try_lock(); }
    void unlock() { mutex_.unlock(); }

private:
    KPPDFPageLock() = default;
    std::mutex mutex_;
};
