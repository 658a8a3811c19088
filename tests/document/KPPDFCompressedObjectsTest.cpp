#include <gtest/gtest.h>

#include <string>

#include "kppdf/document/internal/KPPDFCompressedObjects.h"

TEST(KPPDFCompressedObjects, BudgetLetsTheLeastRecentlyUsedStreamsGo) {
    KPPDFCompressedObjects cache;
    auto decode = [&](uint32_t stream, size_t length) {
        KPPDFCompressedObjects::StreamIndex& index = cache.streamIndex(stream);
        index.data = KPPDFData(std::string(length, ' '));
        index.entries = {{stream * 10, 0}};
        cache.used(stream);
    };
    auto decoded = [&](uint32_t stream) { return !cache.streamIndex(stream).data.isNull(); };

    cache.setBudget(300);
    decode(1, 100);
    decode(2, 100);
    decode(3, 100);
    cache.used(1); // 2 is now the least recently used
    decode(4, 100);
    EXPECT_TRUE(decoded(1));
    EXPECT_FALSE(decoded(2));
    EXPECT_TRUE(cache.streamIndex(2).entries.empty());
    EXPECT_TRUE(decoded(3));
    EXPECT_TRUE(decoded(4));

    // A stream larger than the budget stays while it is in use; the others make room.
    decode(5, 1000);
    EXPECT_TRUE(decoded(5));
    EXPECT_FALSE(decoded(1) || decoded(3) || decoded(4));

    // Released by the writer, a stream no longer counts: two of 100 fit beside nothing else.
    EXPECT_EQ(cache.release(5), 1000u);
    EXPECT_EQ(cache.release(5), 0u);
    decode(6, 100);
    decode(7, 100);
    decode(8, 100);
    EXPECT_TRUE(decoded(6) && decoded(7) && decoded(8));
    // Decoded again after being let go, a stream is counted once more, not twice.
    decode(2, 100);
    EXPECT_FALSE(decoded(6));
    EXPECT_TRUE(decoded(2) && decoded(7) && decoded(8));

    // Without a budget nothing goes; a budget set later applies at once.
    cache.setBudget(0);
    decode(9, 1000);
    EXPECT_TRUE(decoded(2) && decoded(7) && decoded(8) && decoded(9));
    cache.setBudget(1000);
    EXPECT_TRUE(decoded(9));
    EXPECT_FALSE(decoded(2) || decoded(7) || decoded(8));
}
