#define LOG_TAG "Halvex-HandlerThread"

#include "framework/HalvexHandlerThread.h"

#include <sys/prctl.h>

#include "framework/Thread.h"
#include "platform/HalvexLog.h"

namespace zelkor::tessel {

HalvexHandlerThread* HalvexHandlerThread::create(std::string name) {
    return new HalvexHandlerThread(std::move(name));
}

HalvexHandlerThread::HalvexHandlerThread(std::string name)
    : mName(std::move(name)), mThread(&HalvexHandlerThread::run, this) {}

void HalvexHandlerThread::run() {
    // The kernel keeps 15 characters of a thread name.
    prctl(PR_SET_NAME, mName.substr(0, 15).c_str(), 0, 0, 0);
    const long tid = Thread::currentThreadId();
    HalvexLooper::prepare();
    {
        std::lock_guard<std::mutex> lock(mLock);
        mLooper = HalvexLooper::myLooper();
    }
    mCond.notify_all();
    HLOGI("%s(%ld) entered loop.", mName.c_str(), tid);
    HalvexLooper::loop();
    HLOGI("%s(%ld) exit loop.", mName.c_str(), tid);
    {
        // The pointer is withdrawn before the looper is destroyed, and under
        // the lock that requestQuit() holds while it talks to the looper.
        std::lock_guard<std::mutex> lock(mLock);
        mQuitRequested = false;
        mLooper = nullptr;
    }
    HalvexLooper::exit();
    {
        std::lock_guard<std::mutex> lock(mLock);
        mExited = true;
    }
    mCond.notify_all();
    HLOGI("%s(%ld) exited.", mName.c_str(), tid);
}

HalvexLooper* HalvexHandlerThread::getLooper() {
    std::unique_lock<std::mutex> lock(mLock);
    if (mExited) {
        HLOGI("%s() thread had exit.", "getLooper");
        return nullptr;
    }
    if (mLooper == nullptr) {
        HLOGI("%s() wait.", "getLooper");
        mCond.wait(lock, [this] { return mLooper != nullptr || mExited; });
    }
    return mLooper;
}

bool HalvexHandlerThread::requestQuit(bool safely) {
    // One caller wins the request; a second one racing it sees it taken.
    if (mExited || mQuitRequested.exchange(true)) return false;
    std::unique_lock<std::mutex> lock(mLock);
    mCond.wait(lock, [this] { return mLooper != nullptr || mExited; });
    if (mLooper == nullptr) return false;
    mLooper->quit(safely);
    // Forgotten at once: from here getLooper() waits for the thread's end and
    // gives null, never a looper that is going away.
    mLooper = nullptr;
    return true;
}

HalvexHandlerThread::~HalvexHandlerThread() {
    HLOGD("~HalvexHandlerThread");
    if (!mQuitRequested && !mExited) quit();
    if (std::this_thread::get_id() == mThread.get_id()) {
        HLOGE("DO NOT CALL DESTRUCTOR ON THE THREAD YOU WANT TO QUIT!! Will Abort when join "
              "yourself!!");
    }
    mThread.join();
    HLOGD("~HalvexHandlerThread Done");
}

}  // namespace zelkor::tessel
