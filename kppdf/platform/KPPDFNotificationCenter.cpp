#include "kppdf/platform/KPPDFNotificationCenter.h"

#include <utility>
#include <vector>

KPPDFNotificationCenter& KPPDFNotificationCenter::defaultCenter() {
    static KPPDFNotificationCenter center;
    return center;
}

uint64_t KPPDFNotificationCenter::addObserver(const std::string& name, Callback callback) {
    if (!callback)
        return 0;
    auto shared = std::make_shared<const Callback>(std::move(callback));
    std::lock_guard<std::mutex> lock(mutex_);
    uint64_t token = nextToken_++;
    observers_.emplace(token, Observer{name, std::move(shared)});
    return token;
}

void KPPDFNotificationCenter::removeObserver(uint64_t token) {
    std::shared_ptr<const Callback> released;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = observers_.find(token);
        if (found == observers_.end())
            return;
        released = std::move(found->second.callback);
        observers_.erase(found);
    }
    // The callback (and whatever it captured) is destroyed here, outside the lock, unless a
    // post still holds it.
}

void KPPDFNotificationCenter::postNotification(const std::string& name, const void* object,
                                               const std::map<std::string, double>& userInfo) {
    // Observers are called without the lock so that they can post, add and remove.
    std::vector<std::pair<uint64_t, std::shared_ptr<const Callback>>> targets;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [token, observer] : observers_)
            if (observer.name.empty() || observer.name == name)
                targets.emplace_back(token, observer.callback);
    }
    for (const auto& [token, callback] : targets) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!observers_.count(token))
                continue;
        }
        (*callback)(name, object, userInfo);
    }
}
