// The message loop side by side with a plain locked work queue: throughput,
// post-to-run latency across threads and heap allocations per message.
// bench/run.sh turns the JSON output into a comparison table; it pairs runs
// by name, "<workload>/halvex" against "<workload>/baseline".

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "bench/BaselineQueue.h"
#include "bench/CpuPlacement.h"
#include "bench/ProducerGang.h"
#include "framework/HalvexHandler.h"
#include "framework/HalvexHandlerThread.h"
#include "tests/AllocationCounter.h"

namespace zelkor::tessel::bench {
namespace {

using Clock = std::chrono::steady_clock;

// Posts per timed round, split over the producers. Large enough that waking
// the producers and the final hand-back cost little next to the posts.
constexpr int kBatch = 8192;

// One looper thread and a handler on it, torn down the way the daemon does it.
class HalvexLoop {
  public:
    HalvexLoop() : mThread(HalvexHandlerThread::create("bench")), mHandler(mThread->getLooper()) {}
    ~HalvexLoop() {
        mThread->quitSafely();
        delete mThread;
    }
    HalvexLoop(const HalvexLoop&) = delete;
    HalvexLoop& operator=(const HalvexLoop&) = delete;

    // Forwards the callable as is, so it becomes a HalvexJob exactly once, as
    // at a real call site.
    template <typename F>
    void post(F&& job) {
        mHandler.post(std::forward<F>(job));
    }

    // Grows the message pool to a whole round, the most that can ever be in
    // flight at once, as a daemon's pool grows to its busiest moment.
    static void prewarm() {
        std::vector<HalvexMessage*> records;
        for (int i = 0; i < 2 * kBatch; ++i) records.push_back(HalvexMessage::obtain(0));
        for (HalvexMessage* msg : records) HalvexMessage::recycle(msg);
    }

  private:
    HalvexHandlerThread* mThread;
    HalvexHandler mHandler;  // outlives the thread's last message
};

// Counts the jobs the consumer has run, so the timing thread can sleep until a
// round has drained. The consumer touches the lock only for the job that
// completes the round. The checksum proves every job ran exactly once.
class Completion {
  public:
    void expect(uint64_t total) { mTarget.store(total, std::memory_order_relaxed); }

    void arrive(uint64_t producer, uint64_t seq) {
        mChecksum += producer + seq;  // consumer thread only
        if (mCount.fetch_add(1, std::memory_order_acq_rel) + 1 ==
            mTarget.load(std::memory_order_relaxed)) {
            std::lock_guard<std::mutex> lock(mLock);
            mCond.notify_one();
        }
    }

    void wait() {
        std::unique_lock<std::mutex> lock(mLock);
        mCond.wait(lock, [this] {
            return mCount.load(std::memory_order_acquire) >=
                   mTarget.load(std::memory_order_relaxed);
        });
    }

    // Only meaningful after wait().
    uint64_t checksum() const { return mChecksum; }

  private:
    std::atomic<uint64_t> mCount{0};
    std::atomic<uint64_t> mTarget{0};
    uint64_t mChecksum = 0;
    std::mutex mLock;
    std::condition_variable mCond;
};

// Where a job posted from outside reports the moment it ran, and wakes the
// thread that posted it.
class RunStamp {
  public:
    void mark() {
        const Clock::time_point now = Clock::now();
        {
            std::lock_guard<std::mutex> lock(mLock);
            mRanAt = now;
            mRan = true;
        }
        mCond.notify_one();
    }

    Clock::time_point await() {
        std::unique_lock<std::mutex> lock(mLock);
        mCond.wait(lock, [this] { return mRan; });
        mRan = false;
        return mRanAt;
    }

  private:
    std::mutex mLock;
    std::condition_variable mCond;
    Clock::time_point mRanAt;
    bool mRan = false;
};

// Moves the loop's consumer thread to its own core; see CpuPlacement.
template <typename Loop>
void PinConsumer(Loop& loop) {
    RunStamp ran;
    loop.post([&ran] {
        CpuPlacement::pinConsumer();
        ran.mark();
    });
    ran.await();
}

// Rounds of kBatch posts from a number of producer threads to one loop.
template <typename Loop>
class BatchRunner {
  public:
    explicit BatchRunner(int producers)
        : mProducers(producers), mGang(producers, [this](int index) { postShare(index); }) {
        for (uint64_t seq = 0; seq < kBatch; ++seq) mChecksumPerRound += seq % mProducers + seq;
        PinConsumer(mLoop);
    }

    // Posts one round and returns once the consumer has run all of it.
    void runRound() {
        ++mRounds;
        mDone.expect(mRounds * kBatch);
        mGang.release();
        mDone.wait();
    }

    bool allRanOnce() const { return mDone.checksum() == mRounds * mChecksumPerRound; }

