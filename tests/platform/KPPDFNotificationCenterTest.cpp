#include "kppdf/platform/KPPDFNotificationCenter.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

TEST(KPPDFNotificationCenterTest, DeliversByNameAndToCatchAllObservers) {
    KPPDFNotificationCenter center;
    std::vector<std::string> calls;
    center.addObserver("Save", [&](const std::string& name, const void*, const auto& userInfo) {
        calls.push_back(name + ":" + std::to_string(int(userInfo.at("page"))));
    });
    center.addObserver("", [&](const std::string& name, const void*, const auto&) {
        calls.push_back("all:" + name);
    });
    center.postNotification("Save", nullptr, {{"page", 3}});
    center.postNotification("Other");
    EXPECT_EQ(calls, (std::vector<std::string>{"Save:3", "all:Save", "all:Other"}));
}

TEST(KPPDFNotificationCenterTest, ObserversMayRemoveThemselvesAndOthersDuringAPost) {
    KPPDFNotificationCenter center;
    std::vector<int> calls;
    uint64_t first = 0, second = 0, third = 0;
    first = center.addObserver("N", [&](const std::string&, const void*, const auto&) {
        calls.push_back(1);
        center.removeObserver(first);  // itself
        center.removeObserver(second); // a later one: must not run in this post
        center.addObserver(
            "N", [&](const std::string&, const void*, const auto&) { calls.push_back(4); });
    });
    second = center.addObserver(
        "N", [&](const std::string&, const void*, const auto&) { calls.push_back(2); });
    third = center.addObserver("N", [&](const std::string&, const void*, const auto&) {
        calls.push_back(3);
        center.postNotification("Nested");
    });
    center.postNotification("N");
    EXPECT_EQ(calls, (std::vector<int>{1, 3}));
    calls.clear();
    center.postNotification("N");
    EXPECT_EQ(calls, (std::vector<int>{3, 4}));
    center.removeObserver(third);
    center.removeObserver(third); // twice is harmless
    center.removeObserver(12345);
    calls.clear();
    center.postNotification("N");
    EXPECT_EQ(calls, (std::vector<int>{4}));
}

TEST(KPPDFNotificationCenterTest, ConcurrentPostsAndRemovals) {
    KPPDFNotificationCenter& center = KPPDFNotificationCenter::defaultCenter();
    std::atomic<int> count{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                uint64_t token = center.addObserver(
                    "KPPDFNotificationCenterTest",
                    [&](const std::string&, const void*, const auto&) { ++count; });
                center.postNotification("KPPDFNotificationCenterTest");
                center.removeObserver(token);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    // Each post sees at least its own observer.
    EXPECT_GE(count.load(), 800);
}
