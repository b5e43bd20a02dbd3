// File-system helpers: directories with modes and owners, sizes, recursive
// delete, copy and listing. Failures are returned and logged under
// "Halvex-FileUtil"; nothing throws.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zelkor::tessel {

class FileUtil {
  public:
    // Creates `path` and any missing parents, always taken from the root. Only
    // the directories created here are given `mode`; an existing path is left
    // untouched. Directories made before a failure stay.
    static bool CreateDirectory(const std::string& path, const unsigned mode);
    static bool FileExist(const std::string& path);
    static bool ChangeMode(const std::string& path, const unsigned mode);
    // CreateDirectory with mode 0775, then a best-effort chown to uid:gid.
    static bool CreateDirectoryWithOwner(const std::string& path, int uid, int gid);
    static bool IsDirectory(const std::string& path);
    // Low 32 bits of the size; 0 when the file cannot be stat-ed.
    static uint32_t GetFileSize(const std::string& path);
    // Bytes of the directory, its entries and everything below it, links
    // counted by their own size; -1 when `path` cannot be opened.
    static int64_t GetDirectorySize(const std::string& path);
    // Removes a file or a whole tree. `freed` (may be null) is set to the size of
    // a removed file, or increased by the bytes removed from a tree. Returns 0,
    // -1, or the result of the failing unlink or rmdir. Stops at the first
    // failure without restoring anything.
    static int DeleteDirectoryOrFile(const std::string& path, uint64_t* freed);
    // Copies a file's bytes, or a tree into a destination that must not exist.
    static bool CopyFileOrDirectory(const std::string& src, const std::string& dst);
    // Appends the full paths of the regular files and symbolic links under
    // `path`, depth first in reading order; directories themselves are not listed.
    static bool GetFileListOnDirectory(const std::string& path, std::vector<std::string>& files);
};

}  // namespace zelkor::tessel
