#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

// A registry of observers by notification name. Observers run on the posting thread, in the
// order they were added. Any thread may add, remove and post; an observer may add or remove
// observers (itself included) while it is being called.
class KPPDFNotificationCenter {
public:
    using Callback = std::function<void(const std::string& name, const void* object,
                                        const std::map<std::string, double>& userInfo)>;

    // The process-wide centre the library posts to.
    static KPPDFNotificationCenter& defaultCenter();

    KPPDFNotificationCenter() = default;
    KPPDFNotificationCenter(const KPPDFNotificationCenter&) = delete;
    KPPDFNotificationCenter& operator=(const KPPDFNotificationCenter&) = delete;

    // Registers the callback for one name (every notification when the name is empty); returns
    // a token for removeObserver, never 0. An empty callback is not registered and gives 0.
    uint64_t addObserver(const std::string& name, Callback callback);
    // Unknown or already removed tokens are ignored. Once this returns, the observer is not
    // called again (a call already running on another thread may still finish).
    void removeObserver(uint64_t token);
    // Calls every observer registered for the name, and the catch-all ones; an observer
    // removed during the post by an earlier one is skipped, one added is not called.
    void postNotification(const std::string& name, const void* object = nullptr,
                          const std::map<std::string, double>& userInfo = {});

private:
    struct Observer {
        std::string name;
        std::shared_ptr<const Callback> callback;
    };

    std::mutex mutex_;
    std::map<uint64_t, Observer> observers_; // by token, which grows with each addition
    uint64_t nextToken_ = 1;
};
