#define LOG_TAG "Halvex-FileEventListener"

#include "utils/FileEventListener.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "framework/HalvexHandler.h"
#include "framework/HalvexHandlerThread.h"
#include "platform/HalvexLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel {

namespace {

constexpr int kInvalidDescriptor = -9;  // -EBADF
constexpr int kAlreadyWatched = -114;   // -EALREADY
constexpr size_t kReadSize = 512;
constexpr size_t kEventHeader = sizeof(inotify_event);  // 16 bytes
// The loop's lines carry the loop's name, also from the helpers it calls.
constexpr char kLoop[] = "listenLoop";

}  // namespace

FileEventListener::FileEventListener(std::string name, const std::vector<std::string>& paths,
                                     uint32_t mask, bool deliverNow)
    : mName(std::move(name)), mThread(HalvexHandlerThread::create(mName)) {
    mWatches.max_load_factor(1.0f);
    const int fd = inotify_init1(IN_CLOEXEC);
    if (fd < 0) {
        HLOGE("init new inotify fd failed!, error: %s", strerror(errno));
        return;
    }
    mWakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (mWakeFd < 0) {
        HLOGE("init new inotify fd failed!, error: %s", strerror(errno));
        close(fd);
        return;
    }
    mFd = fd;
    for (const auto& path : paths) {
        const int result = addWatching(path, mask);
        // The results are negative errno values or errno itself.
        if (result != 0) {
            HLOGE("add file watch failed! path: %s, error: %s", path.c_str(),
                  strerror(std::abs(result)));
        }
    }
    mHandler = std::make_unique<HalvexHandler>(mThread->getLooper());
    mHandler->post([this] { listenLoop(this); });
    if (deliverNow) startListening();
}

FileEventListener::~FileEventListener() {
    HLOGD("Cleanup...");
    std::vector<std::string> paths;
    {
        std::lock_guard<std::mutex> lock(mWatchesLock);
        for (const auto& entry : mWatches) paths.push_back(entry.first);
    }
    for (const auto& path : paths) removeWatching(path);
    // The loop is woken and waited for before the descriptor is released, so
    // its number cannot be reused under a read still in progress.
    stopListening();
    const int fd = mFd.exchange(-1);
    if (fd >= 0) close(fd);
    mThread.reset();
    mHandler.reset();
    if (mWakeFd >= 0) close(mWakeFd);
    HLOGD("Cleanup Done!");
}

void FileEventListener::OnFileEvent(uint32_t, std::optional<std::string>, const std::string&) {
    // The base class only watches; subclasses act on the events.
}

int FileEventListener::addWatching(std::string path, unsigned mask) {
    if (!descriptorValid()) return kInvalidDescriptor;
    std::lock_guard<std::mutex> lock(mWatchesLock);
    if (mWatches.count(path) != 0) {
        HLOGI("addWatching for %s failed! error: Already Watched", path.c_str());
        return kAlreadyWatched;
    }
    const int wd = inotify_add_watch(mFd.load(), platform::DevicePath(path).c_str(), mask);
    if (wd < 0) {
        const int error = errno;
        HLOGE("addWatching for %s failed! error: %s", path.c_str(), strerror(error));
        return error;
    }
    mWatches[path] = wd;
    return 0;
}

bool FileEventListener::removeWatching(std::string path) {
    if (!descriptorValid()) return false;
    int wd;
    {
        std::lock_guard<std::mutex> lock(mWatchesLock);
        auto it = mWatches.find(path);
        if (it == mWatches.end()) return false;
        wd = it->second;
        mWatches.erase(it);
    }
    inotify_rm_watch(mFd.load(), wd);
    return true;
}

bool FileEventListener::removeWatching(int wd) {
    if (!descriptorValid()) return false;
    inotify_rm_watch(mFd.load(), wd);
    std::lock_guard<std::mutex> lock(mWatchesLock);
    for (auto it = mWatches.begin(); it != mWatches.end(); ++it) {
        if (it->second == wd) {
            mWatches.erase(it);
            return true;
        }
    }
    return false;
}

