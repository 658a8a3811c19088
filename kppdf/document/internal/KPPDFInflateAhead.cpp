#include "kppdf/document/internal/KPPDFInflateAhead.h"

#include <algorithm>
#include <new>
#include <string>
#include <system_error>

#include "kppdf/objects/KPPDFFilter.h"

#ifdef __linux__
#include <pthread.h>
#include <sched.h>
#endif

namespace {
// A new thread is often queued on the CPU of the thread that made it, and waits there for
// milliseconds while that one works on, though another CPU is idle. The helper is kept off the
// opening thread's CPU (within the CPUs the process may use), so that the two run side by side
// from the start.
void keepOffThisCPU(std::thread& thread) {
#ifdef __linux__
    cpu_set_t allowed;
    int here = sched_getcpu();
    if (here < 0 || here >= CPU_SETSIZE || sched_getaffinity(0, sizeof allowed, &allowed) != 0 ||
        !CPU_ISSET(here, &allowed) || CPU_COUNT(&allowed) < 2)
        return;
    CPU_CLR(here, &allowed);
    pthread_setaffinity_np(thread.native_handle(), sizeof allowed, &allowed);
#else
    (void)thread;
#endif
}

// A stream that inflates to more than this is left to the reader: the helper's results are
// guesses at what the reader will want, and a guess should not cost much memory.
constexpr size_t kMaxJobOutput = 4u << 20;
} // namespace

KPPDFInflateAhead::KPPDFInflateAhead(const KPPDFData& file, std::vector<Job> jobs) : file_(file) {
    setUp(std::move(jobs));
    // The reader usually starts with the first job: the helper does not wait for it.
    limit_ = std::min(kFirstAhead, jobs_.size());
    start();
}

std::unique_ptr<KPPDFInflateAhead> KPPDFInflateAhead::guess(const KPPDFData& file,
                                                            std::vector<Job> jobs) {
    jobs.resize(std::min(jobs.size(), kGuessAhead));
    for (Job& job : jobs)
        job.objects = 0; // a guess cannot tell which objects will be wanted
    std::unique_ptr<KPPDFInflateAhead> guessed(new KPPDFInflateAhead(file));
    guessed->setUp(std::move(jobs));
    guessed->guessing_ = true;
    guessed->limit_ = guessed->jobs_.size();
    guessed->start();
    return guessed;
}

KPPDFInflateAhead::KPPDFInflateAhead(const KPPDFData& file, std::vector<Job> jobs,
                                     std::unique_ptr<KPPDFInflateAhead> guessed)
    : file_(file) {
    setUp(std::move(jobs));
    if (guessed && guessed->guessing_) {
        guessed->stop();
        // Only the guess's helper touched its results, and it is gone.
        for (size_t done : guessed->held_) {
            Result& result = guessed->results_[done];
            uint32_t stream = guessed->jobs_[done].stream;
            auto found = std::lower_bound(
                places_.begin(), places_.end(), stream,
                [](const Place& place, uint32_t value) { return place.stream < value; });
            if (found == places_.end() || found->stream != stream ||
                jobs_[found->job].position != guessed->jobs_[done].position ||
                states_[found->job] != State::Pending)
                continue;
            keep(found->job, std::move(result));
            carried_ = std::max(carried_, found->job + 1);
        }
    }
    // The helper goes on after the jobs carried over, which the reader takes first.
    limit_ = std::min(std::max(carried_, kFirstAhead), jobs_.size());
    start();
}

void KPPDFInflateAhead::setUp(std::vector<Job> jobs) {
    jobs_ = std::move(jobs);
    states_.assign(jobs_.size(), State::Pending);
    places_.clear();
    places_.reserve(jobs_.size());
    for (size_t i = 0; i < jobs_.size(); i++)
        places_.push_back({jobs_[i].stream, i});
    std::stable_sort(places_.begin(), places_.end(),
                     [](const Place& a, const Place& b) { return a.stream < b.stream; });
    // A stream listed twice keeps its first place; the later job is never done.
    size_t kept = 0;
    for (const Place& place : places_) {
        if (kept && places_[kept - 1].stream == place.stream)
            states_[place.job] = State::Gone;
        else
            places_[kept++] = place;
    }
    places_.resize(kept);
    results_.clear();
    results_.resize(jobs_.size());
    // Room for every result up front: an exception on the helper thread would end the process.
    held_.clear();
    held_.reserve(jobs_.size());
}

void KPPDFInflateAhead::start() {
    if (jobs_.empty())
        return;
    try {
        thread_ = std::thread(&KPPDFInflateAhead::run, this);
        keepOffThisCPU(thread_);
    } catch (const std::system_error&) {
        states_.assign(jobs_.size(), State::Gone);
    }
}

void KPPDFInflateAhead::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

KPPDFInflateAhead::~KPPDFInflateAhead() {
    stop();
}

