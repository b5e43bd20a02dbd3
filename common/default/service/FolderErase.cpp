// Deletion of the file-system service: a file, or a folder and everything
// below it, depth first.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/default/service/TesselFiles.h"
#include "common/default/service/TesselImpl.h"
#include "common/default/service/TesselStatus.h"
#include "platform/ClientPath.h"

namespace zelkor::tessel {
namespace {

// Empties the folder `name` of `parent`. Every entry is reached relative to
// its folder and links are removed, never followed, so a link planted inside
// cannot lead the deletion anywhere else.
bool traverseFolderForDelete(int parent, const char* name, const std::string& shown) {
    TLOGD("traversal dir  %s\n", shown.c_str());
    int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    DIR* dir = fd < 0 ? nullptr : fdopendir(fd);
    if (dir == nullptr) {
        TLOGE("cannot open directory %s, errno = %d\n", shown.c_str(), errno);
        if (fd >= 0) close(fd);
        return false;
    }
    bool ok = true;
    for (const struct dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
        const std::string entryName = entry->d_name;
        if (entryName == "." || entryName == "..") continue;
        struct stat st;
        if (fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            const std::string sub = shown + "/" + entryName;
            ok = traverseFolderForDelete(dirfd(dir), entry->d_name, sub) && ok;
            if (unlinkat(dirfd(dir), entry->d_name, AT_REMOVEDIR) != 0) {
                TLOGE("remove dir fail, destDir = %s\n", sub.c_str());
                ok = false;
            }
        } else if (unlinkat(dirfd(dir), entry->d_name, 0) != 0) {
            TLOGE("remove file fail, errno =  %d\n", errno);
            ok = false;
        }
    }
    closedir(dir);
    return ok;
}

binder_status_t Erase(const std::string& path, const std::string& fileName) {
    std::string full;
    binder_status_t status = handlePath(path, fileName, &full);
    if (status != STATUS_OK) {
        TLOGE("handPath function return error(%d)\n", status);
        return status;
    }
    std::string name;
    android::base::unique_fd parent(platform::OpenClientParent(full, &name));
    struct stat st;
    if (!parent.ok() || fstatat(parent.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        TLOGE("lstat for(%s) failed, errno = %d\n", full.c_str(), errno);
        return TESSEL_NOENT;
    }
    if (!S_ISDIR(st.st_mode)) {
        if (unlinkat(parent.get(), name.c_str(), 0) != 0) {
            TLOGE("remove file(%s) failed, error = %d\n", full.c_str(), errno);
            return TESSEL_EINVAL;
        }
        TLOGD("file(%s) removed\n", full.c_str());
        return STATUS_OK;
    }
    if (name == ".") {
        // The root itself (named "." by the resolution) is never emptied.
        TLOGE("remove dir fail, destDir = %s\n", full.c_str());
        return TESSEL_EINVAL;
    }
    TLOGD("pathFinal(%s) begin\n", full.c_str());
    bool ok = traverseFolderForDelete(parent.get(), name.c_str(), full);
    if (ok && unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) != 0) {
        TLOGE("remove dir fail, destDir = %s\n", full.c_str());
        ok = false;
    }
    TLOGD("pathFinal(%s) end\n", full.c_str());
    return ok ? STATUS_OK : TESSEL_EINVAL;
}

}  // namespace

ndk::ScopedAStatus TesselImpl::EraseFileOrDirectory(const std::string& path,
                                                    const std::string& fileName) {
    return TesselStatus(Erase(path, fileName));
}

}  // namespace zelkor::tessel
