#include <algorithm>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
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

// Object streams as a writer makes them, one after another in a file: a header of "number
// offset" pairs, then the objects, deflated. The dictionary's entries are the given ones, then N
// and First, and Length (the data's) unless given; cut bytes are taken off the deflated data, and
// without deflate the text is stored as it is.
struct ObjectStreamFile {
    std::string file;
    std::map<uint32_t, std::string> texts;
    std::map<uint32_t, KPPDFCompressedObjects::PlainObjectStream> parsed; // as a parser reads them
    std::vector<KPPDFCompressedObjects::AheadJob> jobs;
    KPPDFData data;

    void add(uint32_t stream, std::string dictionary = "/Type /ObjStm /Filter /FlateDecode",
             size_t cut = 0, bool deflate = true, bool descending = false) {
        std::string header, body;
        std::vector<std::string> pairs;
        for (uint32_t i = 0; i < 3; i++) {
            pairs.push_back(std::to_string(stream * 100 + i) + " " + std::to_string(body.size()) +
                            " ");
            body +=
                "<< /Stream " + std::to_string(stream) + " /Index " + std::to_string(i) + " >>\n";
        }
        // Descending: the header lists the objects last first (offsets going down).
        if (descending)
            std::reverse(pairs.begin(), pairs.end());
        for (const std::string& pair : pairs)
            header += pair;
        std::string text = header + body;
        std::string packed = text;
        if (deflate) {
            packed.assign(KPPDFDeflateBound(static_cast<uint32_t>(text.size())), '\0');
            uint32_t length = static_cast<uint32_t>(packed.size());
            EXPECT_EQ(KPPDFDeflate(reinterpret_cast<const uint8_t*>(text.data()),
                                   static_cast<uint32_t>(text.size()),
                                   reinterpret_cast<uint8_t*>(packed.data()), &length),
                      1);
            packed.resize(length - cut);
        }
        if (!texts.count(stream))
            texts[stream] = text;
        file += std::to_string(stream) + " 0 obj\n";
        jobs.push_back({stream, file.size()});
        if (dictionary.find("/Length") == std::string::npos)
            dictionary += " /Length " + std::to_string(packed.size());
        file += "<< " + dictionary + " /N 3 /First " + std::to_string(header.size()) +
                " >>\r\nstream\r\n";
        if (!places.count(stream))
            places[stream] = {file.size(), packed.size(), header.size()};
        file += packed + "\r\nendstream\nendobj\n";
    }
    // The file's bytes, and each stream as a parser reads it from them.
    void finish() {
        data = KPPDFData(std::string(file));
        for (const auto& [stream, place] : places)
            parsed[stream] = {data.subdata(place.offset, place.length), 3, place.first};
    }

private:
    struct Place {
        size_t offset, length, first;
    };
    std::map<uint32_t, Place> places;
};

TEST(KPPDFCompressedObjects, PlainObjectStreamsReadWithoutParsing) {
    auto read = [](const std::string& text, KPPDFCompressedObjects::PlainObjectStream* stream) {
        static KPPDFData data;
        data = KPPDFData(std::string(text));
        return KPPDFCompressedObjects::readPlainObjectStream(data, 0, stream);
    };
    KPPDFCompressedObjects::PlainObjectStream stream;
    // Written the usual ways: LF or CR LF after "stream", keys in any order and repeated, the
    // short filter name; the data is what Length says.
    ASSERT_TRUE(read("<</Type/ObjStm/N 2/First 9/Length 4/Filter/FlateDecode>>\nstream\nabcd\n"
                     "endstream",
                     &stream));
    EXPECT_EQ(stream.raw.view(), "abcd");
    EXPECT_EQ(stream.count, 2u);
    EXPECT_EQ(stream.first, 9u);
    ASSERT_TRUE(read("<< /Length 1 /N 7 /Filter /Fl /First 3 /Type /ObjStm /Length 3 /Extends "
                     "4 0 R >> stream\r\nxyz\r\nendstream",
                     &stream));
    EXPECT_EQ(stream.raw.view(), "xyz");
    EXPECT_EQ(stream.count, 7u);
    // Anything a parser must judge, or that is not inflated by zlib alone, is refused.
    const char* refused[] = {
        "<< /Type /ObjStm /N 2 /First 9 /Length 5 0 R /Filter /FlateDecode >>\nstream\nabcd\n"
        "endstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 /Filter /FlateDecode /DecodeParms null >>\n"
        "stream\nabcd\nendstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 /Filter [/FlateDecode] >>\nstream\nabcd\n"
        "endstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 >>\nstream\nabcd\nendstream",
        "<< /Type /XRef /N 2 /First 9 /Length 4 /Filter /FlateDecode >>\nstream\nabcd\nendstream",
        "<< /Type /ObjStm /N -2 /First 9 /Length 4 /Filter /FlateDecode >>\nstream\nabcd\n"
        "endstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 3 /Filter /FlateDecode >>\nstream\nabcd\n"
        "endstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 40 /Filter /FlateDecode >>\nstream\nabcd\n"
        "endstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 /Filter /FlateDecode >>\nabcd\nendstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 /Filter /FlateDecode %\n>>\nstream\nabcd\n"
        "endstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 99999999999999999999 /Filter /FlateDecode >>\n"
        "stream\nabcd\nendstream",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 /Filter /FlateDecode >>",
        "<< /Type /ObjStm /N 2 /First 9 /Length 4 /Filter /FlateDecode",
    };
    for (const char* text : refused)
        EXPECT_FALSE(read(text, &stream)) << text;
}