bool KPPDFInflateAhead::inflateJob(const Job& job, Result* result) const {
    try {
        const KPPDFData& raw = result->read.raw;
        if (!KPPDFCompressedObjects::readPlainObjectStream(file_, job.position, &result->read) ||
            raw.length() > UINT32_MAX)
            return false;
        const uint64_t count = result->read.count, first = result->read.first;
        const uint32_t objects = job.objects;
        // When the reader wants only the first objects, the stream is inflated up to where the
        // header says the next one starts, provided the header is plain there: usable pairs in
        // ascending order, so that each object wanted ends where it would in the whole stream.
        // The header is read once, as soon as it is inflated, and its offsets checked against
        // the decoded length at the end.
        std::vector<KPPDFCompressedObjects::Entry>& header = result->entries;
        bool headerRead = false;
        size_t end = SIZE_MAX;
        auto wanted = [&](const uint8_t* bytes, size_t length) -> size_t {
            if (objects == 0 || first == 0 || headerRead)
                return end;
            if (length < first)
                return static_cast<size_t>(first);
            KPPDFData head(std::string(reinterpret_cast<const char*>(bytes), first));
            headerRead = KPPDFCompressedObjects::readHeaderUnchecked(head, count, first, &header);
            if (!headerRead || objects >= header.size())
                return end;
            for (uint32_t i = 0; i < objects; i++)
                if (header[i].number == 0 || header[i + 1].offset <= header[i].offset)
                    return end;
            return end = static_cast<size_t>(header[objects].offset);
        };
        std::string decoded;
        bool complete = false;
        if (!KPPDFFlateDecodePrefix(raw.bytes(), static_cast<uint32_t>(raw.length()), &decoded,
                                    kMaxJobOutput, wanted, &complete))
            return false;
        result->data = KPPDFData(std::move(decoded));
        result->objectsRead = complete ? 0 : objects;
        if (headerRead)
            KPPDFCompressedObjects::limitHeader(&header, result->data.length());
        else if (!KPPDFCompressedObjects::readHeader(result->data, count, first, &header))
            return false;
        return !header.empty();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

size_t KPPDFInflateAhead::claimNext() {
    while (cursor_ < jobs_.size() && states_[cursor_] != State::Pending)
        cursor_++;
    if (cursor_ >= std::min(limit_, jobs_.size()) || heldBytes_ >= kMaxHeldBytes)
        return SIZE_MAX;
    size_t job = cursor_++;
    states_[job] = State::Working;
    return job;
}

void KPPDFInflateAhead::keep(size_t job, Result&& result) {
    heldBytes_ += result.data.length();
    results_[job] = std::move(result);
    held_.push_back(job);
    states_[job] = State::Done;
}

void KPPDFInflateAhead::finish(size_t job, bool usable, Result&& result) {
    if (states_[job] != State::Working)
        return; // the reader took the job over meanwhile
    if (!usable) {
        states_[job] = State::Gone;
        return;
    }
    keep(job, std::move(result));
    inflated_++;
}

void KPPDFInflateAhead::work(size_t job, std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    Result result;
    bool usable = inflateJob(jobs_[job], &result); // the jobs do not change once set up
    lock.lock();
    finish(job, usable, std::move(result));
}

void KPPDFInflateAhead::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
        size_t job = claimNext();
        if (job == SIZE_MAX) {
            wake_.wait(lock);
            continue;
        }
        work(job, lock);
    }
}

void KPPDFInflateAhead::letGo(size_t job) {
    heldBytes_ -= results_[job].data.length();
    results_[job] = Result();
    states_[job] = State::Gone;
}

bool KPPDFInflateAhead::take(uint32_t stream,
                             const KPPDFCompressedObjects::PlainObjectStream& expected,
                             KPPDFCompressedObjects::StreamIndex* index) {
    auto found =
        std::lower_bound(places_.begin(), places_.end(), stream,
                         [](const Place& place, uint32_t value) { return place.stream < value; });
    if (found == places_.end() || found->stream != stream)
        return false;
    size_t job = found->job;
    std::unique_lock<std::mutex> lock(mutex_);
    if (guessing_)
        return false;
    // The helper goes on from here; what it made outside the new window is not wanted soon.
    // Results carried over from a guess stay until the reader passes them.
    bool inOrder = last_ != SIZE_MAX && job > last_ && job <= last_ + window_;
    window_ = inOrder ? std::min(window_ * 2, kAhead) : kFirstAhead;
    last_ = job;
    cursor_ = job + 1;
    limit_ = std::max(job + 1, carried_) + window_;
    for (size_t i = 0; i < held_.size();) {
        size_t other = held_[i];
        if (other != job && (other < cursor_ || other >= limit_)) {
            letGo(other);
            held_[i] = held_.back();
            held_.pop_back();
        } else {
            i++;
        }
    }
    // A stream the helper has not started, the reader reads the helper's way now. While the
    // helper finishes the one wanted, the reader inflates the next one itself rather than sit
    // idle: the helper alone falls behind a reader that only parses. With nothing else left to
    // do, the reader does not wait for the helper either, which may have lost its CPU to
    // another program for a whole time slice: it inflates the stream itself, and what the
    // helper makes of it is dropped.
    if (states_[job] == State::Pending) {
        states_[job] = State::Working;
        work(job, lock);
    }
    while (states_[job] == State::Working) {
        size_t next = claimNext();
        if (next != SIZE_MAX) {
            work(next, lock);
            continue;
        }
        states_[job] = State::Gone;
        lock.unlock();
        Result own;
        bool usable = inflateJob(jobs_[job], &own);
        lock.lock();
        if (usable) {
            keep(job, std::move(own));
            inflated_++;
        }
    }
    bool handed = false;
    if (states_[job] == State::Done) {
        held_.erase(std::find(held_.begin(), held_.end(), job));
        Result& result = results_[job];
        heldBytes_ -= result.data.length();
        const KPPDFData& raw = result.read.raw;
        handed = !expected.raw.isNull() && raw.bytes() == expected.raw.bytes() &&
                 raw.length() == expected.raw.length() && result.read.count == expected.count &&
                 result.read.first == expected.first;
        if (handed) {
            index->data = std::move(result.data);
            index->entries = std::move(result.entries);
            index->objectsRead = result.objectsRead;
            handed_++;
        }
        result = Result();
    }
    states_[job] = State::Gone;
    lock.unlock();
    wake_.notify_one();
    return handed;
}

size_t KPPDFInflateAhead::inflated() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return inflated_;
}

size_t KPPDFInflateAhead::handed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return handed_;
}
