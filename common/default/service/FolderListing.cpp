// Folder listings of the file-system service: every regular file below a
// folder, by bare name (DirListFiles) or by full path (DirIntgrFiles).
#include <android-base/unique_fd.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/default/service/TesselImpl.h"
#include "common/default/service/TesselStatus.h"
#include "platform/ClientPath.h"

namespace zelkor::tessel {
namespace {

// The listing is sized for this many files first, grown once to the most a
// reply may carry, and fails when a folder holds that many or more.
constexpr size_t kFirstSize = 512;
constexpr size_t kMaxFiles = 1024;

struct Listing {
    bool fullPath;
    std::vector<FileInfo>* files;
    size_t count = 0;
};

std::string Joined(const std::string& folder, const char* name) {
    return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

// Adds one regular file; false once the listing is over its limit.
bool Add(Listing* listing, int dir, const std::string& folder, const char* name) {
    const std::string full = Joined(folder, name);
    TLOGD("before lstat: %s\n", full.c_str());
    FileInfo info;
    info.name = listing->fullPath ? full : name;
    struct stat st;
    if (fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        TLOGE("lstat return NOT zero path = %s\n", full.c_str());
    } else {
        info.size = st.st_size;
        info.mtime = st.st_mtime;
    }
    if (listing->count + 1 >= kMaxFiles) {
        TLOGE("Folder includes more than 1024 files, return FAILED\n");
        return false;
    }
    if (listing->count + 1 == kFirstSize) listing->files->resize(kMaxFiles);
    (*listing->files)[listing->count++] = std::move(info);
    return true;
}

// Lists the folder open as `dir` (owned) and the folders below it whose name
// does not begin with '.'. Entries are opened relative to their folder with
// no link followed, so the walk never leaves the folder it was given.
bool traverseFolder(Listing* listing, int dir, const std::string& folder) {
    DIR* stream = fdopendir(dir);
    if (stream == nullptr) {
        close(dir);
        TLOGE("open path failed, return error");
        return false;
    }
    bool ok = true;
    while (ok) {
        const struct dirent* entry = readdir(stream);
        if (entry == nullptr) break;
        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN) {
            struct stat st;
            if (fstatat(dirfd(stream), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
            type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISREG(st.st_mode) ? DT_REG : DT_UNKNOWN;
        }
        if (type == DT_DIR && entry->d_name[0] != '.') {
            const std::string sub = Joined(folder, entry->d_name);
            TLOGD("current path = %s\n", sub.c_str());
            int child = openat(dirfd(stream), entry->d_name,
                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            ok = child >= 0 ? traverseFolder(listing, child, sub) : false;
            if (child < 0) TLOGE("open path failed, return error");
        } else if (type == DT_REG) {
            ok = Add(listing, dirfd(stream), folder, entry->d_name);
        }
    }
    closedir(stream);
    return ok;
}

binder_status_t List(const std::string& path, bool fullPath, std::vector<FileInfo>* result) {
    result->clear();
    if (path.empty()) {
        TLOGE("path is NULL, return error");
        return TESSEL_EINVAL;
    }
    android::base::unique_fd node(platform::OpenClientPath(path, O_PATH));
    struct stat st;
    if (!node.ok() || fstat(node.get(), &st) != 0) {
        TLOGE("open path failed, return error");
        return TESSEL_NOENT;
    }
    if (!S_ISDIR(st.st_mode)) {
        TLOGD("path is point to one file. return file name");
        FileInfo info;
        info.name = fullPath ? path : path.substr(path.find_last_of('/') + 1);
        info.size = st.st_size;
        info.mtime = st.st_mtime;
        result->push_back(std::move(info));
        return STATUS_OK;
    }
    Listing listing{fullPath, result};
    result->resize(kFirstSize);
    bool ok = traverseFolder(&listing, openat(node.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC),
                             path);
    TLOGD("Finally file_count = %d\n", static_cast<int>(listing.count));
    result->resize(ok ? listing.count : 0);
    // A folder that cannot be listed whole is a question the service cannot
    // answer, not a bad parameter.
    return ok ? STATUS_OK : STATUS_INVALID_OPERATION;
}

}  // namespace

ndk::ScopedAStatus TesselImpl::DirListFiles(const std::string& path,
                                            std::vector<FileInfo>* result) {
    return TesselStatus(List(path, false, result));
}

ndk::ScopedAStatus TesselImpl::DirIntgrFiles(const std::string& path,
                                             std::vector<FileInfo>* result) {
    return TesselStatus(List(path, true, result));
}

}  // namespace zelkor::tessel