  private:
    void postShare(int index) {
        Completion* done = &mDone;
        const uint64_t producer = static_cast<uint64_t>(index);
        for (uint64_t seq = producer; seq < kBatch; seq += mProducers) {
            // A typical posted job: a pointer and a couple of values, 24
            // bytes. That is past std::function's 16-byte inline buffer, as is
            // any job holding a shared_ptr or a string, and within HalvexJob's.
            mLoop.post([done, producer, seq] { done->arrive(producer, seq); });
        }
    }

    const int mProducers;
    uint64_t mRounds = 0;
    uint64_t mChecksumPerRound = 0;
    Completion mDone;
    Loop mLoop;
    // Last, so it is joined first: no producer is still inside post() when
    // the loop is torn down.
    ProducerGang mGang;
};

template <typename Loop>
void BM_Throughput(benchmark::State& state, int producers) {
    BatchRunner<Loop> runner(producers);
    runner.runRound();  // fills the pools and lets the threads settle
    for (auto _ : state) runner.runRound();
    if (!runner.allRanOnce()) state.SkipWithError("a job was lost or ran twice");
    state.SetItemsProcessed(state.iterations() * kBatch);
}

// The same with everything on one core: the hand-over no longer costs a
// cross-core wake-up, so what remains is each implementation's own work per
// message.
template <typename Loop>
void BM_ThroughputSharedCore(benchmark::State& state) {
    CpuPlacement::SharedCore sharedCore;
    BM_Throughput<Loop>(state, 1);
}

template <typename Loop>
void BM_Allocations(benchmark::State& state) {
    BatchRunner<Loop> runner(1);
    // Warm-up: what a steady flow of posts allocates is what matters.
    Loop::prewarm();
    runner.runRound();
    uint64_t allocs = 0;
    for (auto _ : state) {
        zelkor::tessel::testing::AllocationCounter counter;
        runner.runRound();
        allocs += counter.count();
    }
    if (!runner.allRanOnce()) state.SkipWithError("a job was lost or ran twice");
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.counters["allocs_per_msg"] =
            static_cast<double>(allocs) / static_cast<double>(state.iterations() * kBatch);
}

double Percentile(std::vector<double> samples, double q) {
    if (samples.empty()) return 0;
    const size_t at = std::min(samples.size() - 1, static_cast<size_t>(q * samples.size()));
    std::nth_element(samples.begin(), samples.begin() + at, samples.end());
    return samples[at];
}

// One job in flight at a time: each sample is the hand-over to a loop that
// sits idle waiting for work, the case of a daemon reacting to an event, not
// time spent queued behind other jobs.
template <typename Loop>
void BM_Latency(benchmark::State& state) {
    RunStamp stamp;
    Loop loop;
    std::vector<double> delaysUs;
    delaysUs.reserve(static_cast<size_t>(state.max_iterations));
    PinConsumer(loop);
    for (auto _ : state) {
        const Clock::time_point postedAt = Clock::now();
        loop.post([&stamp] { stamp.mark(); });
        const Clock::time_point ranAt = stamp.await();
        delaysUs.push_back(std::chrono::duration<double, std::micro>(ranAt - postedAt).count());
    }
    state.counters["median_us"] = Percentile(delaysUs, 0.50);
    state.counters["p99_us"] = Percentile(delaysUs, 0.99);
}

// On another core, waking the consumer costs more than everything either
// implementation does per message; on one core what is left is the loops' own
// path from post to run, plus a context switch.
template <typename Loop>
void BM_LatencySharedCore(benchmark::State& state) {
    CpuPlacement::SharedCore sharedCore;
    BM_Latency<Loop>(state);
}

template <typename Loop>
void RegisterAll(const std::string& impl) {
    for (int producers : {1, 4}) {
        const std::string name = "throughput/producers:" + std::to_string(producers) + "/" + impl;
        benchmark::RegisterBenchmark(name.c_str(), BM_Throughput<Loop>, producers)->UseRealTime();
    }
    benchmark::RegisterBenchmark(("throughput/producers:1/shared_core/" + impl).c_str(),
                                 BM_ThroughputSharedCore<Loop>)
            ->UseRealTime();
    benchmark::RegisterBenchmark(("latency/" + impl).c_str(), BM_Latency<Loop>)->UseRealTime();
    benchmark::RegisterBenchmark(("latency/shared_core/" + impl).c_str(),
                                 BM_LatencySharedCore<Loop>)
            ->UseRealTime();
    benchmark::RegisterBenchmark(("allocations/" + impl).c_str(), BM_Allocations<Loop>)
            ->UseRealTime();
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    using namespace zelkor::tessel::bench;
    CpuPlacement::init();
    RegisterAll<HalvexLoop>("halvex");
    RegisterAll<BaselineQueue>("baseline");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
