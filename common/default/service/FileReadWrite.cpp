// Whole-file reads and writes of the file-system service, carried in the
// binder transaction itself.
#include <android-base/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <vector>

#include "common/default/service/TesselFiles.h"
#include "common/default/service/TesselImpl.h"
#include "common/default/service/TesselStatus.h"

namespace zelkor::tessel {
namespace {

// TesselReadBuffer refuses files of this size or more.
constexpr int64_t READ_MAX = 0x80000;
// The largest text reply the binder transport carries: a String travels as
// UTF-16, so 16 MiB of text is the most one reply can hold. Anything larger
// would fail in the reply anyway; refusing it first bounds the allocation.
constexpr int64_t kTextReadMax = int64_t{16} << 20;

// Reads the whole of `full` into *out (a string or a byte vector).
template <typename Container>
binder_status_t ReadWhole(const std::string& path, const std::string& name, int64_t limit,
                          Container* out) {
    std::string full;
    android::base::unique_fd fd;
    int64_t size;
    binder_status_t status = OpenSized(path, name, &full, &fd, &size);
    if (status != STATUS_OK) {
        TLOGE("handPath function return error(%d)\n", status);
        return status;
    }
    if (!fd.ok()) {
        TLOGE("open %s file failed\n", full.c_str());
        return TESSEL_OPEN_FAILED;
    }
    TLOGD("filezie = %u\n", static_cast<unsigned>(size));
    if (size < 0) {
        TLOGE("read %s file failed\n", full.c_str());
        return TESSEL_EINVAL;
    }
    if (size >= limit) {
        if (limit == READ_MAX) {
            TLOGE("file_size >= READ_MAX, return failed\n");
        } else {
            TLOGE("%s is larger than a reply can carry, return failed\n", full.c_str());
        }
        return TESSEL_EINVAL;
    }
    out->resize(static_cast<size_t>(size));
    ssize_t got = ReadFully(fd.get(), out->data(), out->size());
    if (got < 0) {
        TLOGE("read %s file failed\n", full.c_str());
        out->clear();
        return TESSEL_EINVAL;
    }
    // A file that shrank since it was sized gives what it still holds.
    out->resize(static_cast<size_t>(got));
    TLOGD("read result size = %zu\n", out->size());
    return STATUS_OK;
}

}  // namespace

ndk::ScopedAStatus TesselImpl::TesselReadFile(const std::string& path, const std::string& fileName,
                                              std::string* result) {
    return TesselStatus(ReadWhole(path, fileName, kTextReadMax, result));
}

ndk::ScopedAStatus TesselImpl::TesselReadBuffer(const std::string& path,
                                                const std::string& fileName,
                                                std::vector<int8_t>* result) {
    return TesselStatus(ReadWhole(path, fileName, READ_MAX, result));
}

ndk::ScopedAStatus TesselImpl::TesselWriteFile(const std::string& path, const std::string& fileName,
                                               const std::string& data, int32_t mode,
                                               int8_t appendData) {
    std::string full;
    binder_status_t status = handlePath(path, fileName, &full);
    if (status != STATUS_OK) {
        TLOGE("handPath function return error(%d)\n", status);
        return TesselStatus(status);
    }
    TLOGD("write file: %s, length: %d, append_data = %d\n", full.c_str(),
          static_cast<int>(data.size()), appendData);
    android::base::unique_fd fd = OpenForWrite(full, appendData != 0);
    if (!fd.ok() || !android::base::WriteFully(fd.get(), data.data(), data.size())) {
        TLOGE("write %s failed\n", full.c_str());
        return TesselStatus(TESSEL_EINVAL);
    }
    if (fchmod(fd.get(), static_cast<mode_t>(mode) & 07777) != 0) {
        TLOGE("%s chmod failed\n", full.c_str());
    }
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselImpl::TesselWriteBuffer(const std::string& path,
                                                 const std::string& fileName,
                                                 const std::vector<int8_t>& buffer,
                                                 int64_t length) {
    std::string full;
    if (length < 0 || static_cast<uint64_t>(length) > buffer.size() ||
        handlePath(path, fileName, &full) != STATUS_OK) {
        TLOGE("parameter is invalid, return error");
        return TesselStatus(TESSEL_EINVAL);
    }
    android::base::unique_fd fd = OpenForWrite(full, false);
    if (!fd.ok()) {
        TLOGE("open %s failed, errno = %s\n", full.c_str(), strerror(errno));
        return TesselStatus(TESSEL_EINVAL);
    }
    if (!android::base::WriteFully(fd.get(), buffer.data(), static_cast<size_t>(length))) {
        TLOGE("write %s failed, errno = %s\n", full.c_str(), strerror(errno));
        return TesselStatus(TESSEL_EINVAL);
    }
    if (fchmod(fd.get(), kWrittenFileMode) != 0) {
        TLOGE("%s chmod failed, errno = %s\n", full.c_str(), strerror(errno));
    }
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselImpl::CopyFile(const std::string& srcPath, const std::string& destPath) {
    android::base::unique_fd from =
            srcPath.empty() ? android::base::unique_fd() : OpenForRead(srcPath);
    // Only something with a size is copied, checked before the destination
    // is cut: a folder named as the source must not cost the target its data.
    if (!from.ok() || getFileSizeInternal(from.get()) < 0) {
        TLOGE("Failed to open copy from %s", srcPath.c_str());
        return TesselStatus(TESSEL_EINVAL);
    }
    android::base::unique_fd to =
            destPath.empty() ? android::base::unique_fd() : OpenForWrite(destPath, /*append=*/true);
    struct stat fromStat, toStat;
    if (!to.ok() || fstat(from.get(), &fromStat) != 0 || fstat(to.get(), &toStat) != 0 ||
        (fromStat.st_dev == toStat.st_dev && fromStat.st_ino == toStat.st_ino)) {
        // Copying a file onto itself would truncate the source first.
        TLOGE("Failed to open copy to %s", destPath.c_str());
        return TesselStatus(TESSEL_EINVAL);
    }
    std::vector<char> chunk(128 * 1024);
    bool ok = (S_ISBLK(toStat.st_mode) || ftruncate(to.get(), 0) == 0) &&
              lseek(to.get(), 0, SEEK_SET) == 0;
    for (ssize_t n = 1; ok && n > 0;) {
        n = ReadFully(from.get(), chunk.data(), chunk.size());
        ok = n >= 0 && android::base::WriteFully(to.get(), chunk.data(), static_cast<size_t>(n));
    }
    if (!ok) {
        TLOGE("Copying failed! %s -> %s", srcPath.c_str(), destPath.c_str());
        return TesselStatus(TESSEL_EINVAL);
    }
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
