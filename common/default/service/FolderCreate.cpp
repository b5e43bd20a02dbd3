// Folder creation of the file-system service: every missing level of the
// joined path, each given the requested mode.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/default/service/TesselFiles.h"
#include "common/default/service/TesselImpl.h"
#include "common/default/service/TesselStatus.h"
#include "platform/ClientPath.h"

namespace zelkor::tessel {
namespace {

// Creates `full` and each missing folder above it, walking down from the
// top so that every level is resolved afresh inside the root.
bool CreateLevels(const std::string& full, mode_t mode) {
    size_t end = 0;
    while (end != std::string::npos) {
        end = full.find('/', end + 1);
        const std::string level = full.substr(0, end);
        android::base::unique_fd existing(platform::OpenClientPath(level, O_PATH | O_DIRECTORY));
        if (existing.ok()) continue;
        if (errno != ENOENT) {
            TLOGE("%s is not a folder, errno = %d\n", level.c_str(), errno);
            return false;
        }
        std::string name;
        android::base::unique_fd parent(platform::OpenClientParent(level, &name));
        // The umask would narrow the mode, so it is set again once made.
        if (!parent.ok() || (mkdirat(parent.get(), name.c_str(), 0700) != 0 && errno != EEXIST) ||
            fchmodat(parent.get(), name.c_str(), mode, AT_SYMLINK_NOFOLLOW) != 0) {
            TLOGE("create folder %s failed, errno = %s\n", level.c_str(), strerror(errno));
            return false;
        }
    }
    return true;
}

binder_status_t _createFolder(const std::string& path, const std::string& folderName,
                              int32_t mode) {
    std::string full;
    if (path.empty() || folderName.empty() || handlePath(path, folderName, &full) != STATUS_OK) {
        TLOGE("path or folder_name is NULL, return error");
        return TESSEL_EINVAL;
    }
    return CreateLevels(full, static_cast<mode_t>(mode) & 07777) ? STATUS_OK : TESSEL_EINVAL;
}

}  // namespace

ndk::ScopedAStatus TesselImpl::TesselCreateFolder(const std::string& path,
                                                  const std::string& folderName) {
    return TesselStatus(_createFolder(path, folderName, 0755));
}

ndk::ScopedAStatus TesselImpl::TesselCreateFolderMode(const std::string& path,
                                                      const std::string& folderName, int32_t mode) {
    return TesselStatus(_createFolder(path, folderName, mode));
}

}  // namespace zelkor::tessel