TEST(KPPDFCompressedObjects, HeaderPairsReadAtEveryNumberLengthAndBoundary) {
    // The header is read eight bytes at a time where it can be: numbers of every length, cut
    // by First or by the end of the data at every place, must come out as a plain digit by
    // digit reading gives them (blanks and comments skipped over the whole data, digits read
    // up to First, twenty digits and more held at the largest value).
    using Entry = KPPDFCompressedObjects::Entry;
    auto expected = [](const std::string& text, uint64_t count, uint64_t first) {
        std::vector<Entry> entries;
        count = std::min<uint64_t>(count, first / 4 + 1); // each pair takes four bytes or more
        size_t p = 0;
        auto skip = [&] {
            while (p < text.size()) {
                if (text[p] == '%')
                    while (p < text.size() && text[p] != '\n' && text[p] != '\r')
                        p++;
                else if (text[p] == ' ' || text[p] == '\n' || text[p] == '\r')
                    p++;
                else
                    break;
            }
        };
        auto number = [&](unsigned long long* value) {
            size_t start = p;
            *value = 0;
            for (; p < first && text[p] >= '0' && text[p] <= '9'; p++)
                *value =
                    *value > (ULLONG_MAX - 9) / 10 ? ULLONG_MAX : *value * 10 + (text[p] - '0');
            return p > start;
        };
        for (uint64_t i = 0; i < count; i++) {
            unsigned long long number1 = 0, offset = 0;
            skip();
            if (!number(&number1))
                break;
            skip();
            if (!number(&offset))
                break;
            bool usable = number1 != 0 && number1 <= KPPDFDocument::kMaxObjectNumber &&
                          offset < UINT64_MAX - first;
            entries.push_back(usable ? Entry{static_cast<uint32_t>(number1), first + offset}
                                     : Entry{0, 0});
        }
        return entries;
    };
    std::string text;
    const char* blanks[] = {" ", "\n", "\r\n", "  % a comment 1 2\n"};
    for (int digits = 1; digits <= 21; digits++) {
        std::string number(static_cast<size_t>(digits), '7');
        number[0] = '1';
        text += std::to_string(digits) + blanks[digits % 4] + number + blanks[(digits + 1) % 4];
    }
    text += "5 x12345678 9"; // the header stops at what is not a number
    size_t checked = 0;
    for (size_t length = 0; length <= text.size(); length++) {
        KPPDFData data(text.substr(0, length));
        for (uint64_t first : {uint64_t(length), uint64_t(length / 2), uint64_t(length / 3 + 1)}) {
            if (first > length)
                continue;
            std::vector<Entry> entries;
            KPPDFCompressedObjects::readHeaderUnchecked(data, 30, first, &entries);
            std::vector<Entry> wanted = expected(text.substr(0, length), 30, first);
            ASSERT_EQ(entries.size(), wanted.size()) << length << " " << first;
            for (size_t i = 0; i < entries.size(); i++) {
                EXPECT_EQ(entries[i].number, wanted[i].number)
                    << length << " " << first << " " << i;
                EXPECT_EQ(entries[i].offset, wanted[i].offset)
                    << length << " " << first << " " << i;
            }
            checked += entries.size();
        }
    }
    EXPECT_GT(checked, 1000u);
}

