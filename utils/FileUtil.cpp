#define LOG_TAG "Halvex-FileUtil"

#include "utils/FileUtil.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "platform/HalvexLog.h"
#include "utils/StringUtil.h"

namespace zelkor::tessel {

namespace {

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

DirPtr OpenDir(const std::string& path) {
    return DirPtr(opendir(path.c_str()));
}

bool IsDotEntry(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

std::string Join(const std::string& dir, const char* name) {
    return dir + "/" + name;
}

// Byte-for-byte copy of one file; mode, owner and times are not carried over.
bool CopyFileContents(const std::string& src, const std::string& dst) {
    // Logged under the public entry point, the name callers know.
    static constexpr char kFn[] = "CopyFileOrDirectory";
    std::ifstream in(src, std::ios::binary);
    if (!in) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFn, "Error opening source file: %s",
                      src.c_str());
        return false;
    }
    std::ofstream out(dst, std::ios::binary | std::ios::trunc);
    if (!out) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFn, "Error opening destination file: %s",
                      dst.c_str());
        return false;
    }
    char buf[4096];
    while (in.read(buf, sizeof(buf))) out.write(buf, sizeof(buf));
    // The last read comes up short; keep what it got.
    out.write(buf, in.gcount());
    if (!in.eof()) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFn, "Error reading source file: %s",
                      src.c_str());
        return false;
    }
    // A full disk must not pass for a finished copy.
    out.flush();
    if (!out) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, kFn, "Error writing destination file: %s",
                      dst.c_str());
        return false;
    }
    return true;
}

}  // namespace

bool FileUtil::CreateDirectory(const std::string& path, const unsigned mode) {
    if (FileExist(path)) return true;
    // Nothing to create, and the chmod pass below must never reach "/" itself.
    if (StringUtil::TrimStr(path, '/').empty()) return false;

    // "a/b/d" and "/a/b/d/" both become "/a/b/d/", so every level ends in a slash.
    std::string dir = "/" + StringUtil::TrimStr(path, '/') + "/";

    // Parents first; 0777 lets the umask decide until the chmod pass below.
    size_t firstCreatedLen = 0;
    for (size_t slash = dir.find('/', 1); slash != std::string::npos;
         slash = dir.find('/', slash + 1)) {
        std::string prefix = dir.substr(0, slash);
        if (FileExist(prefix)) continue;
        if (mkdir(prefix.c_str(), 0777) != 0) {
            HLOGE("mkdir %s failed, %s, err:%s", prefix.c_str(), path.c_str(), strerror(errno));
            return false;
        }
        if (firstCreatedLen == 0) firstCreatedLen = prefix.size();
    }

    // Deepest first, down to the first directory made above, so parents that
    // were already there keep their modes.
    std::string level = dir;
    for (size_t slash = level.rfind('/'); slash != std::string::npos; slash = level.rfind('/')) {
        level.erase(slash);
        if (!FileExist(level) || chmod(level.c_str(), mode) != 0) {
            HLOGE("change mode %s failed", level.c_str());
            return false;
        }
        if (level.size() <= firstCreatedLen || firstCreatedLen == 0) break;
    }
    return true;
}

bool FileUtil::FileExist(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

bool FileUtil::ChangeMode(const std::string& path, const unsigned mode) {
    return FileExist(path) && chmod(path.c_str(), mode) == 0;
}

bool FileUtil::CreateDirectoryWithOwner(const std::string& path, int uid, int gid) {
    bool created = CreateDirectory(path, 0775);
    if (created) {
        // Ownership is best effort: the folder exists and is usable either way.
        int rc = chown(path.c_str(), uid, gid);
        (void)rc;
    }
    return created;
}

bool FileUtil::IsDirectory(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

uint32_t FileUtil::GetFileSize(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return 0;
    return static_cast<uint32_t>(st.st_size);
}

int64_t FileUtil::GetDirectorySize(const std::string& path) {
    DirPtr dir = OpenDir(path);
    if (!dir) {
        HLOGE("Cannot open dir: %s", path.c_str());
        return -1;
    }
    struct stat st {};
    int64_t total = lstat(path.c_str(), &st) == 0 ? st.st_size : 0;
    while (dirent* entry = readdir(dir.get())) {
        if (IsDotEntry(entry->d_name)) continue;
        std::string child = Join(path, entry->d_name);
        // lstat: a link counts as itself, never as what it points to.
        if (lstat(child.c_str(), &st) != 0) continue;
        // A subdirectory that cannot be opened contributes its -1 as is.
        total += S_ISDIR(st.st_mode) ? GetDirectorySize(child) : st.st_size;
    }
    return total;
}

int FileUtil::DeleteDirectoryOrFile(const std::string& path, uint64_t* freed) {
    struct stat st {};
    DirPtr dir = OpenDir(path);
    if (!dir) {
        if (errno != ENOTDIR) return -1;
        if (freed) *freed = stat(path.c_str(), &st) == 0 ? st.st_size : 0;
        return unlink(path.c_str());
    }
    while (dirent* entry = readdir(dir.get())) {
        if (IsDotEntry(entry->d_name)) continue;
        std::string child = Join(path, entry->d_name);
        // stat, not lstat, and it stays that way: a link to a directory is walked
        // into like the directory itself, so its target is emptied and the rmdir
        // of the link then fails and ends the delete.
        if (stat(child.c_str(), &st) != 0) return -1;
        if (!S_ISDIR(st.st_mode)) {
            if (freed) *freed += st.st_size;
            int rc = unlink(child.c_str());
            if (rc != 0) return rc;
        } else {
            uint64_t childFreed = 0;
            int rc = DeleteDirectoryOrFile(child, &childFreed);
            // Whatever the subtree gave up before failing is gone all the same.
            if (freed) *freed += childFreed;
            if (rc != 0) return rc;
        }
    }
    dir.reset();
    if (freed && stat(path.c_str(), &st) == 0) *freed += st.st_size;
    return rmdir(path.c_str());
}

bool FileUtil::CopyFileOrDirectory(const std::string& src, const std::string& dst) {
    struct stat st {};
    if (stat(src.c_str(), &st) != 0) {
        HLOGE("Error checking path: %s", strerror(errno));
        return false;
    }
    if (!S_ISDIR(st.st_mode)) return CopyFileContents(src, dst);

    DirPtr dir = OpenDir(src);
    if (!dir) {
        HLOGE("Error opening directory: %s", src.c_str());
        return false;
    }
    // An existing destination fails too: copies never merge into a tree.
    if (mkdir(dst.c_str(), 0755) != 0) {
        HLOGE("Error creating directory: %s", dst.c_str());
        return false;
    }
    while (dirent* entry = readdir(dir.get())) {
        if (IsDotEntry(entry->d_name)) continue;
        if (!CopyFileOrDirectory(Join(src, entry->d_name), Join(dst, entry->d_name))) {
            return false;
        }
    }
    return true;
}

bool FileUtil::GetFileListOnDirectory(const std::string& path, std::vector<std::string>& files) {
    DirPtr dir = OpenDir(path);
    if (!dir) {
        HLOGE("Open dir error...");
        return false;
    }
    while (dirent* entry = readdir(dir.get())) {
        if (IsDotEntry(entry->d_name)) continue;
        std::string child = Join(path, entry->d_name);
        if (entry->d_type == DT_DIR) {
            // A subdirectory that vanished meanwhile just contributes nothing.
            GetFileListOnDirectory(child, files);
        } else if (entry->d_type == DT_REG || entry->d_type == DT_LNK) {
            files.push_back(std::move(child));
        }
    }
    return true;
}

}  // namespace zelkor::tessel
