// Transfers of the file-system service through a client's shared-memory
// region instead of the binder buffer.
//
// The mapped region is only ever touched by read(2) and write(2): should the
// client shrink its region while a call copies, the kernel answers EFAULT
// instead of the daemon taking a SIGBUS.
#include <android-base/file.h>
#include <cutils/ashmem.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "common/default/service/MMapGuard.h"
#include "common/default/service/TesselFiles.h"
#include "common/default/service/TesselImpl.h"
#include "common/default/service/TesselStatus.h"

namespace zelkor::tessel {
namespace {

// The most one call transfers: 128 MB.
constexpr int64_t kMaxTransfer = 134217728;

// Whether the descriptor really holds a region of `size` bytes; a client
// that claims more than it passed would otherwise have the daemon touch
// pages past the end of the file.
bool RegionHolds(int fd, int64_t size) {
    int real = ashmem_get_size_region(fd);
    return real >= 0 && size <= real;
}

}  // namespace

ndk::ScopedAStatus TesselImpl::WriteToFile(const Ashmem& mem, const std::string& path,
                                           const std::string& fileName, int64_t size) {
    const int regionFd = mem.fd.get();
    if (regionFd < 0) {
        TLOGE("pfd is invalid, return INVALID_OPERATION");
        return TesselStatus(STATUS_INVALID_OPERATION);
    }
    if (path.empty() || fileName.empty() || mem.mSize < 0) {
        TLOGE("parameter is invalid, return INVALID_OPERATION");
        return TesselStatus(STATUS_INVALID_OPERATION);
    }
    if (mem.mSize == 0) {
        TLOGE("mSize is 0, return TESSEL_NOENT\n");
        return TesselStatus(TESSEL_NOENT);
    }
    if (size > kMaxTransfer) {
        TLOGE("%s request size too large, max size=128MB\n", __func__);
        return TesselStatus(TESSEL_EINVAL);
    }
    if (size < 0 || size > mem.mSize) {
        TLOGE("fieSize too large, return TESSEL_EINVAL\n");
        return TesselStatus(TESSEL_EINVAL);
    }
    const size_t length = static_cast<size_t>(mem.mSize);
    MMapGuard region(RegionHolds(regionFd, mem.mSize)
                             ? mmap(nullptr, length, PROT_READ, MAP_SHARED, regionFd, 0)
                             : MAP_FAILED,
                     length);
    if (!region.ok()) {
        TLOGE("%s read mmap fd failed, return TESSEL_NOENT.\n", __func__);
        return TesselStatus(TESSEL_NOENT);
    }
    std::string full;
    binder_status_t status = handlePath(path, fileName, &full);
    if (status != STATUS_OK) {
        TLOGE("handlePath return error, ret=%d\n", status);
        return TesselStatus(status);
    }
    TLOGD("path=%s, fileName=%s\n", path.c_str(), fileName.c_str());
    android::base::unique_fd file = OpenForWrite(full, false);
    if (!file.ok()) {
        TLOGE("fs open failed, path=%s, error:%s\n", full.c_str(), strerror(errno));
        return TesselStatus(TESSEL_EINVAL);
    }
    if (!android::base::WriteFully(file.get(), region.get(), static_cast<size_t>(size))) {
        TLOGE("%s write failed, return TESSEL_EINVAL\n", full.c_str());
        return TesselStatus(TESSEL_EINVAL);
    }
    if (fchmod(file.get(), kWrittenFileMode) != 0) {
        TLOGE("chmod(%s) failed, err=%s\n", full.c_str(), strerror(errno));
    }
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselImpl::ReadFromFile(const Ashmem& mem, const std::string& path,
                                            const std::string& fileName) {
    const int regionFd = mem.fd.get();
    if (regionFd < 0 || path.empty() || fileName.empty() || mem.mSize < 0) {
        TLOGE("parameter is invalid, return STATUS_INVALID_OPERATION");
        return TesselStatus(STATUS_INVALID_OPERATION);
    }
    std::string full;
    android::base::unique_fd file;
    int64_t fileSize;
    binder_status_t status = OpenSized(path, fileName, &full, &file, &fileSize);
    if (status != STATUS_OK) {
        TLOGE("handlePath return error, ret=%d\n", status);
        return TesselStatus(status);
    }
    if (fileSize < 0) {
        TLOGE("fieSize invalid, ERROR, return TESSEL_EINVAL\n");
        return TesselStatus(TESSEL_EINVAL);
    }
    if (fileSize > kMaxTransfer) {
        TLOGE("%s request size too large, max size=128MB\n", __func__);
        return TesselStatus(TESSEL_EINVAL);
    }
    if (fileSize > mem.mSize) {
        TLOGE("%s fileSize too large, fileSize: %ld, sharedMemorySize: %ld.\n", __func__,
              static_cast<long>(fileSize), static_cast<long>(mem.mSize));
        return TesselStatus(TESSEL_EINVAL);
    }
    if (mem.mSize == 0) {
        TLOGE("size of memory block is 0, abort, return TESSEL_EINVAL\n");
        return TesselStatus(TESSEL_EINVAL);
    }
    if (!RegionHolds(regionFd, mem.mSize)) {
        TLOGE("%s error creating ashmem region, return TESSEL_NOENT.\n", __func__);
        return TesselStatus(TESSEL_NOENT);
    }
    const size_t length = static_cast<size_t>(mem.mSize);
    MMapGuard region(mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, regionFd, 0),
                     length);
    if (!region.ok()) {
        TLOGE("%s mmap failed, return TESSEL_NOENT.\n", __func__);
        return TesselStatus(TESSEL_NOENT);
    }
    TLOGD("%s get MemoryBlock successful\n", __func__);
    // A file that grew since it was sized is cut at that size: the region
    // was checked against it.
    if (ReadFully(file.get(), region.get(), static_cast<size_t>(fileSize)) < 0) {
        TLOGE("read %s file failed\n", full.c_str());
        return TesselStatus(TESSEL_EINVAL);
    }
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