TEST(KPPDFCompressedObjects, StreamsReadAheadOnASecondThread) {
    ObjectStreamFile made;
    const uint32_t streams[] = {40, 7, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 99};
    for (uint32_t stream : streams)
        made.add(stream);
    made.add(12); // listed twice: the first place counts
    // Damaged (cut short), not deflated at all, and written so that only a parser can read
    // them: the reader decodes those itself.
    made.add(50, "/Type /ObjStm /Filter /FlateDecode", 5);
    made.add(51, "/Type /ObjStm /Filter /FlateDecode", 0, false);
    made.add(52, "/Type /ObjStm /Filter /FlateDecode /Length 9 0 R");
    made.finish();
    auto& texts = made.texts;
    auto& parsed = made.parsed;

    auto expectRead = [&](KPPDFInflateAhead& ahead, uint32_t stream) {
        SCOPED_TRACE(stream);
        KPPDFCompressedObjects::StreamIndex index;
        ASSERT_TRUE(ahead.take(stream, parsed[stream], &index));
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
        KPPDFInflateAhead ahead(made.data, made.jobs);
        // The first two are read at once, before the reader asks.
        waitFor(ahead, 2);
        expectRead(ahead, 40);
        // A stream the reader parsed otherwise (here, another First) is not handed out.
        KPPDFCompressedObjects::StreamIndex index;
        KPPDFCompressedObjects::PlainObjectStream other = parsed[7];
        other.first++;
        EXPECT_FALSE(ahead.take(7, other, &index));
        EXPECT_TRUE(index.data.isNull());
        // Two ahead after a jump, then twice as many with each take in order.
        waitFor(ahead, 6);
        expectRead(ahead, 12);
        waitFor(ahead, 11);
        for (uint32_t stream = 13; stream <= 20; stream++)
            expectRead(ahead, stream);
        waitFor(ahead, 15); // 21, 22, 23 and 99; the damaged three are not counted
        // A jump back (to a stream handed already: once only) lets go of what was made past
        // the new window.
        EXPECT_FALSE(ahead.take(18, parsed[18], &index));
        EXPECT_FALSE(ahead.take(1234, parsed[18], &index)); // not a job
        for (uint32_t stream : {50u, 51u, 52u, 7u, 99u})
            EXPECT_FALSE(ahead.take(stream, parsed[stream], &index)) << stream;
        EXPECT_TRUE(index.data.isNull() && index.entries.empty());
        EXPECT_EQ(ahead.handed(), 10u);
    }
    {
        // A reader that only takes (far faster than inflating) finds the helper on the stream
        // it wants and inflates the next ones itself meanwhile: every stream is still handed
        // out once, whole, whichever thread made it.
        ObjectStreamFile many;
        for (uint32_t stream = 1000; stream < 1300; stream++)
            many.add(stream);
        many.finish();
        KPPDFInflateAhead ahead(many.data, many.jobs);
        for (uint32_t stream = 1000; stream < 1300; stream++) {
            KPPDFCompressedObjects::StreamIndex index;
            ASSERT_TRUE(ahead.take(stream, many.parsed[stream], &index)) << stream;
            ASSERT_EQ(index.data.view(), many.texts[stream]);
            ASSERT_EQ(index.entries.size(), 3u);
            EXPECT_EQ(index.entries[2].number, stream * 100 + 2);
        }
        EXPECT_EQ(ahead.handed(), 300u);
        EXPECT_EQ(ahead.inflated(), 300u);
    }
    {
        // Jobs that want only the first objects: their streams are inflated up to where the
        // next object starts, and say so; all of them, or a header whose offsets do not
        // ascend, and the stream is inflated whole.
        ObjectStreamFile partial;
        partial.add(60);
        partial.add(61);
        partial.add(62);
        partial.add(63, "/Type /ObjStm /Filter /FlateDecode", 0, true, true);
        partial.finish();
        partial.jobs[0].objects = 1;
        partial.jobs[1].objects = 2;
        partial.jobs[2].objects = 3;
        partial.jobs[3].objects = 1;
        KPPDFInflateAhead ahead(partial.data, partial.jobs);
        auto expectPart = [&](uint32_t stream, uint32_t objectsRead) {
            SCOPED_TRACE(stream);
            KPPDFCompressedObjects::StreamIndex index;
            ASSERT_TRUE(ahead.take(stream, partial.parsed[stream], &index));
            EXPECT_EQ(index.objectsRead, objectsRead);
            const std::string& text = partial.texts[stream];
            ASSERT_EQ(index.entries.size(), 3u);
            size_t end = objectsRead
                             ? text.find("<< /Stream",
                                         text.find("/Index " + std::to_string(objectsRead - 1)))
                             : text.size();
            EXPECT_EQ(index.data.view(), text.substr(0, end));
            for (uint32_t i = 0; i < 3; i++) {
                // The objects read have their place; the later ones lie past the part read.
                const auto& entry = index.entries[i];
                if (!objectsRead || i < objectsRead) {
                    EXPECT_NE(entry.number, 0u);
                    EXPECT_EQ(text.substr(entry.offset, 10), "<< /Stream");
                } else {
                    EXPECT_EQ(entry.number, 0u) << i;
                }
            }
        };
        expectPart(60, 1);
        expectPart(61, 2);
        expectPart(62, 0);
        expectPart(63, 0);
    }
    {
        // A guess made before the order is known hands out nothing; the real order keeps what
        // it inflated (whole, even where the real job wants fewer objects) for the streams it
        // names again at the same place, the reader takes those first and the helper goes on
        // after them. A guessed stream the order leaves out, or names at another place, is
        // not handed out.
        ObjectStreamFile guessed;
        for (uint32_t stream = 70; stream < 90; stream++)
            guessed.add(stream);
        guessed.finish();
        std::vector<KPPDFInflateAhead::Job> guess(guessed.jobs.begin(), guessed.jobs.begin() + 12);
        auto ahead = KPPDFInflateAhead::guess(guessed.data, guess);
        KPPDFCompressedObjects::StreamIndex index;
        for (int i = 0; i < 2000 && ahead->inflated() < 12; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_EQ(ahead->inflated(), 12u);
        EXPECT_FALSE(ahead->take(70, guessed.parsed[70], &index));
        EXPECT_TRUE(index.data.isNull());
        std::vector<KPPDFInflateAhead::Job> order(guessed.jobs.begin() + 1, guessed.jobs.end());
        order[0].objects = 1;
        order[1].position++; // 72 read from elsewhere: the guess's bytes are not its bytes
        KPPDFInflateAhead real(guessed.data, order, std::move(ahead));
        for (uint32_t stream = 71; stream < 90; stream++) {
            SCOPED_TRACE(stream);
            KPPDFCompressedObjects::StreamIndex taken;
            bool handed = real.take(stream, guessed.parsed[stream], &taken);
            if (stream == 72) {
                EXPECT_FALSE(handed);
                continue;
            }
            ASSERT_TRUE(handed);
            EXPECT_EQ(taken.data.view(), guessed.texts[stream]);
            EXPECT_EQ(taken.objectsRead, 0u);
        }
        // Ten carried over (71, 73 to 81), eight more inflated after them.
        EXPECT_EQ(real.handed(), 18u);
        EXPECT_EQ(real.inflated(), 8u);
    }
    {
        // Destroyed with work under way and results held: the helper stops and nothing leaks.
        KPPDFInflateAhead ahead(made.data, made.jobs);
        KPPDFCompressedObjects::StreamIndex index;
        ahead.take(7, parsed[7], &index);
    }
    // Through the cache, as the document uses it; a null raw (a stream the reader found not
    // plainly deflated) never matches.
    KPPDFCompressedObjects cache;
    KPPDFCompressedObjects::StreamIndex index;
    EXPECT_FALSE(cache.takeInflated(40, parsed[40], &index));
    cache.startInflatingAhead(made.data, made.jobs);
    EXPECT_TRUE(cache.isInflatingAhead());
    EXPECT_FALSE(cache.takeInflated(40, {KPPDFData(), 3, parsed[40].first}, &index));
    // (The helper may not have reached it yet: then the reader decodes it.)
    if (cache.takeInflated(7, parsed[7], &index)) {
        EXPECT_EQ(index.data.view(), texts[7]);
    }
    cache.stopInflatingAhead();
    EXPECT_FALSE(cache.takeInflated(12, parsed[12], &index));
}
