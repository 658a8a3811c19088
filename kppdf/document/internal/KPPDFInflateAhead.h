#pragma once
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/platform/KPPDFData.h"

// Inflates object streams on a second thread while a reader (the opening walk over a large
// file's pages) parses the objects of those it already has. The jobs come in the order the
// reader is expected to take them; the helper works a few jobs ahead of the last one taken, and
// lets go of what it made for jobs the reader passed by or jumped away from. A reader that
// finds the helper still on the stream it wants inflates the next jobs itself meanwhile, so the
// two share the inflating when parsing is the lighter part, and never waits for the helper:
// with nothing else to do, it inflates the stream it wants itself.
//
// The helper touches no document state: a job is a stream number and the place of its object in
// the file (the data keeps the bytes alive), which the helper reads for itself when it is
// written plainly (KPPDFCompressedObjects::readPlainObjectStream). It keeps only clean results
// (a zlib stream inflated without fault, a well-formed header), and take() hands one out only
// when the reader parsed the stream to the same raw bytes, N and First, so what the reader gets
// is what its own decoding would give. A job that wants only the first objects of its stream
// is inflated up to their end (StreamIndex::objectsRead): pages come early in the object
// streams that hold them, and the rest is often larger. A stream the helper could not read
// cleanly, did not reach, or let go is left to the reader, which decodes (and logs) as usual.
// The helper stops when the object is destroyed.
//
// Before the reader's order is known, the helper may start on a guess (the object streams in
// the order they stand in the file from the first page's on), taking nothing until the order
// comes: the streams it inflated whole are then carried over to the jobs of the real order
// that name them (see the constructors).
class KPPDFInflateAhead {
public:
    using Job = KPPDFCompressedObjects::AheadJob;
    // Jobs after the last one taken that the helper may have done at a time: the window starts
    // small after the reader jumps, and doubles up to kAhead as it goes on in order.
    static constexpr size_t kAhead = 16;
    static constexpr size_t kFirstAhead = 2;
    // Bytes of results held for the reader at most.
    static constexpr size_t kMaxHeldBytes = 8u << 20;
    // Jobs a guess may have done before the real order comes.
    static constexpr size_t kGuessAhead = 64;

    // jobs in the order the reader should want them (a stream listed again is dropped), in
    // file. Starts the helper on the first few at once; if the system refuses a thread, take()
    // always returns false.
    KPPDFInflateAhead(const KPPDFData& file, std::vector<Job> jobs);
    // A guess: the helper inflates the first kGuessAhead of the jobs (whole), and take() hands
    // out nothing.
    static std::unique_ptr<KPPDFInflateAhead> guess(const KPPDFData& file, std::vector<Job> jobs);
    // The real order after a guess: stops the guess's helper (after the stream it is on) and
    // keeps, for the jobs here, what it inflated of the same streams in file.
    KPPDFInflateAhead(const KPPDFData& file, std::vector<Job> jobs,
                      std::unique_ptr<KPPDFInflateAhead> guessed);
    ~KPPDFInflateAhead();
    KPPDFInflateAhead(const KPPDFInflateAhead&) = delete;
    KPPDFInflateAhead& operator=(const KPPDFInflateAhead&) = delete;

    // The decoded bytes and header of stream, into index: at once if they were made; if the
    // helper is reading that stream now, once it finishes or, should the reader run out of
    // other jobs first, read on the calling thread; read the helper's way on the calling
    // thread if nobody started it; in every case only when the stream was read as expected.
    // False, index untouched, when the reader is to decode it itself (a stream read already or
    // let go, not read cleanly, or not a job).
    bool take(uint32_t stream, const KPPDFCompressedObjects::PlainObjectStream& expected,
              KPPDFCompressedObjects::StreamIndex* index);
    // Streams read ahead so far (by the helper, or by the reader while it waited), and of
    // those, handed to the reader.
    size_t inflated() const;
    size_t handed() const;

private:
    enum class State : uint8_t { Pending, Working, Done, Gone };
    struct Result {
        KPPDFCompressedObjects::PlainObjectStream read; // what the helper took the stream to be
        KPPDFData data;
        std::vector<KPPDFCompressedObjects::Entry> entries;
        uint32_t objectsRead = 0; // see StreamIndex::objectsRead
    };
    explicit KPPDFInflateAhead(const KPPDFData& file) : file_(file) {}
    // Sets up the jobs' bookkeeping; the helper is started by start().
    void setUp(std::vector<Job> jobs);
    void start();
    void stop();
    void run();
    // Reads and inflates a job's stream into result, as the helper does; false when it is not
    // read cleanly. Called without the lock.
    bool inflateJob(const Job& job, Result* result) const;
    // With the lock held: the next job to inflate, marked Working, or SIZE_MAX when there is
    // none within the window or the results held are at their bound.
    size_t claimNext();
    // With the lock held: holds a usable result for the reader (the job is Done).
    void keep(size_t job, Result&& result);
    // With the lock held: keeps a job's result, or lets the job go when it is not usable;
    // nothing when the job is no longer being worked on (the reader took it over).
    void finish(size_t job, bool usable, Result&& result);
    // Inflates a job marked Working, the lock let go meanwhile, and finishes it.
    void work(size_t job, std::unique_lock<std::mutex>& lock);
    void letGo(size_t job); // with the lock held

    struct Place {
        uint32_t stream;
        size_t job;
    };
    KPPDFData file_;
    std::vector<Job> jobs_;
    std::vector<Place> places_; // by stream number
    std::vector<State> states_;
    std::vector<Result> results_;
    std::vector<size_t> held_; // jobs in state Done
    size_t heldBytes_ = 0;
    size_t cursor_ = 0;      // the helper's next job to look at
    size_t limit_ = 0;       // and the end of the jobs it may work on
    size_t last_ = SIZE_MAX; // the job taken last
    size_t window_ = kFirstAhead;
    size_t carried_ = 0; // jobs below this one may hold results carried over from a guess
    bool guessing_ = false;
    size_t inflated_ = 0;
    size_t handed_ = 0;
    bool stop_ = false;
    mutable std::mutex mutex_;
    std::condition_variable wake_; // the helper, for room or a new position
    std::thread thread_;
};
