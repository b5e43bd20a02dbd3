#pragma once

#include <pthread.h>
#include <sched.h>

namespace zelkor::tessel::bench {

// Decides which cores the threads of a measurement run on. Left to the
// scheduler, a producer and the consumer sometimes share a core and sometimes
// not, and throughput swings several-fold from one run to the next, which
// makes a side-by-side ratio meaningless. So by default the consumer gets a
// core of its own and every other thread runs on the rest; SharedCore puts
// them all on one core instead. With a single usable core nothing is pinned.
class CpuPlacement {
  public:
    // Call once from the main thread before any other thread starts: threads
    // created later inherit its placement.
    static void init() {
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0 || CPU_COUNT(&allowed) < 2) return;
        int last = -1;
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            if (CPU_ISSET(cpu, &allowed)) last = cpu;
        }
        cpu_set_t others = allowed;
        CPU_CLR(last, &others);
        if (pthread_setaffinity_np(pthread_self(), sizeof(others), &others) == 0) {
            consumerCpu() = last;
        }
    }

    // Moves the calling thread, a loop's consumer, to the core kept for it.
    static void pinConsumer() {
        if (consumerCpu() < 0) return;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(consumerCpu(), &one);
        pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
    }

    // While it lives, the calling thread and the threads it starts share the
    // consumer's core: what is left to compare is the work done per message,
    // without the cost of waking a thread on another core.
    class SharedCore {
      public:
        SharedCore() {
            CPU_ZERO(&mSaved);
            mRestore = pthread_getaffinity_np(pthread_self(), sizeof(mSaved), &mSaved) == 0;
            pinConsumer();
        }
        ~SharedCore() {
            if (mRestore) pthread_setaffinity_np(pthread_self(), sizeof(mSaved), &mSaved);
        }
        SharedCore(const SharedCore&) = delete;
        SharedCore& operator=(const SharedCore&) = delete;

      private:
        cpu_set_t mSaved;
        bool mRestore = false;
    };

  private:
    static int& consumerCpu() {
        static int cpu = -1;
        return cpu;
    }
};

}  // namespace zelkor::tessel::bench
