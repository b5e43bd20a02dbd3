#pragma once

#include <sys/syscall.h>
#include <unistd.h>

namespace zelkor::tessel {

class Thread {
  public:
    // The kernel thread id, the key under which each thread's looper is kept.
    static long currentThreadId() { return static_cast<long>(syscall(SYS_gettid)); }
};

}  // namespace zelkor::tessel
