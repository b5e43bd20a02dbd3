#define LOG_TAG "Halvex-ZipFile"

#include "utils/ZipFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/HalvexLog.h"
#include "platform/Platform.h"
#include "utils/FileUtil.h"
#include "utils/StringUtil.h"

namespace zelkor::tessel {

namespace {

constexpr size_t kChunk = 8192;
constexpr int kMemLevel = 8;
constexpr uLong kUtf8Names = 1u << 11;  // general-purpose flag bit 11
// The flush logs under its own name, also from the helpers it calls.
constexpr char kFlush[] = "FlushFilesIfNeeded";

// The local time now, as the archive's entry date.
tm_zip LocalTimeNow() {
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    tm_zip date{};
    date.tm_sec = local.tm_sec;
    date.tm_min = local.tm_min;
    date.tm_hour = local.tm_hour;
    date.tm_mday = local.tm_mday;
    // minizip's month counts from 0 and is written to the archive as 1-12.
    date.tm_mon = local.tm_mon;
    date.tm_year = local.tm_year + 1900;
    return date;
}

// Opens a regular file for reading without waiting on a FIFO or device.
int OpenRegularFile(const std::string& hostPath) {
    const int fd = open(hostPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return -1;
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string WithoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path == "/" ? std::string() : path;
}

}  // namespace

ZipFile::ZipFile(std::vector<std::string> paths, int tailDepth)
    : mPending(std::make_move_iterator(paths.begin()), std::make_move_iterator(paths.end())),
      mTailDepth(tailDepth) {}

ZipFile::~ZipFile() {
    if (mZip != nullptr && !close()) HLOGE("close zip file failed while destructing!!");
}

bool ZipFile::create(const std::string& zipPath) {
    if (mZip != nullptr) close();
    mZip = zipOpen2(platform::DevicePath(zipPath).c_str(), APPEND_STATUS_CREATE, nullptr, nullptr);
    if (mZip == nullptr) {
        HLOGE("Couldn't create ZIP file at path %s", zipPath.c_str());
        return false;
    }
    return true;
}

bool ZipFile::close() {
    if (mZip == nullptr) {
        HLOGD("zipfile already closed!");
        return true;
    }
    bool ok = true;
    if (!FlushFilesIfNeeded(true)) {
        HLOGE("force flush files failed");
        ok = false;
    }
    if (zipClose(mZip, nullptr) != ZIP_OK) {
        HLOGE("close zip file failed");
        ok = false;
    }
    mZip = nullptr;
    return ok;
}

bool ZipFile::FlushFilesIfNeeded(bool force) {
    bool ok = true;
    do {
        if (mPending.size() < kBatchSize && !force) return ok;
        if (mPending.empty()) return ok;
        const size_t count = std::min(mPending.size(), kBatchSize);
        std::vector<std::string> batch(std::make_move_iterator(mPending.begin()),
                                       std::make_move_iterator(mPending.begin() + count));
        mPending.erase(mPending.begin(), mPending.begin() + count);
        for (const auto& path : batch) {
            if (FileUtil::IsDirectory(platform::DevicePath(path))) {
                ok = writeDirectory(path) && ok;
                continue;
            }
            std::string name = path;
            if (mTailDepth >= 1) StringUtil::getTailPath(name, mTailDepth);
            ok = writeFileEntry(path, name) && ok;
        }
    } while (force);
    return ok;
}

bool ZipFile::writeDirectory(const std::string& dir) {
    bool ok = true;
    std::string dirName = dir;
    if (mTailDepth >= 1) StringUtil::getTailPath(dirName, mTailDepth);
    if (!dirName.empty() && !AddDirectoryEntryToZip(dirName)) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFlush, "Failed to write directory %s",
                      dir.c_str());
        ok = false;
    }
    const std::string hostDir = platform::DevicePath(dir);
    std::vector<std::string> files;
    if (!FileUtil::GetFileListOnDirectory(hostDir, files)) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFlush, "Failed to get file list on directory");
        return false;
    }
    const std::string deviceDir = WithoutTrailingSlashes(dir);
    for (const auto& hostFile : files) {
        // The listing joins the folder and each level with '/'.
        const std::string below = hostFile.substr(hostDir.size());
        const std::string path = deviceDir + below;
        std::string name = path;
        if (mTailDepth >= 1) {
            HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, kFlush, "relativePath before getTailPath: %s",
                          name.c_str());
            const int levels = static_cast<int>(std::count(below.begin(), below.end(), '/'));
            StringUtil::getTailPath(name, mTailDepth + levels);
        }
        ok = writeFileEntry(path, name) && ok;
    }
    return ok;
}

bool ZipFile::writeFileEntry(const std::string& path, const std::string& name) {
    bool ok = OpenNewFileInZip(mZip, name);
    if (ok) {
        ok = AddFileContentToZip(path);
        // Closed whatever the copy did, so the archive stays readable.
        ok = zipCloseFileInZip(mZip) == ZIP_OK && ok;
    }
    if (!ok)
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFlush, "Failed to write file %s", path.c_str());
    return ok;
}

bool ZipFile::OpenNewFileInZip(zipFile handle, const std::string& name) {
    zip_fileinfo info{};
    info.tmz_date = LocalTimeNow();
    const int result =
            zipOpenNewFileInZip4(handle, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                 Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0, -MAX_WBITS, kMemLevel,
                                 Z_DEFAULT_STRATEGY, nullptr, 0, 0, kUtf8Names);
    if (result != ZIP_OK) {
        HLOGE("zipOpenNewFileInZip4 failed");
        return false;
    }
    return true;
}

bool ZipFile::AddFileContentToZip(const std::string& path) {
    HLOGD("Adding File To Zip, file path: %s", path.c_str());
    const std::string hostPath = platform::DevicePath(path);
    if (!FileUtil::FileExist(hostPath)) {
        HLOGW("file not exist %s", path.c_str());
        return false;
    }
    const int fd = OpenRegularFile(hostPath);
    if (fd < 0) {
        HLOGW("open file %s failed", path.c_str());
        return false;
    }
    char buf[kChunk];
    bool ok = true;
    for (;;) {
        const ssize_t got = read(fd, buf, sizeof(buf));
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            HLOGW("read file %s failed: %s", path.c_str(), strerror(errno));
            ok = false;
            break;
        }
        if (zipWriteInFileInZip(mZip, buf, static_cast<unsigned>(got)) != ZIP_OK) {
            HLOGW("Could not write data to zip for path: %s", path.c_str());
            ok = false;
            break;
        }
    }
    ::close(fd);
    return ok;
}

bool ZipFile::AddDirectoryEntryToZip(const std::string& name) {
    const std::string entry = StringUtil::EndsWith(name, "/") ? name : name + "/";
    if (!OpenNewFileInZip(mZip, entry)) return false;
    return zipCloseFileInZip(mZip) == ZIP_OK;
}

}  // namespace zelkor::tessel
