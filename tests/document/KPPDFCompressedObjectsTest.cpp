#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/document/internal/KPPDFInflateAhead.h"
#include "kppdf/objects/KPPDFFilter.h"

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

TEST(KPPDFCompressedObjects, StreamsReadAheadOnASecondThread) {
    // Object streams as a writer makes them: a header of "number offset" pairs, then the
    // objects; each deflated.
    auto objectStream = [](uint32_t stream, std::string* text) {
        std::string header, body;
        for (uint32_t i = 0; i < 3; i++) {
            header += std::to_string(stream * 100 + i) + " " + std::to_string(body.size()) + " ";
            body +=
                "<< /Stream " + std::to_string(stream) + " /Index " + std::to_string(i) + " >>\n";
        }
        *text = header + body;
        std::string packed(KPPDFDeflateBound(static_cast<uint32_t>(text->size())), '\0');
        uint32_t length = static_cast<uint32_t>(packed.size());
        EXPECT_EQ(KPPDFDeflate(reinterpret_cast<const uint8_t*>(text->data()),
                               static_cast<uint32_t>(text->size()),
                               reinterpret_cast<uint8_t*>(packed.data()), &length),
                  1);
        packed.resize(length);
        return KPPDFCompressedObjects::AheadJob{stream, KPPDFData(std::move(packed)), 3,
                                                header.size()};
    };
    const uint32_t streams[] = {40, 7, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 99};
    std::map<uint32_t, std::string> texts;
    std::vector<KPPDFCompressedObjects::AheadJob> jobs;
    for (uint32_t stream : streams)
        jobs.push_back(objectStream(stream, &texts[stream]));
    jobs.push_back(objectStream(12, &texts[1000])); // listed twice: the first place counts
    // Damaged: cut short, and not deflated at all. The reader decodes those itself.
    jobs.push_back(objectStream(50, &texts[50]));
    jobs.back().raw = jobs.back().raw.subdata(0, jobs.back().raw.length() / 2);
    jobs.push_back({51, KPPDFData(std::string("3 0 << >>")), 1, 4});

    auto expectRead = [&](KPPDFInflateAhead& ahead, uint32_t stream) {
        SCOPED_TRACE(stream);
        KPPDFCompressedObjects::StreamIndex index;
        ASSERT_TRUE(ahead.take(stream, &index));
        EXPECT_EQ(index.data.view(), texts[stream]);
        ASSERT_EQ(index.entries.size(), 3u);
        EXPECT_EQ(index.entries[1].number, stream * 100 + 1);
        EXPECT_EQ(texts[stream].substr(index.entries[2].offset, 11), "<< /Stream ");
    };
    auto waitFor = [](KPPDFInflateAhead& ahead, size_t count) {
        for (int i = 0; i < 2000 && ahead.inflated() < count; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(ahead.inflated(), count);
    };
    {
        KPPDFInflateAhead ahead(jobs);
        // Nothing is read before the first take; the first job is then the reader's own.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(ahead.inflated(), 0u);
        KPPDFCompressedObjects::StreamIndex index;
        EXPECT_FALSE(ahead.take(40, &index));
        EXPECT_TRUE(index.data.isNull());
        // Two ahead after a jump, then twice as many with each take in order.
        waitFor(ahead, 2);
        expectRead(ahead, 7);
        expectRead(ahead, 12);
        waitFor(ahead, 10);
        for (uint32_t stream = 13; stream <= 20; stream++)
            expectRead(ahead, stream);
        waitFor(ahead, 14); // 21, 22, 23 and 99; the damaged two are not counted
        // A jump back (to a stream handed already: once only) lets go of what was made past
        // the new window.
        EXPECT_FALSE(ahead.take(18, &index));
        EXPECT_FALSE(ahead.take(1234, &index)); // not a job
        EXPECT_FALSE(ahead.take(50, &index));
        EXPECT_FALSE(ahead.take(51, &index));
        EXPECT_TRUE(index.data.isNull() && index.entries.empty());
        EXPECT_FALSE(ahead.take(7, &index));
        EXPECT_FALSE(ahead.take(99, &index));
        EXPECT_EQ(ahead.handed(), 10u);
    }
    {
        // Destroyed with work under way and results held: the helper stops and nothing leaks.
        KPPDFInflateAhead ahead(jobs);
        KPPDFCompressedObjects::StreamIndex index;
        ahead.take(7, &index);
    }
    // Through the cache, as the document uses it.
    KPPDFCompressedObjects cache;
    KPPDFCompressedObjects::StreamIndex index;
    EXPECT_FALSE(cache.takeInflated(40, &index));
    cache.startInflatingAhead(jobs);
    cache.takeInflated(40, &index);
    cache.stopInflatingAhead();
    EXPECT_FALSE(cache.takeInflated(7, &index));
}