bool FileEventListener::isWatching(const std::string& path) {
    std::lock_guard<std::mutex> lock(mWatchesLock);
    return mWatches.count(path) != 0;
}

std::optional<std::string> FileEventListener::watchedPathOf(int wd) {
    std::lock_guard<std::mutex> lock(mWatchesLock);
    for (const auto& entry : mWatches) {
        if (entry.second == wd) return entry.first;
    }
    return std::nullopt;
}

void FileEventListener::startListening() {
    std::lock_guard<std::mutex> lock(mStopLock);
    mDelivering = true;
    mStateChanged.notify_all();
}

void FileEventListener::stopListening() {
    std::unique_lock<std::mutex> lock(mStopLock);
    mStopped = true;
    if (mWakeFd >= 0) {
        const uint64_t one = 1;
        // A full counter already wakes the loop, so a failed write loses nothing.
        (void)!write(mWakeFd, &one, sizeof(one));
    }
    mStateChanged.notify_all();
    mStateChanged.wait(lock, [this] { return !mLoopRunning; });
}

void FileEventListener::listenLoop(FileEventListener* listener) {
    if (listener == nullptr) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kLoop,
                      "'thiz' is nullptr while trying to trigger file event callback!");
        return;
    }
    {
        // Events wait in the kernel's queue until the object is whole.
        std::unique_lock<std::mutex> lock(listener->mStopLock);
        listener->mStateChanged.wait(
                lock, [listener] { return listener->mDelivering || listener->mStopped; });
        if (listener->mStopped) return;
        listener->mLoopRunning = true;
    }
    alignas(inotify_event) char buf[kReadSize];
    while (listener->descriptorValid()) {
        pollfd fds[2] = {{listener->mFd.load(), POLLIN, 0}, {listener->mWakeFd, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kLoop, "***** ERROR! got a short event!");
            break;
        }
        // The descriptor is being closed: what is still queued is not read.
        if (fds[1].revents != 0) break;
        const ssize_t len = read(fds[0].fd, buf, sizeof(buf));
        if (len < static_cast<ssize_t>(kEventHeader)) {
            if (len < 0 && errno == EINTR) continue;
            HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kLoop, "***** ERROR! got a short event!");
            break;
        }
        if (!listener->deliver(buf, static_cast<size_t>(len))) break;
    }
    std::lock_guard<std::mutex> lock(listener->mStopLock);
    listener->mLoopRunning = false;
    listener->mStateChanged.notify_all();
}

bool FileEventListener::deliver(const char* buf, size_t len) {
    size_t offset = 0;
    while (len - offset >= kEventHeader) {
        inotify_event event;
        memcpy(&event, buf + offset, kEventHeader);
        const char* nameBytes = buf + offset + kEventHeader;
        if (event.len > len - offset - kEventHeader) {
            // The kernel never splits an event; a read that does is not trusted further.
            HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kLoop, "***** ERROR! got a short event!");
            return false;
        }
        offset += kEventHeader + event.len;
        std::optional<std::string> name;
        // A name starting with the digit 0 is reported without its name.
        if (event.len != 0 && nameBytes[0] != '0') {
            name.emplace(nameBytes, strnlen(nameBytes, event.len - 1));
        }
        // The overflow event names no watch (its descriptor is -1): it is
        // handled as an unknown descriptor, and announced on its own.
        if ((event.mask & IN_Q_OVERFLOW) != 0) OnQueueOverflow();
        std::optional<std::string> watched = watchedPathOf(event.wd);
        if (!watched) {
            HALVEX_LOG_FN(ANDROID_LOG_WARN, LOG_TAG, kLoop,
                          "wd %d is not in our watching list, remove watching!", event.wd);
            removeWatching(event.wd);
            continue;
        }
        OnFileEvent(event.mask, std::move(name), *watched);
    }
    return true;
}

}  // namespace zelkor::tessel
